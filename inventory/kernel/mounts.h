// Where devices are mounted or used as swap space, by this process's mount table.
#pragma once

#include "inventory/machine.h"

namespace inventory {

// Tells the mount points of every thing that has some. False when not all of them are known, and then there is a
// trouble: nobody can say that a device is free.
bool tell_mounts(Machine &machine);

} // namespace inventory
