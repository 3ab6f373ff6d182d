// torvane raid: controllers with their logical drives and drives, and md arrays with their members, as a tree.
#include "commands/commands.h"
#include "commands/looks.h"
#include "inventory/raid/health.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <set>

namespace tool {
namespace {

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

struct RaidOptions {
    ListingOptions output;
    double timeout = kDefaultSeconds;
};

constexpr unsigned kRaidKinds = inventory::bit(ThingKind::kController) | inventory::bit(ThingKind::kLogical) |
                                inventory::bit(ThingKind::kMember) | inventory::bit(ThingKind::kArray) |
                                inventory::bit(ThingKind::kDrive) | inventory::bit(ThingKind::kPartition);

void sort_by_id(std::vector<const Thing *> &things) {
    std::sort(things.begin(), things.end(),
              [](const Thing *a, const Thing *b) { return inventory::natural_less(a->id(), b->id()); });
}

std::vector<const Thing *> things_of(const inventory::Machine &machine, ThingKind kind) {
    std::vector<const Thing *> things;
    for (const Thing &thing : machine.things()) {
        if (thing.kind() == kind) things.push_back(&thing);
    }
    sort_by_id(things);
    return things;
}

std::vector<const Thing *> related(const std::vector<Thing *> &others, ThingKind kind) {
    std::vector<const Thing *> things;
    for (const Thing *other : others) {
        if (other->kind() == kind) things.push_back(other);
    }
    sort_by_id(things);
    return things;
}

Node node_of(const Thing &thing, const std::set<std::string> &ill) { return {&thing, 0, ill.contains(thing.id()), {}}; }

NodeBranch branch_of(const char *key, const std::vector<const Thing *> &things, const std::set<std::string> &ill) {
    NodeBranch branch{key, {}};
    for (const Thing *thing : things) branch.nodes.push_back(node_of(*thing, ill));
    return branch;
}

Node logical_node(const Thing &logical, const std::set<std::string> &ill) {
    Node node = node_of(logical, ill);
    std::vector<Thing *> drives = logical.related_to(RelationKind::kMemberOf);
    const std::vector<Thing *> spares = logical.related_to(RelationKind::kSpareFor);
    drives.insert(drives.end(), spares.begin(), spares.end());
    node.branches.push_back(branch_of("drives", related(drives, ThingKind::kMember), ill));
    return node;
}

Node controller_node(const Thing &controller, const std::set<std::string> &ill) {
    Node node = node_of(controller, ill);
    const std::vector<Thing *> behind = controller.related_to(RelationKind::kBehind);
    NodeBranch logical{"logical_drives", {}};
    for (const Thing *drive : related(behind, ThingKind::kLogical)) logical.nodes.push_back(logical_node(*drive, ill));
    std::vector<const Thing *> others = related(behind, ThingKind::kMember);
    std::erase_if(others, [](const Thing *drive) {
        return !drive->related(RelationKind::kMemberOf).empty() || !drive->related(RelationKind::kSpareFor).empty();
    });
    node.branches.push_back(std::move(logical));
    node.branches.push_back(branch_of("drives", others, ill));
    return node;
}

Node array_node(const Thing &array, const std::set<std::string> &ill) {
    Node node = node_of(array, ill);
    std::vector<const Thing *> members;
    for (const Thing *member : array.related(RelationKind::kBuiltOn)) members.push_back(member);
    sort_by_id(members);
    node.branches.push_back(branch_of("drives", members, ill));
    return node;
}

std::set<std::string> ill_things(const inventory::Machine &machine) {
    std::set<std::string> ids;
    for (const inventory::Problem &problem : inventory::problems_of(machine)) ids.insert(problem.thing->id());
    return ids;
}

// One document with both kinds; the other formats have one list.
void print(const RaidOptions &options, const Listing &listing, std::vector<Node> controllers,
           std::vector<Node> arrays) {
    const Style style = options.output.style();
    if (style.format == Format::kJson) {
        Json document = listing.document(std::move(controllers), style);
        document["arrays"] = listing.document(std::move(arrays), style).at("controllers");
        print_json(document, stdout);
        return;
    }
    std::move(arrays.begin(), arrays.end(), std::back_inserter(controllers));
    listing.print(std::move(controllers), stdout);
}

// People have eighty columns, and see the place of a drive in its name.
std::vector<const char *> columns_for(Format format) {
    if (format == Format::kTable) return {"NAME", "TYPE", "LABEL", "LEVEL", "STATE", "MODEL", "SERIAL", "SIZE"};
    return {"NAME", "TYPE", "NUMBER", "LABEL", "LEVEL", "STATE", "MODEL", "SERIAL", "SIZE", "LOCATION", "MATCH"};
}

int run(const RaidOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kRaidKinds, stdout);
        return kDone;
    }
    const Listing listing(options.output, {"controllers", kRaidKinds, columns_for(options.output.style().format)});
    inventory::Request request;
    request.raid = true;
    request.limit = to_limit(options.timeout);
    const inventory::Machine machine = inventory::survey(request);
    const std::set<std::string> ill = ill_things(machine);
    std::vector<Node> controllers;
    for (const Thing *thing : things_of(machine, ThingKind::kController))
        controllers.push_back(controller_node(*thing, ill));
    std::vector<Node> arrays;
    for (const Thing *thing : things_of(machine, ThingKind::kArray)) arrays.push_back(array_node(*thing, ill));
    const bool has_controllers = !controllers.empty();
    print(options, listing, std::move(controllers), std::move(arrays));
    const Troubles troubles = raid_troubles(machine);
    tell(troubles);
    if (!has_controllers && troubles.empty() && !options.output.is_json()) complain("no RAID controllers");
    // Without a tool nothing was looked at, and the empty answer is no more than a part.
    return exit_code(troubles, true);
}

} // namespace

void add_raid_command(const Command &tool) {
    const auto options = std::make_shared<RaidOptions>();
    tool.add("raid", "Show RAID controllers and arrays, and the drives in them.", [options] { return run(*options); })
        .listing(options->output)
        .timeout(options->timeout);
}

} // namespace tool
