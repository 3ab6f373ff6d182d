#include "raid/model.h"

#include "foundation/text.h"

#include <span>

namespace torvane {
namespace {

void free_string(char *&string) noexcept { replace(string, CString()); }

void destroy_drives(RaidDrive *&drives, uint32_t &count) noexcept {
    for (RaidDrive &drive : std::span(drives, count)) destroy_drive(&drive);
    std::free(drives);
    drives = nullptr;
    count = 0;
}

} // namespace

RaidController *add_controllers(RaidController **list, uint32_t *count, uint32_t extra, uint32_t type,
                                uint32_t first_number) noexcept {
    const RaidController *before = *list;
    const uint32_t first = *count;
    if (!grow(*list, *count, extra)) return nullptr;
    for (uint32_t i = 0; i < extra; ++i) {
        (*list)[first + i].type = type;
        (*list)[first + i].number = first_number + i;
    }
    if (*list != before) relink(*list, first);
    return *list + first;
}

RaidDriveGroup *add_group(RaidController &controller, int32_t logical_number) noexcept {
    const RaidDriveGroup *before = controller.groups;
    if (!grow(controller.groups, controller.group_count)) return nullptr;
    RaidDriveGroup &group = controller.groups[controller.group_count - 1];
    group.controller = &controller;
    group.controller_number = static_cast<int32_t>(controller.number);
    group.logical_number = logical_number;
    if (controller.groups != before) relink(controller);
    return &group;
}

RaidDrive *add_raid_drive(RaidDrive *&drives, uint32_t &count, RaidController &owner) noexcept {
    if (!grow(drives, count)) return nullptr;
    RaidDrive &drive = drives[count - 1];
    drive.controller = &owner;
    return &drive;
}

void relink(RaidController &controller) noexcept {
    for (RaidDriveGroup &group : std::span(controller.groups, controller.group_count)) {
        group.controller = &controller;
        for (RaidDrive &drive : std::span(group.drives, group.drive_count)) {
            drive.controller = &controller;
            if (drive.group != nullptr) drive.group = &group;
        }
    }
    for (RaidDrive &drive : std::span(controller.drives, controller.drive_count)) drive.controller = &controller;
}

void relink(RaidController *list, uint32_t count) noexcept {
    for (RaidController &controller : std::span(list, count)) relink(controller);
}

CString format_raid_location(uint32_t first, uint32_t second) noexcept {
    return make_text("(%d, %d)", static_cast<int32_t>(first), static_cast<int32_t>(second));
}

} // namespace torvane

using namespace torvane;

void destroy_drive(RaidDrive *drive) noexcept {
    if (drive == nullptr) return;
    free_string(drive->device);
    free_string(drive->serial);
    free_string(drive->model);
    free_string(drive->location);
}

void destroy_drive_group(RaidDriveGroup *group) noexcept {
    if (group == nullptr) return;
    destroy_drives(group->drives, group->drive_count);
    free_string(group->name);
    free_string(group->device);
}

void destroy_controller(RaidController *controller) noexcept {
    if (controller == nullptr) return;
    for (RaidDriveGroup &group : std::span(controller->groups, controller->group_count)) destroy_drive_group(&group);
    std::free(controller->groups);
    controller->groups = nullptr;
    controller->group_count = 0;
    destroy_drives(controller->drives, controller->drive_count);
}

void destroy_raids(RaidController *list, int count) noexcept {
    if (list == nullptr) return;
    for (int i = 0; i < count; ++i) destroy_controller(&list[i]);
    std::free(list);
}
