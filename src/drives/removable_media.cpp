#include "removable/records.h"
#include "torvane.h"

using namespace torvane;

namespace {

// 1 for the first of the devices that completes a listed drive, 0 when none does, -1 on failure.
int match(const MediaRecord &media, DriveList *list) noexcept {
    for (const ScsiDeviceInfo &device : devices_of(media)) {
        if (const int result = matches_drive(&device, list, media.has_enclosure); result != 0) return result;
    }
    return 0;
}

// An adapter is a drive of its own also when one of its cards is listed as a disk.
bool has_own_record(const MediaRecord &media, bool matched) noexcept {
    return !matched || media.status == USB_STATUS_ADAPTER;
}

} // namespace

int add_removable_media(DriveList *list, uint32_t add_unmatched) noexcept {
    if (list == nullptr) return -1;
    OwnedMediaList usb;
    if (get_usb_mass_storage_devices(usb.get()) != 0) return -1;
    for (const MediaRecord &media : usb.records()) {
        const int matched = match(media, list);
        if (matched < 0) return -1;
        if (add_unmatched != 1 || !has_own_record(media, matched == 1)) continue;
        if (add_removable_drive_to_list(&media, list) != 0) return -1;
    }
    return 0;
}
