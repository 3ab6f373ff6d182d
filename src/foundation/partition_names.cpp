#include "foundation/directory.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "torvane.h"

using namespace torvane;

int get_partition_names(char ***names, uint32_t *count, const char *disk) noexcept {
    if (names == nullptr || count == nullptr) return -1;
    *names = nullptr;
    *count = 0;
    if (disk == nullptr) return -1;
    const CString path = make_text("%s/%s", kSysBlock, disk);
    if (!path) return -1;
    Directory directory(path.get());
    if (!directory) return -1;
    while (const dirent *entry = directory.next()) {
        if (!contains(entry->d_name, disk)) continue;
        if (!grow(*names, *count)) return -1;
        char *name = duplicate_str(entry->d_name);
        if (name == nullptr) return -1;
        (*names)[*count - 1] = name;
    }
    return directory.failed() ? -1 : 0;
}

void release_partition_names(char **names, uint32_t *count) noexcept {
    if (names == nullptr || count == nullptr) return;
    for (uint32_t i = 0; i < *count; ++i) std::free(names[i]);
    std::free(static_cast<void *>(names));
    *count = 0;
}

int is_partition(const char *name) noexcept {
    if (name == nullptr) return -1;
    const CString path = make_text("%s/%s/%s", kSysClassBlock, name, "partition");
    return path ? file_exists(path.get()) : -1;
}

int get_device_name_from_partition(char *name) noexcept {
    const int partition = is_partition(name);
    return partition == 1 ? truncate_numbers_in_place(name) : partition;
}

char *get_device_name_from_partition_new(const char *name) noexcept {
    switch (is_partition(name)) {
    case 0: return duplicate_str(name);
    case 1: return truncate_numbers_new(name);
    default: return nullptr;
    }
}
