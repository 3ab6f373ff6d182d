#include "drives/record.h"

#include "drives/defects.h"
#include "drives/geometry.h"
#include "drives/state.h"
#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "identity/specification.h"

#include <fcntl.h>

namespace torvane {
namespace {

void set_unknown(DriveRecord &drive) noexcept {
    drive.major = drive.minor = drive.device_type = -1;
    drive.rotation_speed = drive.permission = drive.status = -1;
    drive.manufacturer_defects = drive.grown_defects = -1;
}

// The readers share one descriptor: when the last one of a disk is closed the kernel drops what it has read of
// the medium, and has to read it again. A reader's failure is its record's, never the caller's.
void read_drive(DriveRecord &drive, DriveOptions options, const PartitionTable *table, KnownDrive known) noexcept {
    if ((options & kReaders) == 0) return;
    const char *path = drive.name;
    const Descriptor own(known.device >= 0 ? -1 : open(path, O_RDONLY | O_NONBLOCK));
    const int fd = known.device >= 0 ? known.device : own.get();
    const auto wants = [options](DriveOptions option) noexcept { return (options & option) != 0; };
    const auto code = [](int result) noexcept { return static_cast<uint32_t>(result); };
    if (wants(DRIVE_OPTION_IDENTITY)) drive.specification_result = code(read_drive_specification(fd, path, drive));
    if (wants(DRIVE_OPTION_GEOMETRY))
        drive.geometry_result = code(read_drive_geometry(fd, path, drive, {table, known.starts_at_zero}));
    if (wants(DRIVE_OPTION_DEFECTS)) drive.defects_result = code(read_drive_defects(fd, path, drive));
    if (wants(DRIVE_OPTION_STATE)) drive.state_result = code(read_drive_state(fd, path, drive));
}

} // namespace

int create_drive_with(DriveList *list, const char *name, DriveOptions options, const PartitionTable *table,
                      KnownDrive known) noexcept {
    if (list == nullptr) return -1;
    Drive drive(init_drive(name));
    if (!drive) return -1;
    read_drive(*drive, options, table, known);
    if (add_drive_to_list(list, drive.get()) == -1) return -1;
    (void)drive.release();
    return 0;
}

} // namespace torvane

using namespace torvane;

DriveRecord *init_drive(const char *name) noexcept {
    if (name == nullptr) return fail_null(kDriveList, "failed to read drive name (NULL)");
    Drive drive(allocate<DriveRecord>());
    if (!drive) return fail_null(kDriveList, "failed to allocate drive");
    set_unknown(*drive);
    drive->name = duplicate_str(name);
    if (drive->name == nullptr) return fail_null(kDriveList, "failed to allocate name '%s'", name);
    return drive.release();
}

int create_drive(DriveList *list, const char *name, DriveOptions options) noexcept {
    return create_drive_with(list, name, options, nullptr, {});
}

int create_removable_drive(DriveRecord **drive, const MediaRecord *device) noexcept {
    if (drive == nullptr || device == nullptr) return -1;
    *drive = nullptr;
    Drive made(allocate<DriveRecord>());
    if (!made) return fail(kDriveList, "failed to allocate removable drive");
    set_unknown(*made);
    made->status = STATE_UNBOUND;
    made->block_size = kSectorSize;
    made->model = duplicate_str(device->model);
    made->serial = duplicate_str(device->serial);
    if (made->model == nullptr || made->serial == nullptr) {
        return fail(kDriveList, "failed to copy drive model and serial number");
    }
    set_removable_drive_attributes(made.get(), device);
    *drive = made.release();
    return 0;
}

int create_raid_drive(DriveList *list, const RaidDrive *drive, uint32_t index) noexcept {
    if (list == nullptr || list->drives == nullptr || index >= list->count) {
        return fail(kDriveList, "invalid drive index '%u'", index);
    }
    // One text for all that can go wrong from here on, a member without a location included: the records are
    // made whole or not at all.
    constexpr const char *kFailure = "failed to allocate raid drive";
    Drive made(drive == nullptr ? nullptr : allocate<DriveRecord>());
    if (!made) return fail(kDriveList, "%s", kFailure);
    set_unknown(*made);
    made->drive_type = DRIVE_TYPE_RAID_MEMBER;
    made->name = duplicate_str(drive->device);
    made->model = duplicate_str(drive->model);
    made->serial = duplicate_str(drive->serial);
    made->location = duplicate_str(drive->location);
    made->block_size = kSectorSize;
    made->block_count = drive->size / kSectorSize;
    const char *group_device = drive->group != nullptr ? drive->group->device : nullptr;
    made->raid_device = duplicate_str(group_device);
    // The group's device is no part of what makes a record whole.
    const bool whole =
        made->name != nullptr && made->model != nullptr && made->serial != nullptr && made->location != nullptr;
    if (!whole) return fail(kDriveList, "%s", kFailure);
    release_drive(list->drives[index]);
    list->drives[index] = made.release();
    return 0;
}

DriveRecord *move_drive(DriveRecord *source) noexcept {
    if (source == nullptr) return fail_null(kDriveList, "failed to move drive (NULL)");
    DriveRecord *moved = allocate<DriveRecord>();
    if (moved == nullptr) return fail_null(kDriveList, "failed to allocate drive");
    *moved = *source;
    source->name = source->generic_name = source->model = source->serial = nullptr;
    source->location = source->raid_device = nullptr;
    source->partitions = PartitionList{};
    return moved;
}

int release_drive(DriveRecord *drive) noexcept {
    if (drive == nullptr) return 0;
    for (char *text :
         {drive->name, drive->generic_name, drive->model, drive->serial, drive->location, drive->raid_device}) {
        std::free(text);
    }
    release_partitions(drive->partitions);
    std::free(drive);
    return 0;
}
