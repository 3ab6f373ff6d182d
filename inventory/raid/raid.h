// RAID controllers with their logical and member drives, as their makers' tools tell of them.
#pragma once

#include "inventory/machine.h"

#include <chrono>

namespace inventory {

struct RaidRequest {
    std::chrono::milliseconds limit{60'000}; // for each tool, all of its commands together
};

// Runs every tool that is there, one at a time, and adds what it tells. Of a tool's output 16 MiB are read: whatever it
// prints, this process stays below 300 MiB. Kernel devices are tied where read_kernel() has
// been there before. A controller whose driver is bound is a thing whether or not a tool tells about it.
void read_raid(Machine &machine, const RaidRequest &request);

} // namespace inventory
