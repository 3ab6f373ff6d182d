// USB mass storage by /sys alone: interfaces, and the drives behind them, those without a node in /dev too.
#pragma once

#include "inventory/machine.h"

namespace inventory {

// Adds the interfaces, by their address ("1-2:1.0"), and ties drives to them. After read_kernel().
void read_usb(Machine &machine);

} // namespace inventory
