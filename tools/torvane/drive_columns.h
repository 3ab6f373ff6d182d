// What there is to say about a drive, one column each.
#pragma once

#include "drives.h"
#include "output/table.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

struct DriveColumn {
    Column column;
    DriveOptions needs; // what the library must read for it
    Value (*of_drive)(const Drive &drive);
    Value (*of_partition)(const DriveRecord &drive, const PartitionRecord &partition); // null: nothing
};

using DriveColumns = std::vector<const DriveColumn *>;

std::span<const DriveColumn> all_drive_columns();

// The column of this name, in any case; null when there is none.
const DriveColumn *find_drive_column(std::string_view name);

// "disk", "iscsi", "raid-member" ...
std::string type_word(const DriveRecord &record);

// Bytes; nothing when unknown.
std::optional<uint64_t> size_of(const DriveRecord &record);

Row drive_row(const DriveColumns &columns, const Drive &drive, bool with_partitions);
Table drive_table(const DriveColumns &columns, const std::vector<Drive> &drives, bool with_partitions);

} // namespace tool
