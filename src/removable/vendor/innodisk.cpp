// Innodisk drives: the permission level lies in the SMART data, the firmware image behind a vendor command.
// Both go out as taskfile commands through HDIO_DRIVE_CMD (linux/hdreg.h).
#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "torvane.h"

#include <linux/hdreg.h>
#include <sys/ioctl.h>

using namespace torvane;

namespace {

constexpr unsigned char kSmart = 0xB0; // ACS-3 clause 7.48
constexpr unsigned char kSmartReadData = 0xD0;
constexpr unsigned char kReadFirmware = 0xFC; // vendor specific; the feature counts sectors
constexpr size_t kPermissionByte = 55;
constexpr int kHighestPermission = 5;
constexpr int kFirmwareSectors = 80;
constexpr int kNoFirmware = -2;

// Command, sector number, feature and sector count, then the sector that comes back.
struct Taskfile {
    unsigned char command;
    unsigned char sector;
    unsigned char feature;
    unsigned char count;
    unsigned char data[kSectorSize];
};
static_assert(sizeof(Taskfile) == 516);

bool read_sector(int fd, unsigned char command, unsigned char feature, Taskfile &taskfile) noexcept {
    taskfile = Taskfile{command, 0, feature, 1, {}};
    return ioctl(fd, HDIO_DRIVE_CMD, &taskfile) == 0;
}

int get_permission(int fd, const char *path, int *permission) noexcept {
    if (permission == nullptr) return -1;
    *permission = -1;
    const int active = validate_fd(fd, path);
    // Out on the descriptor passed in: callers hold the drive open.
    Taskfile taskfile;
    const bool answered = read_sector(fd, kSmart, kSmartReadData, taskfile);
    close_active_fd(fd, active);
    if (!answered) return fail(kState, "failed to read permissions of device");
    const int level = taskfile.data[kPermissionByte];
    if (level > kHighestPermission) return -1;
    *permission = level;
    return 0;
}

bool read_image(int fd, unsigned char *image) noexcept {
    for (int i = 0; i < kFirmwareSectors; ++i) {
        Taskfile taskfile;
        if (!read_sector(fd, kReadFirmware, static_cast<unsigned char>(i), taskfile)) return false;
        std::memcpy(image + static_cast<ptrdiff_t>(i) * kSectorSize, taskfile.data, kSectorSize);
    }
    return true;
}

int get_firmware(int fd, const char *path, int *size, unsigned char **image) noexcept {
    if (size == nullptr || image == nullptr) return kNoFirmware;
    *size = 0;
    *image = nullptr;
    const int active = validate_fd(fd, path);
    Block<unsigned char> read(static_cast<unsigned char *>(std::calloc(kFirmwareSectors, kSectorSize)));
    const bool done = read && read_image(active, read.get());
    close_active_fd(fd, active);
    if (!done) {
        fail(kState, "failed to read firmware image");
        return kNoFirmware;
    }
    *size = kFirmwareSectors * kSectorSize;
    *image = read.release();
    return 0;
}

} // namespace

int device_supports_innodisk(const char *model) noexcept { return model != nullptr && contains(model, "Inno") ? 1 : 0; }

const VendorProbe innodisk_funcs = {get_permission, get_firmware, device_supports_innodisk};
