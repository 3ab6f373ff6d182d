#include "drives/name_set.h"
#include "foundation/text.h"
#include "torvane.h"

using namespace torvane;

namespace {

bool has_device(const char *device, const char *name) noexcept { return device != nullptr && equal(device, name); }

const RaidDrive *find_drive(const RaidDrive *drives, uint32_t count, const char *name) noexcept {
    for (uint32_t i = 0; i < count; ++i) {
        if (has_device(drives[i].device, name)) return &drives[i];
    }
    return nullptr;
}

// Whether the name is one of the controller's; the result then says how many records were added.
bool resolve_in_controller(const char *name, DriveList *list, const RaidController &controller, int &result) noexcept {
    const RaidDrive *found = nullptr;
    for (uint32_t i = 0; found == nullptr && i < controller.group_count; ++i) {
        const RaidDriveGroup &group = controller.groups[i];
        if (has_device(group.device, name)) {
            result = add_group_to_list(list, &group);
            return true;
        }
        found = find_drive(group.drives, group.drive_count, name);
    }
    if (found == nullptr) found = find_drive(controller.drives, controller.drive_count, name);
    if (found == nullptr) return false;
    result = add_raid_drive_to_list(list, found);
    return true;
}

// Adds drives that no record of a list names yet.
class Missing {
  public:
    explicit Missing(DriveList *list) noexcept : list_(list) {}

    // Room for so many more names. Without memory the list itself is walked for each.
    void expect(uint64_t more) noexcept {
        const uint64_t all = more + list_->count;
        look_up_ = all <= UINT32_MAX && known_.reserve(static_cast<uint32_t>(all));
        for (uint32_t i = 0; look_up_ && i < list_->count; ++i) {
            const DriveRecord *drive = list_->drives[i];
            if (drive != nullptr && drive->name != nullptr) (void)known_.add(drive->name);
        }
    }
    bool add(const RaidDrive *drives, uint32_t count) noexcept {
        for (uint32_t i = 0; i < count; ++i) {
            if (is_listed(drives[i].device)) continue;
            if (add_raid_drive_to_list(list_, &drives[i]) == -1) return false;
        }
        return true;
    }

  private:
    bool is_listed(const char *device) noexcept {
        if (device == nullptr) return false;
        return look_up_ ? !known_.add(device) : drive_in_list(list_, device) == 1;
    }

    DriveList *list_;
    NameSet known_;
    bool look_up_ = false;
};

uint64_t count_drives(const RaidController *controllers, uint32_t count) noexcept {
    uint64_t drives = 0;
    for (uint32_t i = 0; i < count; ++i) {
        drives += controllers[i].drive_count;
        for (uint32_t j = 0; j < controllers[i].group_count; ++j) drives += controllers[i].groups[j].drive_count;
    }
    return drives;
}

} // namespace

int resolve_to_raid(const char *name, DriveList *list, const RaidController *controllers, uint32_t count) noexcept {
    if (name == nullptr || list == nullptr || (controllers == nullptr && count > 0)) return -1;
    for (uint32_t i = 0; i < count; ++i) {
        int added = 0;
        if (resolve_in_controller(name, list, controllers[i], added)) return added;
    }
    return 0;
}

int add_group_to_list(DriveList *list, const RaidDriveGroup *group) noexcept {
    if (list == nullptr || group == nullptr) return -1;
    const uint32_t first = list->count;
    if (resize_list(list, group->drive_count) != 0) return -1;
    for (uint32_t i = 0; i < group->drive_count; ++i) {
        if (create_raid_drive(list, &group->drives[i], first + i) != 0) return -1;
    }
    return static_cast<int>(group->drive_count);
}

int add_all_raid_drives(DriveList *list, const RaidController *controllers, uint32_t count) noexcept {
    if (list == nullptr || (controllers == nullptr && count > 0)) return -1;
    Missing missing(list);
    missing.expect(count_drives(controllers, count));
    for (uint32_t i = 0; i < count; ++i) {
        const RaidController &controller = controllers[i];
        for (uint32_t j = 0; j < controller.group_count; ++j) {
            if (!missing.add(controller.groups[j].drives, controller.groups[j].drive_count)) return -1;
        }
        if (!missing.add(controller.drives, controller.drive_count)) return -1;
    }
    return 0;
}
