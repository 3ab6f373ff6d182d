#include "drives/record.h"
#include "foundation/errors.h"
#include "foundation/sysfs.h"

using namespace torvane;

namespace {

// Prefix comparison, so a record of the disk's partition counts as the disk.
DriveRecord *find_by_prefix(const DriveList &list, const char *path) noexcept {
    for (uint32_t i = 0; list.drives != nullptr && i < list.count; ++i) {
        DriveRecord *drive = list.drives[i];
        if (drive != nullptr && drive->name != nullptr && begins_with(drive->name, path)) return drive;
    }
    return nullptr;
}

void complete(DriveRecord &drive, const ScsiDeviceInfo &device, bool replace_serial) noexcept {
    drive.status = static_cast<int32_t>(device.state);
    drive.drive_type = convert_to_drive_type(static_cast<int>(device.type));
    if (drive.model == nullptr) drive.model = duplicate_str(device.model);
    // Kept: a replaced serial number is dropped, not freed. Whoever holds the old pointer owns it from here on.
    if (replace_serial || drive.serial == nullptr) drive.serial = duplicate_str(device.serial);
    if (drive.block_count == 0 && device.size != 0) {
        drive.block_count = device.size;
        drive.block_size = kSectorSize;
    }
}

} // namespace

int matches_drive(const ScsiDeviceInfo *device, DriveList *list, uint32_t replace_serial) noexcept {
    if (device == nullptr || list == nullptr) return -1;
    if (device->name == nullptr) return 0;
    const CString path = make_text("/dev/%s", device->name);
    if (!path) return fail(kDriveList, "failed to allocate drive name");
    DriveRecord *drive = find_by_prefix(*list, path.get());
    if (drive == nullptr) return 0;
    complete(*drive, *device, replace_serial == 1);
    return 1;
}
