#include "identity/device_kind.h"

#include "foundation/errors.h"
#include "identity/results.h"

#include <linux/major.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace torvane {
namespace {

// Majors of Linux devices.txt. Kept: the later SCSI disk majors (128 and up) are "other", so that drives of these
// numbers (from the 129th disk on) are read through sysfs only.
DeviceKind kind_of(unsigned number) noexcept {
    switch (number) {
    case IDE0_MAJOR:
    case IDE1_MAJOR:
    case IDE2_MAJOR:
    case IDE3_MAJOR:
    case IDE4_MAJOR:
    case IDE5_MAJOR: return DEVICE_KIND_IDE;
    case SCSI_DISK0_MAJOR:
    case SCSI_CDROM_MAJOR:
    case SCSI_DISK1_MAJOR:
    case SCSI_DISK2_MAJOR:
    case SCSI_DISK3_MAJOR:
    case SCSI_DISK4_MAJOR:
    case SCSI_DISK5_MAJOR:
    case SCSI_DISK6_MAJOR:
    case SCSI_DISK7_MAJOR: return DEVICE_KIND_SCSI;
    case SCSI_GENERIC_MAJOR: return DEVICE_KIND_SCSI_GENERIC;
    default: return DEVICE_KIND_OTHER;
    }
}

} // namespace

DeviceIdentity identity_of(dev_t device) noexcept {
    return {static_cast<int32_t>(major(device)), static_cast<int32_t>(minor(device)), kind_of(major(device))};
}

int stat_device_kind(int fd, DeviceIdentity &identity) noexcept {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        fail(kIdentity, "failed to fstat");
        return kNoDeviceNumbers;
    }
    identity = identity_of(status.st_rdev);
    return 0;
}

} // namespace torvane
