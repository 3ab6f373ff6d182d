// What is built on what: the kernel's links between arrays or mapped devices and the devices below them.
#pragma once

#include "inventory/kernel/block.h"

namespace inventory {

// Members of an array or mapped device, with their roles; holders of the members. All devices must be in the machine.
void tell_members(Machine &machine, const Block &block);

// Words for what is built on a thing: "md0", "vg0-root".
std::vector<std::string> holders_of(const Thing &thing);

} // namespace inventory
