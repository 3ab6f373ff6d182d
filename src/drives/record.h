// Making records with what a discovery shares among its drives.
#ifndef TORVANE_DRIVES_RECORD_H
#define TORVANE_DRIVES_RECORD_H

#include "drives/partition_table.h"
#include "foundation/text.h"

namespace torvane {

using Drive = std::unique_ptr<DriveRecord, Calls<&release_drive>>;

// create_drive(), with the partitions from a table when there is one.
int create_drive_with(DriveList *list, const char *name, DriveOptions options, const PartitionTable *table) noexcept;

} // namespace torvane

#endif
