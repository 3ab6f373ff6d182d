// Reading what lspci prints about RAID adapters.
#ifndef TORVANE_RAID_PCI_H
#define TORVANE_RAID_PCI_H

#include "torvane.h"

#include <cstdint>
#include <cstdio>

namespace torvane {

// "lspci -v": appends one record for each adapter that a RAID driver serves. -1 leaves the list empty.
int parse_lspci_output(FILE *stream, PciInfo **list, uint32_t *count) noexcept;

} // namespace torvane

#endif
