#include "removable/records.h"

#include "foundation/errors.h"
#include "torvane.h"

using namespace torvane;

const MediaList empty_media_list{};

namespace torvane {

void clear_strings(ScsiDeviceInfo &device) noexcept {
    for (char **text : {&device.name, &device.address, &device.model, &device.serial}) {
        std::free(*text);
        *text = nullptr;
    }
}

int PartitionNames::read(const char *disk) noexcept {
    if (get_partition_names(&names_, &count_, disk) == 0) return 0;
    return fail(kDevice, "failed to read partition names for device '%s'", disk);
}

} // namespace torvane

namespace {

void clear_media(MediaRecord &media) noexcept {
    for (char **text : {&media.name, &media.serial, &media.model}) {
        std::free(*text);
        *text = nullptr;
    }
    release_scsi_list(&media.devices);
}

int append_copy(ScsiDeviceList &list, const ScsiDeviceInfo &source) noexcept {
    if (add_scsi_device_to_list(&list, source.address) != 0) return -1;
    return copy_scsi_device_info(&devices_of(list).back(), &source);
}

} // namespace

MediaRecord *add_entry_to_info_list(const char *name, MediaList *list) noexcept {
    if (list == nullptr || !grow(list->media, list->count)) {
        return fail_null(kDevice, "failed to allocate media information");
    }
    MediaRecord *media = &list->media[list->count - 1];
    media->name = duplicate_str(name);
    if (media->name == nullptr) return fail_null(kDevice, "failed to allocate usb name '%s'", name);
    return media;
}

int add_scsi_device_to_list(ScsiDeviceList *list, const char *address) noexcept {
    if (list == nullptr || !grow(list->devices, list->count)) return fail(kDevice, "failed to allocate scsi device");
    ScsiDeviceInfo &device = devices_of(*list).back();
    device.address = duplicate_str(address);
    if (device.address == nullptr) return fail(kDevice, "failed to duplicate '%s' for scsi device", address);
    return 0;
}

int copy_scsi_device_info(ScsiDeviceInfo *destination, const ScsiDeviceInfo *source) noexcept {
    if (destination == nullptr || source == nullptr) return fail(kDevice, "failed to copy scsi device info");
    // Kept: the size is not copied, so that a fresh copy tells 0 until get_device_size() has read it.
    const ScsiDeviceInfo copy{duplicate_str(source->name),
                              duplicate_str(source->address),
                              duplicate_str(source->model),
                              duplicate_str(source->serial),
                              source->state,
                              source->type,
                              destination->size};
    clear_strings(*destination);
    *destination = copy;
    return copy.address == nullptr ? fail(kDevice, "failed to copy scsi device info") : 0;
}

MediaRecord *copy_media_info(const MediaRecord *media) noexcept {
    if (media == nullptr) return nullptr;
    Media copy(allocate<MediaRecord>());
    if (!copy) return fail_null(kDevice, "failed to allocate media information");
    // Kept: the status is not copied. What acts on a copy (change_state(), create_and_mount_in_temp_dir()) thus
    // takes an adapter for a device.
    copy->name = duplicate_str(media->name);
    copy->serial = duplicate_str(media->serial);
    copy->model = duplicate_str(media->model);
    copy->has_enclosure = media->has_enclosure;
    for (const ScsiDeviceInfo &device : devices_of(*media)) {
        if (append_copy(copy->devices, device) != 0) return nullptr;
    }
    if (copy->name == nullptr || copy->serial == nullptr || copy->model == nullptr) {
        return fail_null(kDevice, "failed to copy media information");
    }
    return copy.release();
}

int is_valid_state(uint32_t state) noexcept { return state <= STATE_NODE ? 1 : 0; }

void release_scsi_list(ScsiDeviceList *list) noexcept {
    if (list == nullptr) return;
    for (ScsiDeviceInfo &device : devices_of(*list)) clear_strings(device);
    std::free(list->devices);
    *list = ScsiDeviceList{};
}

void release_media(MediaRecord *media) noexcept {
    if (media == nullptr) return;
    clear_media(*media);
    std::free(media);
}

void release_media_list(MediaList *list) noexcept {
    if (list == nullptr) return;
    for (MediaRecord &media : std::span(list->media, list->count)) clear_media(media);
    std::free(list->media);
    *list = MediaList{};
}
