// Bays of enclosures that the kernel's driver for enclosure services knows.
#pragma once

#include "inventory/machine.h"

#include <string>

namespace inventory {

// Adds the bays ("ENCLOSUREID/BAY") and says of drives where they sit. After read_kernel(). The enclosures are not
// asked anything: what their driver remembers is enough.
void read_bays(Machine &machine);

// Asks the enclosure whether this bay's locating light is on, and tells it.
void read_light(Thing &thing);

// Turns this bay's locating light on or off: "" or why not.
std::string set_locate(const Thing &thing, bool on);

} // namespace inventory
