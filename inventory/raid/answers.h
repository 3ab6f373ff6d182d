// From the tools' answers to things of the machine.
#pragma once

#include "inventory/machine.h"
#include "inventory/raid/merge.h"

#include <vector>

namespace inventory::raid {

// Each controller once, tied to the kernel's devices, and with a trouble for all that could not be read. The answers
// come in the order of belief.
void add_answers(Machine &machine, const std::vector<Answer> &answers, const std::vector<Adapter> &adapters,
                 const std::vector<GenericNode> &generics);

} // namespace inventory::raid
