// The readers of block geometry for callers that hold the device open.
#ifndef TORVANE_DRIVES_BLOCK_GEOMETRY_H
#define TORVANE_DRIVES_BLOCK_GEOMETRY_H

#include "torvane.h"

namespace torvane {

// get_device_start() on what validate_fd() made of descriptor and path.
int read_device_start(int active, const char *path, uint64_t &start) noexcept;

} // namespace torvane

#endif
