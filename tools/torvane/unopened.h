// What the kernel tells everybody about a disk that may not be opened.
#ifndef TOOL_UNOPENED_H
#define TOOL_UNOPENED_H

#include "torvane.h"

namespace tool {

// Completes a record whose device could not be opened with sizes, partitions and model from /sys and
// /proc/partitions. Any other record stays as it is.
void complete_unopened(DriveRecord &drive);

} // namespace tool

#endif
