#include "drives/record.h"
#include "foundation/errors.h"

using namespace torvane;

namespace {

// A list of the library's own, released when it ends.
struct OwnList : DriveList {
    OwnList() noexcept : DriveList{} {}
    OwnList(const OwnList &) = delete;
    OwnList &operator=(const OwnList &) = delete;
    ~OwnList() { release_drives(this); }
};

} // namespace

int get_drive_by_serial(DriveList *out, DriveOptions options, const char *serial) noexcept {
    if (out == nullptr || serial == nullptr) return fail(kDriveList, "unable to read drive list or serial (NULL)");
    OwnList drives;
    if (get_drives(&drives, options, nullptr, 0) != 0) return -1;
    for (uint32_t i = 0; i < drives.count; ++i) {
        DriveRecord *drive = drives.drives[i];
        if (drive == nullptr || drive->serial == nullptr || !begins_with(drive->serial, serial)) continue;
        if (move_drive_to_list(out, drive) == 0) continue;
        release_drives(out);
        out->count = 0;
        return -1;
    }
    return 0;
}

int get_drive(DriveList *list, DriveOptions options, const char *name) noexcept {
    return get_drives(list, options, &name, 1);
}

int get_drive_by_id(DriveList *list, DriveOptions options, uint32_t major, uint32_t minor) noexcept {
    const CString name(get_name_from_device_id(major, minor));
    if (!name) return -1;
    const CString path = make_text("/dev/%s", name.get());
    if (!path) return fail(kDriveList, "failed to allocate name '%s'", name.get());
    return get_drive(list, options, path.get());
}
