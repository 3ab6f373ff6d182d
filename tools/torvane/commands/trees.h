// How things are arranged below each other in listings.
#pragma once

#include "inventory/machine.h"
#include "output/listing.h"

namespace tool {

// What `list` can show, whichever flags are set.
inline constexpr unsigned kListedKinds =
    inventory::bit(inventory::ThingKind::kDrive) | inventory::bit(inventory::ThingKind::kPartition) |
    inventory::bit(inventory::ThingKind::kArray) | inventory::bit(inventory::ThingKind::kMapped) |
    inventory::bit(inventory::ThingKind::kOptical) | inventory::bit(inventory::ThingKind::kVirtual) |
    inventory::bit(inventory::ThingKind::kMember);

inline constexpr unsigned kWholes = kListedKinds & ~inventory::bit(inventory::ThingKind::kPartition);

struct Arrangement {
    bool partitions = true;
    bool tree = false;         // what is built on a device below it, as often as it has parts; else every thing once
    bool without_node = false; // USB drives that have no node too
};

// The machine's drives in natural order.
std::vector<Node> list_nodes(const inventory::Machine &machine, const Arrangement &arrangement);

// One thing with its partitions, and in a tree with what is built on it.
Node list_node(const inventory::Thing &thing, bool partitions, bool tree);

} // namespace tool
