#include "foundation/errors.h"
#include "removable/records.h"
#include "torvane.h"

using namespace torvane;

namespace {

int check_device(const ScsiDeviceInfo &device) noexcept {
    PartitionNames partitions;
    if (const int result = partitions.read(device.name); result != 0) return result;
    const std::span<char *const> names = partitions.get();
    return check_single_node_for_bad_filesystem(&device, names.data(), static_cast<uint32_t>(names.size()));
}

} // namespace

int check_single_node_for_bad_filesystem(const ScsiDeviceInfo *device, const char *const *partition_names,
                                         uint32_t count) noexcept {
    if (device == nullptr || device->state == STATE_UNBOUND || device->name == nullptr) {
        return fail(kDevice, "failed to read device, status, or name (NULL)");
    }
    const int result = check_bad_filesystem(device->name, partition_names, static_cast<int32_t>(count));
    if (result == -1) return fail(kDevice, "failed to check filesystems for device '%s'", device->name);
    return result;
}

int check_entire_device_for_bad_filesystem(const MediaRecord *media, const char *serial) noexcept {
    if (media == nullptr || serial == nullptr) return fail(kDevice, "failed to read info, or serial (NULL)");
    if (media->devices.count == 0) return fail(kDevice, "no devices to check for bad filesystem");
    for (const ScsiDeviceInfo &device : devices_of(*media)) {
        if (!is_selected(*media, device, serial)) continue;
        if (const int result = check_device(device); result != 0) return result;
    }
    return 0;
}
