// The things that a text of a person's means.
#pragma once

#include "inventory/machine.h"

#include <string>
#include <vector>

namespace inventory {

// By device name or path, any link below /dev, address, serial number, WWN, model, label, UUID, bay ("ENCLOSURE/BAY"),
// the ids of RAID things. What fits best wins: the whole text over its beginning, and that over a part of it. Several
// paths to one drive are one thing here, its first path; so are a bay and the drive in it: the drive. Empty when
// nothing fits.
std::vector<Thing *> find_things(Machine &machine, const std::string &text);

} // namespace inventory
