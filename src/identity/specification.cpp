#include "identity/specification.h"

#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "identity/device_kind.h"
#include "identity/generic_name.h"
#include "identity/results.h"
#include "torvane.h"

#include <fcntl.h>

using namespace torvane;

namespace {

// Generic name, model and serial of an open drive: the sum of their penalties.
int read_identity(int fd, const char *path, DriveRecord &drive) noexcept {
    char *generic = nullptr;
    char *model = nullptr;
    char *serial = nullptr;
    int result = select_generic_name(drive.device_type, path, &generic);
    replace(drive.generic_name, CString(generic));
    result += get_drive_model(fd, drive.device_type, path, &model);
    replace(drive.model, CString(model));
    result += get_drive_serial(fd, path, drive.model, &serial);
    replace(drive.serial, CString(serial));
    return result;
}

} // namespace

int torvane::read_drive_specification(int fd, const char *path, DriveRecord &drive) noexcept {
    if (fd < 0) {
        fail(kIdentity, "failed to open '%s'", path);
        return TORVANE_NOT_OPENED;
    }
    DeviceIdentity identity{};
    const int result = stat_device_kind(fd, identity);
    if (result != 0) return result;
    drive.major = identity.major;
    drive.minor = identity.minor;
    drive.device_type = identity.kind;
    return read_identity(fd, path, drive);
}

int get_device_stat(int fd, const char *path, DeviceSpecification *specification) noexcept {
    if (specification == nullptr) return kNoDeviceNumbers;
    if (fd < 1 && path == nullptr) {
        fail(kIdentity, "invalid file descriptor or device name");
        return kNoDeviceNumbers;
    }
    // A failed stat is only recorded: the numbers then come from what the record already holds.
    if (fd < 1) {
        if (lstat(path, &specification->stat) != 0) fail(kIdentity, "lstat failed");
    } else if (fstat(fd, &specification->stat) != 0) {
        fail(kIdentity, "fstat failed");
    }
    const DeviceIdentity identity = identity_of(specification->stat.st_rdev);
    specification->major = static_cast<uint32_t>(identity.major);
    specification->minor = static_cast<uint32_t>(identity.minor);
    specification->type = identity.kind;
    return 0;
}

int get_device_specification(int fd, const char *path, DeviceSpecification *specification) noexcept {
    if (specification == nullptr) return kNoDeviceNumbers;
    const ActiveDescriptor device(fd, path, kIdentity);
    if (get_device_stat(device.get(), path, specification) != 0) return kNoDeviceNumbers;
    if (path != nullptr) copy_text(specification->device_name, path);
    int result = get_generic_name(specification->type, path, specification) < 1 ? kNoGenericName : 0;
    if (get_device_serial_number(device.get(), specification) != 0) result += kNoSerial;
    if (get_device_model(device.get(), specification) != 0) result += kNoModel;
    return result;
}

int verify_device_name(const char *path, DeviceSpecification *specification) noexcept {
    if (path == nullptr || specification == nullptr) return -1;
    struct stat status {};
    if (lstat(path, &status) != 0) {
        fail(kIdentity, "lstat failed");
    } else {
        const DeviceIdentity identity = identity_of(status.st_rdev);
        if (static_cast<uint32_t>(identity.major) == specification->major &&
            static_cast<uint32_t>(identity.minor) == specification->minor) {
            copy_text(specification->device_name, path);
            return 0;
        }
        fail(kIdentity, "'%s' does not match file descriptor supplied", specification->device_name);
    }
    specification->device_name[0] = '\0';
    specification->sg_name[0] = '\0';
    return -1;
}

int print_specification(const DeviceSpecification *specification) noexcept {
    if (specification == nullptr) return -1;
    return std::printf("Device Name:    %s\nDevice SG Name: %s\nDevice Model:   %s\nSerial Number:  %s\n"
                       "Major Number:   %d\nMinor Number:   %d\nType:           %d\n",
                       specification->device_name, specification->sg_name, specification->model, specification->serial,
                       static_cast<int>(specification->major), static_cast<int>(specification->minor),
                       specification->type);
}

int get_drive_specification(const char *path, DriveRecord *drive) noexcept {
    if (path == nullptr || drive == nullptr) return TORVANE_NOT_OPENED;
    const Descriptor device(open(path, O_RDONLY | O_NONBLOCK));
    return read_drive_specification(device.get(), path, *drive);
}
