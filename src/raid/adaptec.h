// Reading what arcconf prints about Adaptec controllers.
#ifndef TORVANE_RAID_ADAPTEC_H
#define TORVANE_RAID_ADAPTEC_H

#include "torvane.h"

#include <cstdint>
#include <cstdio>

namespace torvane {

// "arcconf getversion": appends as many controllers as were found.
int parse_adaptec_version(FILE *stream, RaidController **list, uint32_t *count) noexcept;

// "arcconf getconfig <number> AL": the logical and physical drives of one controller.
int parse_adaptec_config(FILE *stream, RaidController *controller) noexcept;

// Runs arcconf for one controller and reads its drives.
int parse_adaptec_controller(RaidController *controller) noexcept;

} // namespace torvane

#endif
