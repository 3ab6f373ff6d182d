// /proc/partitions read once and shared by all drives of a discovery: the kernel walks all its devices for
// each read of that file, and a look-up here costs nothing of the kind.
#ifndef TORVANE_DRIVES_PARTITION_TABLE_H
#define TORVANE_DRIVES_PARTITION_TABLE_H

#include "drives/partition_scan.h"
#include "foundation/owners.h"

namespace torvane {

class PartitionTable {
  public:
    // Reads the whole file. False when it cannot be read, or holds what only a line reader can judge.
    bool load() noexcept;

    // The whole disks among the rows, as read_drive_names_on_system() finds them.
    int read_names(char ***names, uint32_t *count) noexcept;

    // Prepares the look-ups; read_names() is no longer possible. False without memory.
    bool index() noexcept;

    // What parse_partition() makes of the file for this kernel name.
    int partitions_of(const char *name, PartitionList &partitions) const noexcept;

  private:
    bool add_row(char *line) noexcept;

    CString text_;
    uint32_t length_ = 0;
    Block<PartitionRow> rows_;
    Block<const PartitionRow *> by_name_;
    uint32_t count_ = 0;
};

// get_partitions(), from the table when there is one.
int read_partitions(const char *path, PartitionList &partitions, const PartitionTable *table) noexcept;

} // namespace torvane

#endif
