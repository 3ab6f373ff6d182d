// The vendor-state reader for callers that hold the drive open.
#ifndef TORVANE_DRIVES_STATE_H
#define TORVANE_DRIVES_STATE_H

#include "torvane.h"

namespace torvane {

// get_drive_state() on a descriptor; below 0 stands for a path that could not be opened.
int read_drive_state(int fd, const char *path, DriveRecord &drive) noexcept;

} // namespace torvane

#endif
