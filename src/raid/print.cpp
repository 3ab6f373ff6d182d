#include "torvane.h"

#include <cstdio>

namespace {

const char *shown(const char *text) noexcept { return text == nullptr ? "(null)" : text; }
unsigned long long bytes(uint64_t size) noexcept { return size; }

} // namespace

int print_drive(const RaidDrive *drive) noexcept {
    if (drive == nullptr) return -1;
    std::printf("    Drive %s (number %u): serial(%s), model(%s), location(%s), size(%llu)\n", shown(drive->device),
                drive->number, shown(drive->serial), shown(drive->model), shown(drive->location), bytes(drive->size));
    return 0;
}

int print_group(const RaidDriveGroup *group) noexcept {
    if (group == nullptr) return -1;
    std::printf("  Drive Group %s (device %s): controller(%d), logical(%d), size(%llu), drives(%u)\n",
                shown(group->name), shown(group->device), group->controller_number, group->logical_number,
                bytes(group->size), group->drive_count);
    for (uint32_t i = 0; i < group->drive_count; ++i) print_drive(&group->drives[i]);
    std::printf("  End of Drive Group %s\n", shown(group->name));
    return 0;
}

int print_controller(const RaidController *controller) noexcept {
    if (controller == nullptr) return -1;
    const auto number = static_cast<int>(controller->number);
    std::printf("Raid Controller %d (type %d): drives(%u), groups(%u)\n", number, static_cast<int>(controller->type),
                controller->drive_count, controller->group_count);
    for (uint32_t i = 0; i < controller->group_count; ++i) print_group(&controller->groups[i]);
    std::printf("  Drives without a group: drives(%d)\n", static_cast<int>(controller->drive_count));
    for (uint32_t i = 0; i < controller->drive_count; ++i) print_drive(&controller->drives[i]);
    std::printf("  End of drives without a group\n");
    std::printf("End of Raid Controller %d\n", number);
    return 0;
}

int print_name_map(const InfoMapEntry *map, int count) noexcept {
    if (map == nullptr && count > 0) return -1;
    int printed = std::printf("map (%d)\n", count);
    for (int i = 0; i < count; ++i) {
        printed = std::printf("map[%d]: (%s, %s)\n", i, shown(map[i].device), shown(map[i].info));
    }
    return printed;
}
