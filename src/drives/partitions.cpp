#include "drives/partition_table.h"
#include "foundation/errors.h"
#include "foundation/proc_partitions.h"
#include "foundation/text.h"

#include <cinttypes>

namespace torvane {
namespace {

constexpr int kNoPartitions = -TORVANE_GEOMETRY_PARTITIONS;
constexpr int kMinorsPerDisk = 16; // of the SCSI disk driver (Linux devices.txt, major 8)
constexpr const char *kBlanks = " \t\n\v\f\r";
constexpr unsigned kBlockShift = 10; // /proc/partitions counts in 1024-byte blocks

bool is_partition_row(int minor) noexcept { return (minor & (kMinorsPerDisk - 1)) != 0; }

bool lies_below(const char *name, const char *disk) noexcept {
    return begins_with(name, disk) && std::strlen(name) > std::strlen(disk);
}

int fail_to_find(const char *path) noexcept {
    fail(kGeometry, "failed to find '%s' in /proc/partitions", path);
    return kNoPartitions;
}

} // namespace

size_t scan_plain_row(const char *line, PartitionRow &row) noexcept {
    constexpr size_t kMostDigits[] = {9, 9, 18}; // of numbers that fit their types whatever the digits are
    uint64_t numbers[3] = {};
    for (size_t i = 0; i < 3; ++i) {
        line += std::strspn(line, " ");
        size_t digits = 0;
        for (; *line >= '0' && *line <= '9'; ++line, ++digits) {
            numbers[i] = numbers[i] * 10 + static_cast<uint64_t>(*line - '0');
        }
        if (digits == 0 || digits > kMostDigits[i] || *line != ' ') return 0;
    }
    line += std::strspn(line, " ");
    row = {.minor = static_cast<int>(numbers[1]), .blocks = numbers[2], .name = line};
    return std::strcspn(line, kBlanks);
}

bool read_row(char *line, PartitionRow &row) noexcept {
    if (const size_t length = scan_plain_row(line, row); length > 0) {
        line[static_cast<size_t>(row.name - line) + length] = '\0';
        return true;
    }
    int name_offset = -1;
    (void)std::sscanf(line, "%*d %d %" SCNu64 " %n", &row.minor, &row.blocks, &name_offset);
    if (name_offset < 0 || line[name_offset] == '\0') return false;
    char *name = line + name_offset;
    name[std::strcspn(name, kBlanks)] = '\0';
    row.name = name;
    return true;
}

PartitionScan::Step PartitionScan::take(const PartitionRow &row) noexcept {
    if (found_) {
        if (!lies_below(row.name, name_)) return Step::kDone;
        return add_partition(row.name, row.blocks, &partitions_, &partitions_.entries) == 0 ? Step::kMore
                                                                                            : Step::kFailed;
    }
    if (!equal(row.name, name_)) return Step::kMore;
    found_ = true;
    return is_partition_row(row.minor) ? Step::kDone : Step::kMore;
}

void release_partitions(PartitionList &partitions) noexcept {
    for (uint32_t i = 0; partitions.entries != nullptr && i < partitions.count; ++i) {
        std::free(partitions.entries[i].name);
    }
    std::free(partitions.entries);
    partitions = PartitionList{};
}

int read_partitions(const char *path, PartitionList &partitions, const PartitionTable *table) noexcept {
    char *token = nullptr;
    if (allocate_last_token(path, "/", &token) < 0) return kNoPartitions;
    const CString name(token);
    const int found = table != nullptr ? table->partitions_of(token, partitions) : get_partition(token, &partitions);
    return found == 0 ? 0 : fail_to_find(path);
}

} // namespace torvane

using namespace torvane;

int get_partitions(const char *path, PartitionList *partitions) noexcept {
    if (path == nullptr || partitions == nullptr) return kNoPartitions;
    return read_partitions(path, *partitions, nullptr);
}

int get_partition(const char *name, PartitionList *partitions) noexcept {
    if (name == nullptr || partitions == nullptr) return -1;
    const PartitionsFile file;
    if (!file) return fail(kGeometry, "failed to open /proc/partitions to read partition information");
    return parse_partition(file.get(), name, partitions);
}

int parse_partition(FILE *file, const char *name, PartitionList *partitions) noexcept {
    if (file == nullptr || name == nullptr || partitions == nullptr) return -1;
    PartitionScan scan(name, *partitions);
    for (auto step = PartitionScan::Step::kMore; step != PartitionScan::Step::kDone;) {
        char *text = nullptr;
        const int length = get_line(&text, file);
        const CString line(text);
        if (length == 0) break;
        PartitionRow row{};
        if (length > 0 && read_row(text, row)) step = scan.take(row);
        if (length < 0 || step == PartitionScan::Step::kFailed) {
            release_partitions(*partitions);
            return -1;
        }
    }
    return scan.found() ? 0 : -1;
}

int add_partition(const char *name, uint64_t blocks, PartitionList *partitions, PartitionRecord **entries) noexcept {
    if (name == nullptr || partitions == nullptr || entries == nullptr) return -1;
    if (!grow(*entries, partitions->count)) return fail(kGeometry, "failed to allocate partition for '%s'", name);
    PartitionRecord &entry = (*entries)[partitions->count - 1];
    entry.name = joined({"/dev/", name}).release();
    if (entry.name == nullptr) return fail(kGeometry, "failed to allocate partition name for '%s'", name);
    entry.size = blocks << kBlockShift;
    entry.number = partitions->count;
    return 0;
}

int get_partition_information(const char *path, DeviceGeometry *geometry) noexcept {
    if (path == nullptr || geometry == nullptr) return kNoPartitions;
    geometry->partition_count = 0;
    geometry->reserved = 0;
    char wanted[9] = "";
    if (get_last_token(path, "/", sizeof wanted, wanted) < 0) return kNoPartitions;
    const PartitionsFile file;
    if (!file) {
        fail(kGeometry, "failed to open /proc/partitions for partition information");
        return fail_to_find(path);
    }
    bool in_disk = false;
    char line[100];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        int major = 0;
        int minor = 0;
        uint64_t blocks = 0;
        char name[sizeof line];
        if (std::sscanf(line, "%d %d %" SCNu64 " %99s", &major, &minor, &blocks, name) < 4) continue;
        if (!in_disk) {
            // The other way round than for records: a partition's path finds its disk's row first.
            if (!begins_with(wanted, name)) continue;
            if (is_partition_row(minor)) return 0;
            in_disk = true;
            continue;
        }
        if (!lies_below(name, wanted)) return 0;
        if (geometry->partition_sizes != nullptr) {
            geometry->partition_sizes[geometry->partition_count] = blocks << kBlockShift;
        }
        ++geometry->partition_count;
    }
    if (in_disk && std::feof(file.get()) != 0) return 0;
    geometry->partition_count = 0; // what a read error cut short is none
    return fail_to_find(path);
}
