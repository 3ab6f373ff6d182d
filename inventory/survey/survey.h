// One look at the machine: the kernel's facts first, then the sources that were asked for, merged and settled.
#pragma once

#include "inventory/machine.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace inventory {

struct Request {
    bool all = false;              // loop, zram, ram and nbd devices that hold something too
    bool ask_drives = false;       // open the drives and ask them
    bool defects = false;          // their defect lists too
    bool state = false;            // makers' own commands too
    bool raid = false;             // run the RAID makers' tools
    std::vector<std::string> keys; // facts that are shown; empty: all. What none of them needs may be left unread.
    std::vector<std::string> only; // kernel names of the drives to ask; empty: all of them
    std::chrono::milliseconds limit{30000};
    std::function<void()> tick; // about once a second while drives are asked
};

Machine survey(const Request &request);

// Every trouble, those of single things included.
std::vector<Trouble> all_troubles(const Machine &machine);

} // namespace inventory
