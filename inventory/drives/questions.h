// Which facts a drive can be asked for, and the asking.
#pragma once

#include "inventory/drives/drives.h"

#include <string_view>
#include <vector>

namespace inventory {

// Whether there is a way to ask this thing at all.
bool can_be_asked(const Thing &thing);

// The keys of the facts that it is asked for.
std::vector<std::string_view> asked_facts(const Thing &drive, const DriveRequest &request);

// Asks, in a worker: words, reasons and troubles about the drive.
Thing ask(const Thing &drive, const DriveRequest &request);

} // namespace inventory
