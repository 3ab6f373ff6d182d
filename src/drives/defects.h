// The defect-list reader for callers that hold the drive open.
#ifndef TORVANE_DRIVES_DEFECTS_H
#define TORVANE_DRIVES_DEFECTS_H

#include "torvane.h"

namespace torvane {

// get_drive_defects() on a descriptor; below 0 stands for a path that could not be opened.
int read_drive_defects(int fd, const char *path, DriveRecord &drive) noexcept;

} // namespace torvane

#endif
