// The names of the whole disks, for callers that want to know more of them.
#ifndef TORVANE_DRIVES_NAMES_H
#define TORVANE_DRIVES_NAMES_H

#include "drives/open_disks.h"

namespace torvane {

// read_names_from_file() on the text of /proc/partitions; one that is not complete ends where a read failed.
int add_disks_of_text(char *text, size_t length, bool complete, char ***names, uint32_t *count,
                      OpenDisks &disks) noexcept;

} // namespace torvane

#endif
