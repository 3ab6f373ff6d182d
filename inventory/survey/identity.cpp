#include "inventory/survey/identity.h"

#include "inventory/kernel/uses.h"

#include <algorithm>
#include <map>
#include <set>

namespace inventory {
namespace {

using Things = std::vector<Thing *>;

bool is_drive(const Thing &thing) { return thing.kind() == ThingKind::kDrive; }

bool differ(const std::string &left, const std::string &right) {
    return !left.empty() && !right.empty() && left != right;
}

// Some bridges and cheap drives carry a WWN that is nobody's own: what else is known of them must not disagree.
bool is_same_unit(const Thing &left, const Thing &right) {
    const auto size = left.number("size");
    const auto other_size = right.number("size");
    const bool same_size = !size || !other_size || *size == *other_size;
    return same_size && !differ(left.text("serial"), right.text("serial")) &&
           !differ(left.text("model"), right.text("model"));
}

std::vector<std::string> words_of(const Thing &thing, const char *key) {
    const auto *words = std::get_if<std::vector<std::string>>(&thing.value(key));
    return words == nullptr ? std::vector<std::string>() : *words;
}

void replace_fact(Thing &thing, const char *key, Value value, const char *detail) {
    thing.forget(key);
    thing.tell(key, std::move(value), Source::kDerived, detail);
}

// A path that nothing uses leads to the drive that another path is used for.
void share_uses(const Things &paths) {
    std::vector<std::string> users;
    std::string verdict = "free";
    for (const Thing *path : paths) {
        for (const std::string &user : words_of(*path, "used_by")) {
            if (std::find(users.begin(), users.end(), user) == users.end()) users.push_back(user);
        }
        if (!path->text("verdict").empty()) verdict = graver(verdict, path->text("verdict"));
    }
    for (Thing *path : paths) {
        if (!users.empty()) replace_fact(*path, "used_by", users, "all paths");
        if (!path->text("verdict").empty()) replace_fact(*path, "verdict", verdict, "all paths");
    }
}

void relate_paths(const Things &paths) {
    for (Thing *path : paths) {
        std::vector<std::string> others;
        for (const Thing *other : paths) {
            if (other != path) others.push_back(other->id());
        }
        replace_fact(*path, "paths", others, "wwn");
        if (path != paths.front()) Machine::relate(*path, RelationKind::kPathOf, *paths.front());
    }
    share_uses(paths);
}

// Of the drives with one WWN, those that are the first one's paths, then the same for the rest.
void split_paths(Things drives) {
    const auto less = [](const Thing *left, const Thing *right) { return natural_less(left->id(), right->id()); };
    std::sort(drives.begin(), drives.end(), less);
    while (drives.size() > 1) {
        const auto rest = std::stable_partition(
            drives.begin(), drives.end(), [&](const Thing *drive) { return is_same_unit(*drives.front(), *drive); });
        const Things paths(drives.begin(), rest);
        if (paths.size() > 1) relate_paths(paths);
        drives.erase(drives.begin(), rest);
    }
}

void find_paths(Machine &machine) {
    std::map<std::string, Things> by_wwn;
    for (Thing &thing : machine.things()) {
        const std::string wwn = thing.text("wwn");
        if (is_drive(thing) && !wwn.empty()) by_wwn[wwn].push_back(&thing);
    }
    for (const auto &[wwn, drives] : by_wwn) split_paths(drives);
}

// "0:0:3" of 0:0:3:1: units of one target are one piece of hardware, as the slots of a card reader are.
std::string target_of(const Thing &thing) {
    const std::string address = thing.text("hctl");
    return address.substr(0, address.rfind(':'));
}

// nvme0 of nvme0n2: namespaces share their controller's serial number.
std::string controller_of(const Thing &thing) {
    if (thing.text("tran") != "nvme") return "";
    return thing.id().substr(0, thing.id().find('n', 1));
}

const Thing *controller_behind(const Thing &member) {
    const std::vector<Thing *> controllers = member.related(RelationKind::kBehind);
    return controllers.empty() ? nullptr : controllers.front();
}

// A disk that a RAID controller hands through appears twice: as the tool's member and as the kernel's device.
bool is_member_and_device(const Thing &member, const Thing &device) {
    if (member.kind() != ThingKind::kMember || device.kind() == ThingKind::kMember) return false;
    const std::vector<Thing *> known = member.related(RelationKind::kKnownAs);
    if (std::find(known.begin(), known.end(), &device) != known.end()) return true;
    if (!member.text("wwn").empty() && member.text("wwn") == device.text("wwn")) return true;
    const Thing *controller = controller_behind(member);
    return controller != nullptr && !device.text("pci").empty() && controller->text("pci") == device.text("pci");
}

bool is_one(const Thing &left, const Thing &right) {
    const auto first_path = [](const Thing &thing) {
        const std::vector<Thing *> first = thing.related(RelationKind::kPathOf);
        return first.empty() ? &thing : first.front();
    };
    const auto same = [](const std::string &one, const std::string &other) { return !one.empty() && one == other; };
    return first_path(left) == first_path(right) || same(target_of(left), target_of(right)) ||
           same(controller_of(left), controller_of(right)) || is_member_and_device(left, right) ||
           is_member_and_device(right, left);
}

void find_duplicates(Machine &machine) {
    std::map<std::string, Things> by_serial;
    for (Thing &thing : machine.things()) {
        const bool has_serial =
            is_drive(thing) || thing.kind() == ThingKind::kOptical || thing.kind() == ThingKind::kMember;
        if (has_serial && !thing.text("serial").empty()) by_serial[thing.text("serial")].push_back(&thing);
    }
    for (const auto &[serial, things] : by_serial) {
        for (Thing *thing : things) {
            const bool is_alone =
                std::all_of(things.begin(), things.end(), [&](const Thing *other) { return is_one(*thing, *other); });
            replace_fact(*thing, "duplicate_serial", !is_alone, "serial");
        }
    }
}

} // namespace

void relate_identities(Machine &machine) {
    find_paths(machine);
    find_duplicates(machine);
}

} // namespace inventory
