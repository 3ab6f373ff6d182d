// What sysfs and /dev say about one SCSI device.
#include "foundation/directory.h"
#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "removable/records.h"
#include "torvane.h"

using namespace torvane;

namespace {

bool has_id(const char *name, uint32_t major, uint32_t minor) noexcept {
    return has_same_device_id(name, major, minor) == 1;
}

bool device_has_id(const ScsiDeviceInfo &device, uint32_t major, uint32_t minor) noexcept {
    if (device.state != STATE_NODE || device.name == nullptr) return false;
    if (has_id(device.name, major, minor)) return true;
    PartitionNames partitions;
    if (partitions.read(device.name) != 0) return false;
    for (const char *partition : partitions.get()) {
        if (has_id(partition, major, minor)) return true;
    }
    return false;
}

// -1 only for what makes the whole record unreadable.
int read_status(ScsiDeviceInfo &device, uint32_t skip_serial) noexcept {
    device.state = STATE_UNBOUND;
    const int bound = is_bound_to_driver(&device);
    if (bound != 1) return bound;
    device.state = STATE_BOUND;
    const int node = has_device_node(&device);
    if (node < 0) return -1;
    if (node == 1) device.state = STATE_NODE;
    if (get_device_size(&device) != 0) return -1;
    if (get_drive_information(&device, skip_serial) != 0) device.state = STATE_BOUND;
    return 0;
}

} // namespace

int is_bound_to_driver(const ScsiDeviceInfo *device) noexcept {
    const char *driver = device == nullptr ? nullptr : get_driver_name_from_type(device->type);
    if (driver == nullptr || device->address == nullptr) {
        return fail(kDevice, "failed to find if scsi device is bound to a driver: NULL");
    }
    const CString path = make_text("%s/%s/%s", kScsiDrivers, driver, device->address);
    return path ? file_exists(path.get()) : fail(kDevice, "failed to allocate driver path");
}

int get_device_name(ScsiDeviceInfo *device) noexcept {
    if (device == nullptr) return fail(kDevice, "unable to read device name (NULL)");
    if (device->address == nullptr) return 0;
    const CString path = make_text("%s/%s/block", kScsiDevices, device->address);
    if (!path) return fail(kDevice, "failed to allocate device path");
    Directory directory(path.get());
    if (!directory) {
        fail(kDevice, "failed to open '%s'", path.get());
        return 0;
    }
    int found = 0;
    while (const dirent *entry = directory.next()) {
        if (is_dot_entry(entry->d_name)) continue;
        std::free(device->name);
        device->name = duplicate_str(entry->d_name);
        if (device->name == nullptr) return fail(kDevice, "failed to duplicate '%s' for scsi name", entry->d_name);
        found = 1;
    }
    return directory.failed() ? fail(kDevice, "failed to open '%s'", path.get()) : found;
}

int has_device_node(ScsiDeviceInfo *device) noexcept {
    const int named = get_device_name(device);
    if (named != 1) return named;
    if (device_exists(device->name) == 1) return 1;
    PartitionNames partitions;
    if (partitions.read(device->name) != 0) return -1;
    for (const char *partition : partitions.get()) {
        if (device_exists(partition) == 1) return 1;
    }
    return 0;
}

int get_device_size(ScsiDeviceInfo *device) noexcept {
    if (device == nullptr) return fail(kDevice, "unable to read device name (NULL)");
    device->size = 0;
    if (device->name == nullptr) return 0;
    const CString path = make_text("%s/%s/size", kSysBlock, device->name);
    if (!path) return fail(kDevice, "failed to create size path");
    char *line = nullptr;
    if (allocate_value_from_sys_file(path.get(), kWholeLine, &line) != 0) {
        return fail(kDevice, "failed to read from %s", path.get());
    }
    const CString text(line);
    device->size = std::strtoull(line, nullptr, 10);
    return 0;
}

int get_device_status(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, "unable to read info (NULL)");
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (read_status(device, media->has_enclosure) != 0) return -1;
    }
    media->status = get_usb_status(media);
    return 0;
}

int device_matches_id(const MediaRecord *media, uint32_t major, uint32_t minor) noexcept {
    if (media == nullptr) return 0;
    for (const ScsiDeviceInfo &device : devices_of(*media)) {
        if (device_has_id(device, major, minor)) return 1;
    }
    return 0;
}
