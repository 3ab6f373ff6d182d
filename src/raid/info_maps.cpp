#include "foundation/directory.h"
#include "foundation/proc_partitions.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "raid/tool.h"
#include "torvane.h"

using namespace torvane;

namespace {

using ReadInfo = int (*)(int fd, const char *path, char **info);

int read_info_from_drive(const char *name, InfoMapEntry *entry, ReadInfo read) noexcept {
    if (name == nullptr || entry == nullptr) return -1;
    *entry = {};
    CString device = make_text("%s/%s", kDev, name);
    if (!device) return -1;
    const Descriptor fd(validate_fd(-1, device.get()));
    if (!fd) return -1;
    char *info = nullptr;
    if (read(fd.get(), device.get(), &info) != 0) return -1;
    *entry = {device.release(), info};
    return 0;
}

int read_model(int fd, const char *path, char **model) noexcept {
    return get_drive_model(fd, DEVICE_KIND_OTHER, path, model);
}

int discard(InfoMapEntry **map, uint32_t *count) noexcept {
    release_info_map(*map, static_cast<int>(*count));
    *map = nullptr;
    *count = 0;
    return -1;
}

// Appends what the drive says; a drive that says nothing leaves no entry. False without memory for one.
template <class Read> bool add_entry(const char *name, InfoMapEntry **map, uint32_t *count, Read read) noexcept {
    if (!grow(*map, *count)) return false;
    if (read(name, *map + *count - 1) != 0) --*count;
    return true;
}

int add_disk(const char *line, InfoMapEntry **map, uint32_t *count) noexcept {
    char *word = nullptr;
    const int fields = std::sscanf(line, "%*d %*d %*u %ms", &word);
    const CString name(word);
    if (fields != 1) return -1;
    if (is_partition(word) != 0) return 0;
    return add_entry(word, map, count, read_model_from_drive) ? 0 : -1;
}

} // namespace

int read_serial_from_drive(const char *name, InfoMapEntry *entry) noexcept {
    return read_info_from_drive(name, entry, get_drive_serial_number);
}

int read_model_from_drive(const char *name, InfoMapEntry *entry) noexcept {
    return read_info_from_drive(name, entry, read_model);
}

int relate_model_to_drives(InfoMapEntry **map, uint32_t *count) noexcept {
    if (map == nullptr || count == nullptr) return -1;
    *count = 0;
    const PartitionsFile partitions;
    if (!partitions) return -1;
    int number = 0;
    int status = 0;
    const bool complete = for_each_line(partitions.get(), [&](const char *line, int) noexcept {
        if (++number > kHeaderLines) status = add_disk(line, map, count);
        return status == 0;
    });
    return complete && status == 0 ? 0 : discard(map, count);
}

int relate_serial_to_drives(InfoMapEntry **map, uint32_t *count) noexcept {
    if (map == nullptr || count == nullptr) return -1;
    *count = 0;
    Directory directory(kSysGeneric);
    if (!directory) return 0;
    while (const dirent *entry = directory.next()) {
        if (!contains(entry->d_name, "sg")) continue;
        if (!add_entry(entry->d_name, map, count, read_serial_from_drive)) return discard(map, count);
    }
    return directory.failed() ? discard(map, count) : 0;
}

void release_info_map(InfoMapEntry *map, int count) noexcept {
    if (map == nullptr) return;
    for (int i = 0; i < count; ++i) {
        std::free(map[i].device);
        std::free(map[i].info);
    }
    std::free(map);
}
