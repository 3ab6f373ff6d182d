// The rows of /proc/partitions that make up one disk, taken one after the other.
#ifndef TORVANE_DRIVES_PARTITION_SCAN_H
#define TORVANE_DRIVES_PARTITION_SCAN_H

#include "torvane.h"

namespace torvane {

struct PartitionRow {
    int minor;
    uint64_t blocks; // of 1024 bytes
    const char *name;
};

// The row of a line of /proc/partitions, whose name is ended in the line. False for a line without a name.
bool read_row(char *line, PartitionRow &row) noexcept;

// A row as the kernel writes it, numbers without signs and a name, without the cost of a format: the length of its
// name, or 0 for any other text. The row's name then points into the line.
size_t scan_plain_row(const char *line, PartitionRow &row) noexcept;

// The disk's own row, then the rows right behind it whose names begin with the disk's. A row with a minor
// number between two multiples of 16 is a partition itself and has none below it.
class PartitionScan {
  public:
    enum class Step { kMore, kDone, kFailed };

    PartitionScan(const char *name, PartitionList &partitions) noexcept : name_(name), partitions_(partitions) {
        partitions_.count = 0;
    }

    Step take(const PartitionRow &row) noexcept;

    // Whether the device's own row was seen.
    bool found() const noexcept { return found_; }

  private:
    const char *name_;
    PartitionList &partitions_;
    bool found_ = false;
};

// Frees names and entries and leaves the list empty.
void release_partitions(PartitionList &partitions) noexcept;

} // namespace torvane

#endif
