// What kind of device a major number stands for.
#ifndef TORVANE_IDENTITY_DEVICE_KIND_H
#define TORVANE_IDENTITY_DEVICE_KIND_H

#include "torvane.h"

namespace torvane {

// Device numbers and kind of a device.
struct DeviceIdentity {
    int32_t major;
    int32_t minor;
    DeviceKind kind;
};

DeviceIdentity identity_of(dev_t device) noexcept;

// Identity of an open device: 0, or -16 with "failed to fstat" and the place untouched.
int stat_device_kind(int fd, DeviceIdentity &identity) noexcept;

} // namespace torvane

#endif
