#include "foundation/errors.h"
#include "foundation/owners.h"
#include "torvane.h"

#include <fcntl.h>
#include <linux/cdrom.h>
#include <sys/ioctl.h>

using namespace torvane;

namespace {

constexpr int kAttempts = 3;

struct OpticalStatus {
    int drive = CDS_DRIVE_NOT_READY;
    int disc = CDS_NO_INFO;
};

// A drive that is locked by someone else keeps the status of the attempt before. Of a changer the slot that is in
// use counts.
void read_status(const char *path, OpticalStatus &status) noexcept {
    const Descriptor drive(open(path, O_RDWR | O_EXCL | O_NONBLOCK));
    if (drive.get() == 0 || lock_optical_drive(drive.get()) != 0) return;
    status.drive = ioctl(drive.get(), CDROM_DRIVE_STATUS, CDSL_CURRENT);
    status.disc = ioctl(drive.get(), CDROM_DISC_STATUS, CDSL_CURRENT);
}

} // namespace

int lock_optical_drive(int fd) noexcept {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &lock) == -1 ? -1 : 0;
}

int get_optical_drive_status(const char *path, uint32_t *tray_open, uint32_t *has_disc) noexcept {
    if (tray_open != nullptr) *tray_open = 0;
    if (has_disc != nullptr) *has_disc = 0;
    if (path == nullptr) return fail(kDevice, "failed to read drive name (NULL)");
    if (tray_open == nullptr || has_disc == nullptr) return fail(kDevice, "cd drive not ready");
    OpticalStatus status;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        read_status(path, status);
        if (status.drive >= 0 && status.drive != CDS_DRIVE_NOT_READY) break;
    }
    if (status.drive == CDS_DRIVE_NOT_READY) return fail(kDevice, "cd drive not ready");
    *tray_open = status.drive == CDS_TRAY_OPEN ? 1 : 0;
    *has_disc = status.disc != CDS_NO_DISC ? 1 : 0;
    return 0;
}
