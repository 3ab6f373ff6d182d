// torvane bays, locate: the slots of enclosures, what sits in them, and their lights.
#include "inventory/bays/bays.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "inventory/raid/locate.h"

#include <algorithm>
#include <memory>

namespace tool {
namespace {

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

struct BayOptions {
    ListingOptions output;
    double timeout = kDefaultSeconds;
    std::string text;
    std::string light;
};

constexpr unsigned kBayKinds = inventory::bit(ThingKind::kBay) | inventory::bit(ThingKind::kDrive) |
                               inventory::bit(ThingKind::kOptical) | inventory::bit(ThingKind::kMember);

int list(const BayOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kBayKinds, stdout);
        return kDone;
    }
    const Listing listing(
        options.output, {"bays", kBayKinds, {"NAME", "TYPE", "ENCLOSURE", "BAY", "LOCATE", "MODEL", "SERIAL", "SIZE"}});
    inventory::Machine machine = inventory::survey({});
    const bool wants_lights =
        listing.asks([](const Column &column) { return column.key == std::string_view("locate_led"); });
    std::vector<Node> nodes;
    for (Thing &thing : machine.things()) {
        if (thing.kind() != ThingKind::kBay) continue;
        if (wants_lights) inventory::read_light(thing);
        Node node{&thing, 0, false, {{"drives", {}}}};
        for (const Thing *drive : thing.related_to(RelationKind::kInBay)) {
            node.branches.front().nodes.push_back({drive, 0, false, {}});
        }
        nodes.push_back(std::move(node));
    }
    std::sort(nodes.begin(), nodes.end(),
              [](const Node &a, const Node &b) { return inventory::natural_less(a.thing->id(), b.thing->id()); });
    const bool any = !nodes.empty();
    listing.print(std::move(nodes), stdout);
    tell(machine.troubles);
    if (!any && machine.troubles.empty() && !options.output.is_json()) complain("no enclosures");
    return exit_code(machine.troubles, any);
}

const Thing *bay_of(const Thing &thing) {
    if (thing.kind() == ThingKind::kBay) return &thing;
    const std::vector<Thing *> bays = thing.related(RelationKind::kInBay);
    return bays.empty() ? nullptr : bays.front();
}

int locate(const BayOptions &options) {
    const Found found = look_up(options.text, to_limit(options.timeout));
    const Thing *thing = only_one(found, options.text);
    if (thing == nullptr) return kFailed;
    const bool on = options.light == "on";
    const Thing *bay = bay_of(*thing);
    const bool is_member = thing->kind() == ThingKind::kMember;
    if (bay == nullptr && !is_member) {
        complain("'" + options.text + "' sits in no bay that the kernel knows: no enclosure tells where it is");
        return kFailed;
    }
    const std::string trouble = bay != nullptr ? inventory::set_locate(*bay, on)
                                               : inventory::set_locate_by_tool(*thing, on, to_limit(options.timeout));
    if (trouble.empty()) return kDone;
    complain((bay != nullptr ? bay : thing)->id() + ": the light cannot be switched: " + trouble);
    return kFailed;
}

} // namespace

void add_bay_commands(const Command &tool) {
    const auto options = std::make_shared<BayOptions>();
    tool.add("bays", "Show the bays of enclosures and what sits in them.", [options] { return list(*options); })
        .listing(options->output);
    tool.add("locate", "Switch the locating light of a drive's bay on or off.", [options] { return locate(*options); })
        .argument("TEXT", options->text, "the drive or bay, named as for find")
        .argument("on|off", options->light, "on or off", true, {"on", "off"})
        .timeout(options->timeout);
}

} // namespace tool
