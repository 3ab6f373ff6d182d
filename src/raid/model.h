// Building the tree of controllers, logical drives and member drives.
#ifndef TORVANE_RAID_MODEL_H
#define TORVANE_RAID_MODEL_H

#include "foundation/owners.h"
#include "torvane.h"

#include <cstdint>

namespace torvane {

// Appends `extra` controllers numbered from `first_number` on; the first of them. Null leaves the list as it was.
RaidController *add_controllers(RaidController **list, uint32_t *count, uint32_t extra, uint32_t type,
                                uint32_t first_number) noexcept;

// Appends a logical drive. Null leaves the controller as it was.
RaidDriveGroup *add_group(RaidController &controller, int32_t logical_number) noexcept;

// Appends a drive to one of the controller's arrays. Null leaves array and count as they were.
RaidDrive *add_raid_drive(RaidDrive *&drives, uint32_t &count, RaidController &owner) noexcept;

// Points groups and drives back at the records that hold them, after an array has moved.
void relink(RaidController &controller) noexcept;
void relink(RaidController *list, uint32_t count) noexcept;

// Where a drive sits: enclosure and slot, connector and device, or adapter and slot. Null without memory.
CString format_raid_location(uint32_t first, uint32_t second) noexcept;

} // namespace torvane

#endif
