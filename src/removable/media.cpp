#include "foundation/directory.h"
#include "foundation/errors.h"
#include "removable/records.h"
#include "torvane.h"

#include <algorithm>
#include <cctype>

using namespace torvane;

namespace {

constexpr const char *kUsbStorageDriver = "/sys/bus/usb/drivers/usb-storage";

// The driver's own files (bind, module) stand beside its interfaces, such as 1-1:1.0.
bool is_interface(const char *name) noexcept { return std::isdigit(static_cast<unsigned char>(name[0])) != 0; }

bool matches_serial(const MediaRecord &media, const char *serial) noexcept {
    if (has_serial(media, serial)) return true;
    const std::span<ScsiDeviceInfo> devices = devices_of(media);
    return std::any_of(devices.begin(), devices.end(),
                       [serial](const ScsiDeviceInfo &device) { return has_serial(device, serial); });
}

// A copy of the machine's first interface that the test accepts.
template <class Test> MediaRecord *copy_first(Test test) noexcept {
    OwnedMediaList list;
    if (get_usb_mass_storage_devices(list.get()) != 0) return nullptr;
    for (const MediaRecord &media : list.records()) {
        if (test(media)) return copy_media_info(&media);
    }
    return nullptr;
}

bool has_foreign_serial(const MediaRecord &media, const ScsiDeviceInfo &device) noexcept {
    return device.serial != nullptr && media.serial != nullptr && !begins_with(device.serial, media.serial);
}

// A bound device without room is an empty card slot; an optical drive without a disc is a drive all the same.
bool is_empty_slot(const ScsiDeviceInfo &device) noexcept {
    return device.state != STATE_UNBOUND && device.size == 0 && device.type != SCSI_TYPE_OPTICAL;
}

} // namespace

int get_usb_mass_storage_names(MediaList *list) noexcept {
    if (list == nullptr) return fail(kDevice, "failed to allocate media information");
    Directory driver(kUsbStorageDriver);
    if (!driver) return 0; // the driver is not loaded: no such device
    while (const dirent *entry = driver.next()) {
        if (is_interface(entry->d_name) && add_entry_to_info_list(entry->d_name, list) == nullptr) return -1;
    }
    return driver.failed() ? fail(kDevice, "failed to open '%s'", kUsbStorageDriver) : 0;
}

int get_usb_mass_storage_devices(MediaList *list) noexcept {
    int result = get_usb_mass_storage_names(list);
    for (uint32_t i = 0; result == 0 && i < list->count; ++i) result = update_device_information(&list->media[i]);
    if (result != 0) release_media_list(list);
    return result;
}

MediaRecord *get_usb_mass_storage_device(const char *serial) noexcept {
    if (serial == nullptr) return nullptr;
    return copy_first([serial](const MediaRecord &media) { return matches_serial(media, serial); });
}

MediaRecord *get_usb_mass_storage_device_by_id(uint32_t major, uint32_t minor) noexcept {
    return copy_first(
        [major, minor](const MediaRecord &media) { return device_matches_id(&media, major, minor) == 1; });
}

uint32_t get_usb_status(const MediaRecord *media) noexcept {
    if (media == nullptr || media->devices.count == 0) return USB_STATUS_DEVICE;
    if (media->devices.count > 1) return USB_STATUS_ADAPTER;
    const ScsiDeviceInfo &device = media->devices.devices[0];
    return has_foreign_serial(*media, device) || is_empty_slot(device) ? USB_STATUS_ADAPTER : USB_STATUS_DEVICE;
}

int32_t get_media_status(const MediaRecord *media) noexcept {
    uint32_t highest = STATE_UNBOUND;
    if (media == nullptr) return static_cast<int32_t>(highest);
    for (const ScsiDeviceInfo &device : devices_of(*media)) highest = std::max(highest, device.state);
    return static_cast<int32_t>(highest);
}
