#include "commands/looks.h"

#include <algorithm>
#include <map>
#include <set>

namespace tool {
namespace {

using inventory::Cost;
using inventory::Thing;

bool costs_defects(const Column &column) { return column.cost == Cost::kDefects; }
bool costs_state(const Column &column) { return column.cost == Cost::kState; }
bool costs_tool(const Column &column) { return column.cost == Cost::kTool; }

bool is_named(const Thing &thing, const std::vector<std::string> &names) {
    return names.empty() || std::find(names.begin(), names.end(), thing.id()) != names.end();
}

} // namespace

bool asks_drive(const Column &column) {
    std::string_view origin = column.origin;
    while (!origin.empty()) {
        const std::size_t end = std::min(origin.find(", "), origin.size());
        if (origin.substr(0, end) == "drive") return true;
        origin.remove_prefix(std::min(end + 2, origin.size()));
    }
    return false;
}

inventory::Request look_for(const Listing &listing) {
    inventory::Request request;
    request.defects = listing.asks(costs_defects);
    request.state = listing.asks(costs_state);
    request.raid = listing.asks(costs_tool);
    request.ask_drives = listing.asks(asks_drive);
    for (const Column *column : listing.asked()) request.keys.emplace_back(column->key);
    return request;
}

void mark_members(inventory::Machine &machine) {
    for (Thing &thing : machine.things()) {
        if (thing.kind() != inventory::ThingKind::kMember) continue;
        thing.forget("type");
        thing.tell("type", std::string("raid-member"), inventory::Source::kTool);
    }
}

Troubles told_troubles(const inventory::Machine &machine, const std::vector<std::string> &names) {
    Troubles troubles = machine.troubles;
    for (const Thing &thing : machine.things()) {
        if (!is_named(thing, names)) continue;
        // What a healthy drive may lack as well is for `show`.
        std::copy_if(thing.troubles.begin(), thing.troubles.end(), std::back_inserter(troubles),
                     [](const Trouble &trouble) { return trouble.essential; });
    }
    return troubles;
}

Troubles raid_troubles(const inventory::Machine &machine) {
    constexpr unsigned kRaid =
        inventory::bit(inventory::ThingKind::kController) | inventory::bit(inventory::ThingKind::kLogical) |
        inventory::bit(inventory::ThingKind::kMember) | inventory::bit(inventory::ThingKind::kArray);
    Troubles troubles = machine.troubles;
    for (const Thing &thing : machine.things()) {
        if ((inventory::bit(thing.kind()) & kRaid) == 0) continue;
        // What a healthy drive may lack as well is for `show`.
        std::copy_if(thing.troubles.begin(), thing.troubles.end(), std::back_inserter(troubles),
                     [](const Trouble &trouble) { return trouble.essential; });
    }
    return troubles;
}

void tell_duplicates(const inventory::Machine &machine, const std::vector<std::string> &ids) {
    std::map<std::string, std::set<std::string>> names;
    for (const Thing &thing : machine.things()) {
        if (thing.flag("duplicate_serial")) names[thing.text("serial")].insert(thing.id());
    }
    for (const auto &[serial, same] : names) {
        const auto is_told = [&same = same](const std::string &id) { return same.contains(id); };
        if (!ids.empty() && std::none_of(ids.begin(), ids.end(), is_told)) continue;
        std::string list;
        for (const std::string &id : same) list += (list.empty() ? "" : ", ") + id;
        complain("different drives have the serial number " + serial + ": " + list);
    }
}

} // namespace tool
