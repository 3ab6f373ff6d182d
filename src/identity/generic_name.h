// The SCSI generic node of a device whose kind is known.
#ifndef TORVANE_IDENTITY_GENERIC_NAME_H
#define TORVANE_IDENTITY_GENERIC_NAME_H

#include "torvane.h"

namespace torvane {

// 0 for SCSI disks (found or not) and for generic nodes themselves, -1 for other kinds, -8 for a null path.
int select_generic_name(DeviceKind kind, const char *path, char **name) noexcept;

} // namespace torvane

#endif
