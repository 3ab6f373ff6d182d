#include "drives/partition_table.h"

#include "drives/names.h"
#include "foundation/errors.h"
#include "foundation/proc_partitions.h"

#include <algorithm>
#include <cstring>

namespace torvane {
namespace {

constexpr uint32_t kFirstSize = 1U << 16U;
constexpr uint32_t kLargestSize = 1U << 30U;

} // namespace

// A text that is not complete ends with its last whole line.
void PartitionTable::read(FILE *file) noexcept {
    (void)std::setvbuf(file, nullptr, _IONBF, 0); // each read goes straight into the text
    length_ = 0;
    complete_ = false;
    for (uint32_t size = kFirstSize; size <= kLargestSize && enlarge(text_, size); size *= 2) {
        length_ += static_cast<uint32_t>(std::fread(text_.get() + length_, 1, size - 1 - length_, file));
        if (length_ == size - 1) continue;
        complete_ = std::ferror(file) == 0;
        break;
    }
    while (!complete_ && length_ > 0 && text_.get()[length_ - 1] != '\n') --length_;
    if (text_) text_.get()[length_] = '\0';
}

bool PartitionTable::load() noexcept {
    const File file(std::fopen(kProcPartitions, "r"));
    if (!file) return false;
    read(file.get());
    return complete_;
}

int PartitionTable::read_names(char ***names, uint32_t *count, OpenDisks &disks) noexcept {
    File file(std::fopen(kProcPartitions, "r"));
    if (!file) return fail(kDriveList, "failed to open /proc/partitions");
    read(file.get());
    if (add_disks_of_text(text_.get(), length_, complete_, names, count, disks) != 0) return -1;
    if (std::fclose(file.release()) == 0) return 0;
    return fail(kDriveList, "failed to close /proc/partitions");
}

// Rows that have no name are skipped, as everywhere.
bool PartitionTable::add_row(char *line) noexcept {
    PartitionRow row{};
    if (!read_row(line, row)) return true;
    PartitionRow *rows = rows_.release();
    const bool grown = grow(rows, count_);
    rows_.reset(rows);
    if (grown) rows_.get()[count_ - 1] = row;
    return grown;
}

bool PartitionTable::index() noexcept {
    if (!complete_ || std::strlen(text_.get()) != length_) return false;
    complete_ = false;
    count_ = 0;
    char *rest = nullptr;
    for (char *line = strtok_r(text_.get(), "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest)) {
        if (!add_row(line)) return false;
    }
    if (!names_.reserve(count_)) return false;
    for (uint32_t i = 0; i < count_; ++i) (void)names_.add(rows_.get()[i].name);
    return true;
}

int PartitionTable::partitions_of(const char *name, PartitionList &partitions) const noexcept {
    PartitionScan scan(name, partitions);
    const char *first = names_.find(name);
    if (first == nullptr) return -1;
    // The rows' names stand one behind the other in the text.
    const PartitionRow *end = rows_.get() + count_;
    const PartitionRow *row =
        std::lower_bound(static_cast<const PartitionRow *>(rows_.get()), end, first,
                         [](const PartitionRow &before, const char *wanted) noexcept { return before.name < wanted; });
    auto step = PartitionScan::Step::kMore;
    for (; row < end && step == PartitionScan::Step::kMore; ++row) step = scan.take(*row);
    if (step == PartitionScan::Step::kFailed) {
        release_partitions(partitions);
        return -1;
    }
    return 0;
}

} // namespace torvane
