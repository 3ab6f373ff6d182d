#include "places.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <span>
#include <string_view>

namespace torvane::world {
// A kind of its own is what no major number tells.
static DeviceKind known(DeviceKind kind) { return kind == DEVICE_KIND_OTHER ? 0 : kind; }

// A text that the interface leaves out without a word when it cannot be read.
static std::string may_lack(const char *text) { return "~" + field(text); }

// A number that follows from what could be read of a USB device.
static std::string follows(uint32_t number) { return "^" + field(number); }

static std::string described(const RaidDrive &drive) {
    return line(drive.number, drive.device, drive.serial, drive.model, drive.location, drive.size);
}

template <class Records> static std::string all(const Records &records);

std::string described(const InfoMapEntry &entry) { return line(entry.device, entry.info); }

std::string described(const PciInfo &adapter) {
    return line(adapter.type, adapter.number, adapter.host, adapter.target, adapter.lun, adapter.slot, adapter.device);
}

static std::string described(const ScsiDeviceInfo &device) {
    return line(device.name, device.address, may_lack(device.model), may_lack(device.serial), follows(device.state),
                device.type, device.size);
}

static std::string described(const RaidDriveGroup &group) {
    return line(group.logical_number, group.name, group.device, group.size) +
           all(std::span(group.drives, group.drive_count));
}

template <class Records> static std::string all(const Records &records) {
    std::string text;
    for (const auto &record : records) text += described(record);
    return text;
}

std::string taken(char *text) {
    std::string copy = field(text);
    std::free(text);
    return copy;
}

std::string described(const PartitionList &list) {
    std::string text;
    for (const PartitionRecord &each : std::span(list.entries, list.count))
        text += line(each.name, each.number, each.size);
    return text;
}

std::string described(const DriveRecord &drive) {
    const bool is_usb = drive.drive_type == DRIVE_TYPE_REMOVABLE || drive.drive_type == DRIVE_TYPE_ADAPTER;
    const std::string results = "!" + std::to_string(drive.specification_result) + "," +
                                std::to_string(drive.geometry_result) + "," + std::to_string(drive.defects_result) +
                                "," + std::to_string(drive.state_result);
    return line(results.c_str(), drive.name, is_usb ? follows(drive.drive_type) : field(drive.drive_type),
                is_usb ? follows(static_cast<uint32_t>(drive.status)) : field(drive.status),
                may_lack(drive.generic_name), drive.model, drive.serial, drive.major, drive.minor,
                known(drive.device_type), drive.block_count, drive.block_size, drive.device_start, drive.rotation_speed,
                drive.permission, drive.manufacturer_defects, drive.manufacturer_defect_bytes, drive.grown_defects,
                drive.grown_defect_bytes, drive.location, may_lack(drive.raid_device)) +
           described(drive.partitions);
}

std::string described(const DriveList &list) {
    std::string text;
    for (const DriveRecord *drive : std::span(list.drives, list.drives == nullptr ? 0 : list.count)) {
        if (drive != nullptr) text += described(*drive);
    }
    return text;
}

std::string described(const MediaRecord &media) {
    return line(media.name, may_lack(media.serial), may_lack(media.model), follows(media.status), media.has_enclosure) +
           all(std::span(media.devices.devices, media.devices.count));
}

std::string described(const RaidController &controller) {
    return line(controller.type, controller.number) + all(std::span(controller.groups, controller.group_count)) +
           line("single", controller.drive_count) + all(std::span(controller.drives, controller.drive_count));
}

std::string Places::described() const {
    using torvane::world::described;
    // A directory of mounts has a name of its own each time.
    const bool is_temporary = text != nullptr && std::string_view(text).starts_with("/tmp/torvane.");
    std::string lines =
        line(is_temporary ? "/tmp/torvane." : text) + line(number, numbers[0], numbers[1], buffer.data()) +
        line(specification.device_name, specification.sg_name, specification.model, specification.serial,
             specification.major, specification.minor, known(specification.type)) +
        line(geometry.block_count, geometry.block_size, geometry.device_start, geometry.rotation_speed,
             geometry.partition_count, partition_sizes[0]) +
        line(defects.manufacturer_defects, defects.manufacturer_defect_bytes, defects.grown_defects,
             defects.grown_defect_bytes) +
        line(state.permission, state.firmware_size) + described(drive);
    for (const char *name : std::span(names, name_count)) lines += line(name);
    for (const char *string : std::span(strings.strings, strings.count)) lines += line(string);
    for (FILE *stream : streams) lines += line(stream == nullptr ? nullptr : "open");
    if (new_drive != nullptr) lines += described(*new_drive);
    lines += described(list) + described(partitions) + all(std::span(raids, raid_count));
    lines += all(std::span(&entry, 1)) + all(std::span(map, map_count)) + all(std::span(adapters, adapter_count));
    if (monitor != nullptr) {
        for (const Watch &watch : std::span(monitor->watches, monitor->watch_count)) {
            if (watch.path != nullptr) lines += line(watch.path);
        }
    }
    if (media != nullptr) lines += described(*media);
    return lines + all(std::span(media_list.media, media_list.count));
}

void Places::release() {
    std::free(text);
    for (char *string : {drive.name, drive.generic_name, drive.model, drive.serial, drive.location, drive.raid_device})
        std::free(string);
    for (const PartitionList &each : {drive.partitions, partitions}) {
        for (const PartitionRecord &entry_of : std::span(each.entries, each.count)) std::free(entry_of.name);
        std::free(each.entries);
    }
    std::free(state.firmware_image);
    std::free(entry.device);
    std::free(entry.info);
    release_drive_names(names, name_count);
    release_string_list(&strings);
    for (FILE *stream : streams) {
        if (stream != nullptr) fclose(stream);
    }
    if (descriptor > 0) close(descriptor);
    if (child > 0) waitpid(child, nullptr, 0);
    release_drive(new_drive);
    release_drives(&list);
    destroy_raids(raids, static_cast<int>(raid_count));
    release_info_map(map, static_cast<int>(map_count));
    release_pci_info(adapters, static_cast<int>(adapter_count));
    release_monitor(monitor);
    release_media(media);
    release_media_list(&media_list);
    *this = {};
}

} // namespace torvane::world
