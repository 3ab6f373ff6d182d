// /proc/partitions read once and shared by all drives of a discovery: the kernel walks all its devices for
// each read of that file, and a look-up here costs nothing of the kind.
#ifndef TORVANE_DRIVES_PARTITION_TABLE_H
#define TORVANE_DRIVES_PARTITION_TABLE_H

#include "drives/name_set.h"
#include "drives/partition_scan.h"
#include "foundation/owners.h"

namespace torvane {

class OpenDisks;

class PartitionTable {
  public:
    // read_drive_names_on_system(), which leaves the text of the file here and what it learnt of the disks there.
    int read_names(char ***names, uint32_t *count, OpenDisks &disks) noexcept;

    // The file as it is now, in place of what was read before. False when it cannot be read to its end.
    bool load() noexcept;

    // Prepares the look-ups, after which there is no text. False when there is none, or one that only a line
    // reader can judge, or no memory.
    bool index() noexcept;

    // What parse_partition() makes of the file for this kernel name.
    int partitions_of(const char *name, PartitionList &partitions) const noexcept;

  private:
    void read(FILE *file) noexcept;
    bool add_row(char *line) noexcept;

    CString text_;
    uint32_t length_ = 0;
    bool complete_ = false; // the text reaches to the end of the file
    Block<PartitionRow> rows_;
    NameSet names_;
    uint32_t count_ = 0;
};

// get_partitions(), from the table when there is one.
int read_partitions(const char *path, PartitionList &partitions, const PartitionTable *table) noexcept;

} // namespace torvane

#endif
