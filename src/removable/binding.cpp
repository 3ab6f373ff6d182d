#include "foundation/errors.h"
#include "removable/records.h"
#include "torvane.h"

#include <algorithm>

using namespace torvane;

namespace {

// A driver's control file, and what its failures are called.
struct Control {
    const char *file;
    const char *no_driver;
    const char *no_path;
    uint32_t state; // that a device has afterwards
};

constexpr Control kBind = {"bind", "driver not available", "failed to allocate bind path", STATE_BOUND};
constexpr Control kUnbind = {"unbind", "failed to read driver", "failed to allocate unbind path", STATE_UNBOUND};

int write_address(ScsiDeviceInfo &device, const Control &control) noexcept {
    const char *driver = get_driver_name_from_type(device.type);
    if (driver == nullptr) return fail(kDevice, "%s", control.no_driver);
    const CString path = make_text("%s/%s/%s", kScsiDrivers, driver, control.file);
    if (!path) return fail(kDevice, "%s", control.no_path);
    if (write_to_file(path.get(), device.address) != 0) return -1;
    device.state = control.state;
    return 0;
}

ScsiDeviceInfo *find_by_serial(const MediaRecord &media, const char *serial) noexcept {
    const std::span<ScsiDeviceInfo> devices = devices_of(media);
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [serial](const ScsiDeviceInfo &device) { return has_serial(device, serial); });
    return found == devices.end() ? nullptr : &*found;
}

} // namespace

int unbind_scsi_device_from_driver(ScsiDeviceInfo *device) noexcept {
    if (device == nullptr) return fail(kDevice, "failed to read scsi device (NULL)");
    return device->state == STATE_UNBOUND ? 0 : write_address(*device, kUnbind);
}

int bind_scsi_device_to_driver(ScsiDeviceInfo *device) noexcept {
    if (device == nullptr) return fail(kDevice, "unable to read scsi device (NULL)");
    return device->state == STATE_BOUND || device->state == STATE_NODE ? 0 : write_address(*device, kBind);
}

int unbind_usb_device_from_driver(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, "unable to unbind device from driver (NULL)");
    int result = 0;
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (unbind_scsi_device_from_driver(&device) != 0) result = -1;
    }
    return result;
}

int bind_usb_device_to_driver(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, "unable to bind device to driver (NULL)");
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (bind_scsi_device_to_driver(&device) == 0) continue;
        unbind_usb_device_from_driver(media);
        return -1;
    }
    return 0;
}

int unbind_device_from_driver(MediaRecord *media, const char *serial) noexcept {
    if (media == nullptr || serial == nullptr) return fail(kDevice, "unable to unbind device from driver (NULL)");
    if (has_serial(*media, serial)) return unbind_usb_device_from_driver(media);
    ScsiDeviceInfo *device = find_by_serial(*media, serial);
    if (device == nullptr) return fail(kDevice, "unable to unbind device from driver (no matches)");
    return unbind_scsi_device_from_driver(device);
}

int bind_device_to_driver(MediaRecord *media, const char *serial) noexcept {
    if (media == nullptr || serial == nullptr) return fail(kDevice, "unable to bind device to driver (NULL)");
    if (has_serial(*media, serial)) return bind_usb_device_to_driver(media);
    ScsiDeviceInfo *device = find_by_serial(*media, serial);
    if (device == nullptr) return fail(kDevice, "unable to bind device to driver (no matches)");
    return bind_scsi_device_to_driver(device);
}
