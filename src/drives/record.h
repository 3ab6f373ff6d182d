// Making records with what a discovery shares among its drives.
#ifndef TORVANE_DRIVES_RECORD_H
#define TORVANE_DRIVES_RECORD_H

#include "drives/geometry.h"
#include "foundation/text.h"

namespace torvane {

using Drive = std::unique_ptr<DriveRecord, Calls<&release_drive>>;

// The options that read something of each drive.
constexpr DriveOptions kReaders =
    DRIVE_OPTION_IDENTITY | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE;

// What a discovery knows of a drive before it is read.
struct KnownDrive {
    int device = -1; // open, and stays so; none: the drive is still to be opened
    bool starts_at_zero = false;
};

// create_drive(), with the partitions from a table when there is one.
int create_drive_with(DriveList *list, const char *name, DriveOptions options, const PartitionTable *table,
                      KnownDrive known) noexcept;

} // namespace torvane

#endif
