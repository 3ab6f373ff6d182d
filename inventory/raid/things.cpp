#include "inventory/raid/things.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <charconv>

namespace inventory::raid {
namespace {

template <class T> Value as_value(const std::optional<T> &value) { return value ? Value(*value) : Value(); }

// Numbers of tools may hold blanks and slashes; ids are typed by people.
std::string id_part(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == ' ' || c == '/'; }, '-');
    return text;
}

std::string controller_id(const Machine &machine, const Found &found) {
    std::string id = "c" + id_part(found.controller.number);
    if (machine.find(id) != nullptr) id = std::string(found.tool->name) + "-" + id;
    return id;
}

std::string free_id(const Machine &machine, const std::string &wanted) {
    std::string id = wanted;
    for (int i = 2; machine.find(id) != nullptr; ++i) id = wanted + "+" + std::to_string(i);
    return id;
}

std::string drive_id(const std::string &controller, const PhysicalDrive &drive) {
    const std::string enclosure = drive.enclosure.empty() ? "" : "/e" + id_part(drive.enclosure);
    if (!drive.slot.empty()) return controller + enclosure + "/s" + id_part(drive.slot);
    if (drive.role == Role::kMissing) return controller + "/missing";
    if (!drive.device_id.empty()) return controller + enclosure + "/d" + id_part(drive.device_id);
    if (!drive.channel.empty()) return controller + "/ch" + id_part(drive.channel);
    return controller + "/drive";
}

std::string location_of(const PhysicalDrive &drive) {
    if (drive.slot.empty()) return drive.channel.empty() ? std::string() : "channel, device " + drive.channel;
    const std::string slot = "slot " + drive.slot;
    return drive.enclosure.empty() ? slot : "enclosure " + drive.enclosure + ", " + slot;
}

// A number where the tool counts, its text where it names slots ("0b").
Value number_of(const std::string &told) {
    std::uint64_t number = 0;
    const char *end = told.data() + told.size();
    const auto [rest, error] = std::from_chars(told.data(), end, number);
    return error == std::errc() && rest == end ? Value(number) : Value(told);
}

// As md spells its levels.
std::string level_of(const std::string &level) {
    const bool is_raid = !level.empty() && level[0] >= '0' && level[0] <= '9';
    return is_raid ? "raid" + level : level;
}

Thing &add_controller(Machine &machine, const Found &found) {
    const Controller &told = found.controller;
    Thing &thing = machine.add(ThingKind::kController, controller_id(machine, found));
    const auto tell = [&](const char *key, Value value) {
        thing.tell(key, std::move(value), Source::kTool, told.tool);
    };
    thing.tell("name", thing.id(), Source::kDerived);
    thing.tell("type", std::string("controller"), Source::kDerived);
    tell("number", number_of(told.number));
    tell("model", told.model);
    tell("serial", told.serial);
    tell("firmware", told.firmware);
    tell("driver", told.driver);
    tell("pci", told.pci);
    tell("state", told.state);
    tell("temperature", as_value(told.celsius));
    tell("tool", told.tool);
    if (found.adapter != nullptr) {
        thing.tell("driver", found.adapter->driver, Source::kKernel, "/sys/bus/pci/drivers");
        thing.tell("pci", found.adapter->pci, Source::kKernel, "/sys/bus/pci/drivers");
    }
    return thing;
}

Thing &add_logical(Machine &machine, Thing &controller, const LogicalDrive &told, const std::string &tool) {
    const std::string wanted = controller.id() + "/v" + id_part(told.number);
    Thing &thing = machine.add(ThingKind::kLogical, free_id(machine, wanted));
    const auto tell = [&](const char *key, Value value) { thing.tell(key, std::move(value), Source::kTool, tool); };
    thing.tell("type", std::string("logical"), Source::kDerived);
    tell("number", number_of(told.number));
    tell("label", told.label);
    tell("level", level_of(told.level));
    tell("state", told.state);
    tell("wwn", told.naa.empty() ? std::string() : "0x" + told.naa);
    tell("size", as_value(told.bytes));
    tell("tool", tool);
    Machine::relate(thing, RelationKind::kBehind, controller);
    return thing;
}

Thing &add_drive(Machine &machine, Thing &controller, const PhysicalDrive &told, const std::string &tool) {
    Thing &thing = machine.add(ThingKind::kMember, free_id(machine, drive_id(controller.id(), told)));
    const auto tell = [&](const char *key, Value value) { thing.tell(key, std::move(value), Source::kTool, tool); };
    thing.tell("type", std::string(name_of(told.role)), Source::kDerived);
    tell("role", std::string(name_of(told.role)));
    tell("number", number_of(told.device_id));
    tell("model", told.model);
    tell("vendor", told.vendor);
    tell("serial", told.serial);
    tell("firmware", told.firmware);
    tell("wwn", told.wwn.empty() ? std::string() : "0x" + told.wwn);
    tell("state", told.state);
    tell("media", told.media);
    tell("tran", told.interface);
    tell("enclosure", told.enclosure);
    tell("bay", told.slot);
    tell("location", location_of(told));
    tell("size", as_value(told.bytes));
    tell("sector", as_value(told.sector_bytes));
    tell("media_errors", as_value(told.media_errors));
    tell("other_errors", as_value(told.other_errors));
    tell("temperature", as_value(told.celsius));
    if (told.role != Role::kMissing) tell("predictive_failure", told.predictive_failure);
    tell("tool", tool);
    if (told.serial.empty()) {
        thing.lacks("serial", told.role == Role::kMissing ? "there is no drive" : tool + " tells none");
    }
    Machine::relate(thing, RelationKind::kBehind, controller);
    return thing;
}

void relate_drives(const ControllerThings &things, const Controller &told) {
    for (std::size_t i = 0; i < told.logical.size(); ++i) {
        std::vector<std::string> names;
        for (const std::size_t place : told.logical[i].members) {
            if (place >= things.drives.size()) continue;
            Machine::relate(*things.drives[place], RelationKind::kMemberOf, *things.logical[i]);
            names.push_back(things.drives[place]->id());
        }
        for (const std::size_t place : told.logical[i].spares) {
            if (place < things.drives.size()) {
                Machine::relate(*things.drives[place], RelationKind::kSpareFor, *things.logical[i]);
            }
        }
        if (names.empty()) {
            things.logical[i]->lacks("members", told.tool + " does not tell which drives it is made of");
        } else {
            things.logical[i]->tell("members", std::move(names), Source::kTool, told.tool);
        }
    }
}

// What makes the answer incomplete although the tool answered.
void tell_gaps(const ControllerThings &things, const Controller &told) {
    const auto miss = [&](Thing &thing, const char *what, const std::string &words) {
        thing.troubles.push_back({told.tool, what, words, "", true});
    };
    if (!told.drives_told) {
        miss(*things.controller, "drives", "its list of drives could not be read");
    } else if (told.drives.empty()) {
        miss(*things.controller, "drives", "the tool tells of no drives");
    }
    for (std::size_t i = 0; i < told.logical.size(); ++i) {
        const LogicalDrive &logical = told.logical[i];
        if (!logical.members_known && !logical.hidden) {
            miss(*things.logical[i], "members", "which drives belong to it is unknown");
        }
    }
}

} // namespace

ControllerThings add_things(Machine &machine, const Found &found) {
    const Controller &told = found.controller;
    ControllerThings things;
    things.controller = &add_controller(machine, found);
    for (const LogicalDrive &logical : told.logical) {
        things.logical.push_back(&add_logical(machine, *things.controller, logical, told.tool));
    }
    for (const PhysicalDrive &drive : told.drives) {
        things.drives.push_back(&add_drive(machine, *things.controller, drive, told.tool));
    }
    relate_drives(things, told);
    tell_gaps(things, told);
    return things;
}

} // namespace inventory::raid
