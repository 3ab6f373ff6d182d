#include "unopened.h"

#include <string>

namespace tool {
namespace {

constexpr uint32_t kNotOpened = 1;          // of get_drive_geometry()
constexpr unsigned long long kSector = 512; // the unit of sysfs sizes

// 0 when the attribute is not there.
unsigned long long attribute(const std::string &device, const char *name) {
    unsigned long long value = 0;
    const std::string path = "/sys/class/block/" + device + "/" + name;
    return read_value_from_sys_file(path.c_str(), "%llu", &value) == 0 ? value : 0;
}

} // namespace

void complete_unopened(DriveRecord &drive) {
    if (!drive.name || drive.geometry_result != kNotOpened) return;
    const std::string path = drive.name;
    const std::string device = path.substr(path.find_last_of('/') + 1);
    const unsigned long long block_size = attribute(device, "queue/logical_block_size");
    const unsigned long long sectors = attribute(device, "size");
    if (block_size == 0 || sectors == 0) return; // no block device of the kernel's
    drive.block_size = block_size;
    drive.block_count = sectors * kSector / block_size;
    get_partitions(drive.name, &drive.partitions);
    if (!drive.model) get_drive_model(-1, DEVICE_KIND_OTHER, drive.name, &drive.model);
}

} // namespace tool
