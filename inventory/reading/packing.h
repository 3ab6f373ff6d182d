// What a worker found out about a thing, as bytes for its parent.
#pragma once

#include "inventory/machine.h"

#include <string>
#include <string_view>

namespace inventory {

// Words, reasons and troubles of the thing.
std::string pack(const Thing &found);

// Adds what was packed to the thing: words by tell(), reasons by lacks(). False when the bytes are not from pack();
// what came before the fault stays added.
bool unpack(std::string_view bytes, Thing &thing);

} // namespace inventory
