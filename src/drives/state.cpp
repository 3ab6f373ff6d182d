#include "drives/state.h"

#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/owners.h"

#include <cstdio>
#include <fcntl.h>

using namespace torvane;

namespace {

constexpr int kNoPermission = -TORVANE_STATE_PERMISSION;
constexpr int kNoFirmware = -TORVANE_STATE_FIRMWARE;

// Drives of other makers: nothing is known, and no command goes out to find out.
int default_get_permission(int /*fd*/, const char * /*path*/, int *permission) noexcept {
    *permission = -1;
    return 0;
}

int default_get_firmware(int /*fd*/, const char * /*path*/, int *size, unsigned char **image) noexcept {
    *size = -1;
    *image = nullptr;
    return 0;
}

int default_supports(const char * /*model*/) noexcept { return 1; }

constexpr VendorProbe kDefaultFuncs = {default_get_permission, default_get_firmware, default_supports};

int read_state(int fd, const char *path, const char *model, DeviceState &state, bool full) noexcept {
    const VendorProbe *probe = select_vendor_probe(model);
    int result = probe->get_permission(fd, path, &state.permission) != 0 ? kNoPermission : 0;
    if (full && probe->get_firmware(fd, path, &state.firmware_size, &state.firmware_image) != 0) result += kNoFirmware;
    return result;
}

int get_state(int fd, const char *path, DeviceState *state, bool full) noexcept {
    const int no_identity = full ? kNoPermission + kNoFirmware : kNoPermission;
    if (state == nullptr) return no_identity;
    const ActiveDescriptor device(fd, path, kState);
    DeviceSpecification identity{};
    if (get_device_model(device.get(), &identity) != 0) return no_identity;
    return read_state(device.get(), path, identity.model, *state, full);
}

} // namespace

int torvane::read_drive_state(int fd, const char *path, DriveRecord &drive) noexcept {
    if (fd < 0) {
        fail(kState, "failed to open '%s'", path);
        return TORVANE_NOT_OPENED;
    }
    if (drive.model == nullptr) return fail(kState, "no model specified for '%s'", path);
    return select_vendor_probe(drive.model)->get_permission(fd, path, &drive.permission);
}

const VendorProbe *select_vendor_probe(const char *model) noexcept {
    for (const VendorProbe *probe : {&innodisk_funcs, &memkor_funcs}) {
        if (probe->supports(model) == 1) return probe;
    }
    return &kDefaultFuncs;
}

int get_drive_state(const char *path, DriveRecord *drive) noexcept {
    if (path == nullptr || drive == nullptr) return TORVANE_NOT_OPENED;
    const Descriptor device(open(path, O_RDONLY | O_NONBLOCK));
    return read_drive_state(device.get(), path, *drive);
}

int get_device_state(int fd, const char *path, DeviceState *state) noexcept {
    return get_state(fd, path, state, false);
}

int get_device_state_full(int fd, const char *path, DeviceState *state) noexcept {
    return get_state(fd, path, state, true);
}

int print_state(const DeviceState *state) noexcept {
    if (state == nullptr) return -1;
    return std::printf("Device Permission:    %d\nFirmware Size:        %d\nFirmware Image:       %p\n",
                       state->permission, state->firmware_size, static_cast<void *>(state->firmware_image));
}
