#include "drives/names.h"

#include "drives/name_set.h"
#include "foundation/errors.h"
#include "foundation/proc_partitions.h"
#include "foundation/text.h"

using namespace torvane;

namespace {

void release_names(char ***names, uint32_t *count) noexcept {
    release_drive_names(*names, *count);
    *names = nullptr;
    *count = 0;
}

// Whom to ask for whole disks: those who keep what they learn, or is_drive().
bool is_whole_disk(const char *path, OpenDisks *disks) noexcept {
    return disks != nullptr ? disks->take_in(path) : is_drive(path) == 1;
}

int add_disk_of_line(const char *line, char ***names, uint32_t *count, OpenDisks *disks) noexcept {
    PartitionRow row{};
    auto length = static_cast<int>(scan_plain_row(line, row));
    CString scanned;
    if (length == 0) {
        char *name = nullptr;
        if (std::sscanf(line, "%*d %*d %*d %ms", &name) != 1) {
            return fail(kDriveList, "failed to parse line '%s'", line);
        }
        scanned.reset(name);
        row.name = name;
        length = static_cast<int>(std::strlen(name));
    }
    CString path = joined({"/dev/", {row.name, static_cast<size_t>(length)}});
    if (!path) return fail(kDriveList, "failed to allocate name '%.*s'", length, row.name);
    if (!is_whole_disk(path.get(), disks)) return 0;
    if (add_drive_name_to_list(path.get(), names, count) != 0) return -1;
    (void)path.release();
    return 0;
}

int fail_at_line(int number) noexcept { return fail(kDriveList, "failed to read line %d", number); }

// A file that stands for the readable part of another one fails at its end.
int add_disks_of_file(FILE *file, bool complete, char ***names, uint32_t *count, OpenDisks *disks) noexcept {
    for (int number = 1;; ++number) {
        char *text = nullptr;
        const int length = get_line(&text, file);
        const CString line(text);
        if (length < 0 || (length == 0 && !complete && std::feof(file) != 0)) return fail_at_line(number);
        if (length == 0) return 0;
        if (number > kHeaderLines && add_disk_of_line(text, names, count, disks) != 0) return -1;
    }
}

bool is_in(const char *name, const char *const *names, uint32_t count) noexcept {
    for (uint32_t i = 0; i < count; ++i) {
        if (equal(names[i], name)) return true;
    }
    return false;
}

int append_copy(const char *name, char ***names, uint32_t *count) noexcept {
    CString copy(duplicate_str(name));
    if (!copy) return fail(kDriveList, "failed to duplicate '%s'", name == nullptr ? "(null)" : name);
    if (add_drive_name_to_list(copy.get(), names, count) != 0) return -1;
    (void)copy.release();
    return 0;
}

} // namespace

int read_drive_names_on_system(char ***names, uint32_t *count) noexcept {
    if (names == nullptr || count == nullptr) return -1;
    File file(std::fopen(kProcPartitions, "r"));
    if (!file) return fail(kDriveList, "failed to open /proc/partitions");
    if (read_names_from_file(file.get(), names, count) != 0) return -1;
    if (std::fclose(file.release()) == 0) return 0;
    release_names(names, count);
    return fail(kDriveList, "failed to close /proc/partitions");
}

int read_names_from_file(FILE *file, char ***names, uint32_t *count) noexcept {
    if (file == nullptr || names == nullptr || count == nullptr) return -1;
    if (add_disks_of_file(file, true, names, count, nullptr) == 0) return 0;
    release_names(names, count);
    return -1;
}

int torvane::add_disks_of_text(char *text, size_t length, bool complete, char ***names, uint32_t *count,
                               OpenDisks &disks) noexcept {
    if (length == 0) return complete ? 0 : fail_at_line(1);
    const File lines(fmemopen(text, length, "r"));
    if (lines && add_disks_of_file(lines.get(), complete, names, count, &disks) == 0) return 0;
    release_names(names, count);
    return lines ? -1 : fail_at_line(1);
}

int is_drive(const char *path) noexcept {
    if (path == nullptr || contains(path, "dm-")) return 0;
    uint64_t start = 1;
    return get_device_start(-1, path, &start) == 0 && start == 0 ? 1 : 0;
}

int add_drive_name_to_list(char *name, char ***names, uint32_t *count) noexcept {
    if (name == nullptr || names == nullptr || count == nullptr) return -1;
    if (!grow(*names, *count)) {
        return fail(kDriveList, "failed to allocate %d drive names", static_cast<int>(*count + 1));
    }
    (*names)[*count - 1] = name;
    return 0;
}

int add_names_to_list(char ***names, uint32_t *count, const char *const *added, uint32_t added_count) noexcept {
    if (names == nullptr || count == nullptr || (added == nullptr && added_count > 0)) return -1;
    constexpr uint32_t kFewNames = 32;
    NameSet known;
    const bool look_up =
        added_count > kFewNames && added_count < UINT32_MAX - *count && known.reserve(*count + added_count);
    for (uint32_t i = 0; look_up && i < *count; ++i) (void)known.add((*names)[i]);
    for (uint32_t i = 0; i < added_count; ++i) {
        const char *name = added[i];
        if (name != nullptr && (look_up ? !known.add(name) : is_in(name, *names, *count))) continue;
        if (append_copy(name, names, count) != 0) return -1;
    }
    return 0;
}

int release_drive_names(char **names, uint32_t count) noexcept {
    if (names == nullptr) return 0;
    for (uint32_t i = 0; i < count; ++i) std::free(names[i]);
    std::free(static_cast<void *>(names));
    return 0;
}
