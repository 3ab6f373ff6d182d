#include "drives/record.h"
#include "foundation/errors.h"

using namespace torvane;

int release_drives(DriveList *list) noexcept {
    if (list == nullptr || list->drives == nullptr) return 0;
    for (uint32_t i = 0; i < list->count; ++i) release_drive(list->drives[i]);
    std::free(static_cast<void *>(list->drives));
    // Kept: the count stays and tells how many drives there were. The list is empty again once it is set to 0.
    list->drives = nullptr;
    return 0;
}

int resize_list(DriveList *list, uint32_t extra) noexcept {
    if (list == nullptr || !grow(list->drives, list->count, extra)) {
        return fail(kDriveList, "failed to resize drive array");
    }
    return 0;
}

int add_drive_to_list(DriveList *list, DriveRecord *drive) noexcept {
    if (drive == nullptr || resize_list(list, 1) != 0) return -1;
    list->drives[list->count - 1] = drive;
    return 1;
}

int move_drive_to_list(DriveList *list, DriveRecord *source) noexcept {
    if (list == nullptr) return -1;
    Drive moved(move_drive(source));
    if (!moved || add_drive_to_list(list, moved.get()) == -1) return -1;
    (void)moved.release();
    return 0;
}

int add_removable_drive_to_list(const MediaRecord *device, DriveList *list) noexcept {
    if (device == nullptr || resize_list(list, 1) != 0) return -1;
    return create_removable_drive(&list->drives[list->count - 1], device);
}

int add_raid_drive_to_list(DriveList *list, const RaidDrive *drive) noexcept {
    if (drive == nullptr || resize_list(list, 1) != 0) return -1;
    return create_raid_drive(list, drive, list->count - 1) == 0 ? 1 : -1;
}

int drive_in_list(const DriveList *list, const char *name) noexcept {
    if (list == nullptr || list->drives == nullptr || name == nullptr) return 0;
    for (uint32_t i = 0; i < list->count; ++i) {
        const DriveRecord *drive = list->drives[i];
        if (drive != nullptr && drive->name != nullptr && equal(drive->name, name)) return 1;
    }
    return 0;
}
