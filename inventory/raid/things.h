// Controllers, logical drives and member drives as things of the machine.
#pragma once

#include "inventory/machine.h"
#include "inventory/raid/merge.h"

#include <vector>

namespace inventory::raid {

// A controller's things: places as in Controller::logical and Controller::drives.
struct ControllerThings {
    Thing *controller = nullptr;
    std::vector<Thing *> logical;
    std::vector<Thing *> drives;
};

ControllerThings add_things(Machine &machine, const Found &found);

} // namespace inventory::raid
