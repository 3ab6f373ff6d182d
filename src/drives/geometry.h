// The geometry reader for callers that hold the drive open.
#ifndef TORVANE_DRIVES_GEOMETRY_H
#define TORVANE_DRIVES_GEOMETRY_H

#include "drives/partition_table.h"

namespace torvane {

// get_drive_geometry() on a descriptor; below 0 stands for a path that could not be opened.
int read_drive_geometry(int fd, const char *path, DriveRecord &drive, const PartitionTable *table) noexcept;

} // namespace torvane

#endif
