// The light of a drive behind a RAID controller, by the tool that told about the drive.
#pragma once

#include "inventory/machine.h"

#include <chrono>
#include <string>

namespace inventory {

// Of a member drive; "" or why not.
std::string set_locate_by_tool(const Thing &drive, bool on, std::chrono::milliseconds limit);

} // namespace inventory
