#include "commands/trees.h"

#include <algorithm>

namespace tool {
namespace {

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

// JSON of a whole drive has the keys of all whole drives, null where it has none.
// No machine stacks more; a chain that bites its tail would be followed for ever.
constexpr unsigned kDeepest = 32;

void sort_by_name(std::vector<const Thing *> &things) {
    const auto less = [](const Thing *a, const Thing *b) { return inventory::natural_less(a->id(), b->id()); };
    // The kernel's things were added in this order.
    if (!std::is_sorted(things.begin(), things.end(), less)) std::sort(things.begin(), things.end(), less);
}

bool has_trouble(const Thing &thing) {
    return std::any_of(thing.troubles.begin(), thing.troubles.end(),
                       [](const inventory::Trouble &trouble) { return trouble.essential; });
}

std::vector<const Thing *> below(const Thing &thing, RelationKind kind) {
    std::vector<const Thing *> things;
    for (const Thing *other : thing.related_to(kind)) things.push_back(other);
    sort_by_name(things);
    return things;
}

Node node_of(const Thing &thing, const Arrangement &arrangement, unsigned depth) {
    Node node{&thing, thing.kind() == ThingKind::kPartition ? 0 : kWholes, has_trouble(thing), {}};
    if (depth >= kDeepest || !arrangement.partitions) return node;
    const auto add = [&](const char *key, RelationKind kind) {
        NodeBranch branch{key, {}};
        for (const Thing *other : below(thing, kind)) branch.nodes.push_back(node_of(*other, arrangement, depth + 1));
        node.branches.push_back(std::move(branch));
    };
    if (thing.kind() != ThingKind::kPartition) add("partitions", RelationKind::kPartOf);
    if (arrangement.tree) add("holders", RelationKind::kBuiltOn);
    return node;
}

bool is_root(const Thing &thing, const Arrangement &arrangement) {
    if ((inventory::bit(thing.kind()) & kWholes) == 0) return false;
    if (thing.kind() == ThingKind::kMember) return thing.related(RelationKind::kKnownAs).empty();
    const bool has_node = !thing.text("path").empty();
    if (!has_node && !arrangement.without_node) return false;
    // In a tree it stands below what it is built on.
    return !arrangement.tree || !arrangement.partitions || thing.related(RelationKind::kBuiltOn).empty();
}

} // namespace

Node list_node(const Thing &thing, bool partitions, bool tree) { return node_of(thing, {partitions, tree, true}, 0); }

std::vector<Node> list_nodes(const inventory::Machine &machine, const Arrangement &arrangement) {
    std::vector<const Thing *> roots;
    for (const Thing &thing : machine.things()) {
        if (is_root(thing, arrangement)) roots.push_back(&thing);
    }
    sort_by_name(roots);
    std::vector<Node> nodes;
    nodes.reserve(roots.size());
    for (const Thing *root : roots) nodes.push_back(node_of(*root, arrangement, 0));
    return nodes;
}

} // namespace tool
