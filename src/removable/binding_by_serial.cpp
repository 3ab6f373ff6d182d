#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "removable/records.h"
#include "torvane.h"

using namespace torvane;

namespace {

constexpr uint32_t kWaitSeconds = 2;

// The kernel adds a device's block directory some time after the bind is written. Only the first device is waited
// for, also where the serial number is that of another one or of the whole interface.
int wait_for_block_device(const MediaRecord &media) noexcept {
    const CString path = make_text("%s/%s", kScsiDevices, media.devices.devices[0].address);
    if (!path) return fail(kMount, "failed to create block path");
    if (wait_till_file_is_created(path.get(), "block", kWaitSeconds) == 0) return 0;
    return fail(kMount, "failed to wait for file to exist");
}

int wait_until_usable(MediaRecord &media, uint32_t wait_for_devices) noexcept {
    if (wait_for_block_device(media) != 0) return -1;
    if (update_device_information(&media) != 0) return fail(kMount, "failed to update usb information");
    if (media.devices.count == 0) return fail(kMount, "no scsi devices found");
    if (media.status == USB_STATUS_ADAPTER) return fail(kMount, "device is an adapter");
    if (wait_for_devices != 0) return 0;
    // A node in /dev would be the device manager's; the driver alone is wanted.
    if (wait_till_file_is_deleted(kDev, media.devices.devices[0].name, kWaitSeconds) == 0) return 0;
    return fail(kMount, "failed to wait for file to be deleted");
}

} // namespace

int bind_to_driver(const char *serial) noexcept {
    const Media media(get_usb_mass_storage_device(serial));
    return bind_device_to_driver(media.get(), serial);
}

int unbind_from_driver(const char *serial) noexcept {
    const Media media(get_usb_mass_storage_device(serial));
    return unbind_device_from_driver(media.get(), serial);
}

int remove_device_nodes(const char *serial) noexcept {
    const Media media(get_usb_mass_storage_device(serial));
    return delete_device_nodes_at(media.get(), serial, kDev);
}

int bind_to_driver_with_wait(const char *serial, uint32_t wait_for_devices) noexcept {
    const Media media(get_usb_mass_storage_device(serial));
    if (!media || media->devices.count == 0) {
        return fail(kMount, "unable to read info or no scsi devices found (NULL)");
    }
    if (bind_device_to_driver(media.get(), serial) != 0) return fail(kMount, "failed to bind %s to driver", serial);
    if (wait_until_usable(*media, wait_for_devices) == 0) return 0;
    // Kept: what was bound before the call, and may be in use, is unbound, too. The record may have lost its devices
    // or serial numbers in the waiting; there is then nothing to unbind.
    unbind_device_from_driver(media.get(), serial);
    return -1;
}

int bind_to_driver_with_wait_for_devices(const char *serial) noexcept { return bind_to_driver_with_wait(serial, 1); }

int bind_to_driver_with_wait_for_driver(const char *serial) noexcept { return bind_to_driver_with_wait(serial, 0); }
