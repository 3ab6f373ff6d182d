// Who uses a device, and whether it may be pulled.
#pragma once

#include "inventory/machine.h"

#include <unordered_set>

namespace inventory {

// Things that the device manager has looked at. Of others nobody can say that nothing lies on them.
using Examined = std::unordered_set<const Thing *>;

// Holders, users and verdict of every block device, from what has been told of it.
void conclude_uses(Machine &machine, const Examined &examined);

// The graver of two verdicts.
const std::string &graver(const std::string &left, const std::string &right);

} // namespace inventory
