// The geometry reader for callers that hold the drive open.
#ifndef TORVANE_DRIVES_GEOMETRY_H
#define TORVANE_DRIVES_GEOMETRY_H

#include "drives/partition_table.h"

namespace torvane {

// What need not be asked again.
struct KnownGeometry {
    const PartitionTable *table = nullptr;
    bool starts_at_zero = false;
};

// get_drive_geometry() on a descriptor; below 0 stands for a path that could not be opened.
int read_drive_geometry(int fd, const char *path, DriveRecord &drive, const KnownGeometry &known) noexcept;

} // namespace torvane

#endif
