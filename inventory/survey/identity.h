// Which things are one and the same drive, and which only look so.
#pragma once

#include "inventory/machine.h"

namespace inventory {

// Things with one WWN are paths of one drive: relation kPathOf, fact `paths`; what uses one of them uses all. Different
// drives with one serial number are flagged `duplicate_serial`. After all readers; the facts must be settled.
void relate_identities(Machine &machine);

} // namespace inventory
