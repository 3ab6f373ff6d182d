// The identity reader for callers that hold the drive open.
#ifndef TORVANE_IDENTITY_SPECIFICATION_H
#define TORVANE_IDENTITY_SPECIFICATION_H

#include "torvane.h"

namespace torvane {

// get_drive_specification() on a descriptor; below 0 stands for a path that could not be opened.
int read_drive_specification(int fd, const char *path, DriveRecord &drive) noexcept;

} // namespace torvane

#endif
