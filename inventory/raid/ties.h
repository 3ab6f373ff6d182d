// Which device of the kernel a logical drive or a drive behind a controller is. What cannot be told stays without one:
// a wrong device is worse than none.
#pragma once

#include "inventory/raid/things.h"

#include <vector>

namespace inventory::raid {

struct Tied {
    Found found;
    ControllerThings things;
};

// Gives logical drives and drives their kernel devices (kKnownAs), their names, and the word how it was told (match).
void tie_to_kernel(Machine &machine, const std::vector<Tied> &controllers, const std::vector<GenericNode> &generics);

} // namespace inventory::raid
