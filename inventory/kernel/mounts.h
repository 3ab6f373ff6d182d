// Where devices are mounted or used as swap space, by this process's mount table.
#pragma once

#include "inventory/machine.h"

namespace inventory {

// Tells the mount points of every thing that has some.
void tell_mounts(Machine &machine);

} // namespace inventory
