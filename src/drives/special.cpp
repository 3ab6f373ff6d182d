#include "foundation/text.h"
#include "torvane.h"

using namespace torvane;

int resolve_to_special(DriveRecord *drive, const char *const *names, uint32_t count) noexcept {
    if (drive == nullptr) return 0;
    if (resolve_to_sw_raid(drive->name, names, count) == 1) {
        drive->drive_type = DRIVE_TYPE_SOFTWARE_RAID;
    } else if (is_iscsi(drive->model) == 1) {
        drive->drive_type = DRIVE_TYPE_ISCSI;
    }
    return 0;
}

int resolve_to_sw_raid(const char *name, const char *const *names, uint32_t count) noexcept {
    if (name == nullptr || names == nullptr) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (names[i] != nullptr && equal(names[i], name)) return 1;
    }
    return 0;
}

int is_iscsi(const char *model) noexcept { return model != nullptr && begins_with(model, "IET VIRTUAL-DISK") ? 1 : 0; }
