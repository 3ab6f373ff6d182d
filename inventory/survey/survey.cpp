#include "inventory/survey/survey.h"

#include "inventory/bays/bays.h"
#include "inventory/drives/drives.h"
#include "inventory/kernel/kernel.h"
#include "inventory/raid/raid.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace inventory {
namespace {

std::vector<Thing *> chosen(const Machine &machine, const std::vector<std::string> &names) {
    std::vector<Thing *> things;
    for (const std::string &name : names) {
        if (Thing *thing = machine.find(name)) things.push_back(thing);
    }
    return things;
}

void ask_drives(Machine &machine, const Request &request) {
    const std::vector<Thing *> only = chosen(machine, request.only);
    // Names of which none is a drive: there is nobody to ask.
    if (only.empty() && !request.only.empty()) return;
    read_drives(machine, {request.limit, request.defects, request.state, only, request.tick});
}

// Telling paths and twins apart, where somebody is shown what could be mistaken.
constexpr std::array<std::string_view, 4> kIdentity{"serial", "wwn", "paths", "duplicate_serial"};

bool needs_identity(const Request &request) {
    return request.keys.empty() || std::any_of(request.keys.begin(), request.keys.end(), [](const std::string &key) {
               return std::find(kIdentity.begin(), kIdentity.end(), key) != kIdentity.end();
           });
}

// What the facts that are shown need of the kernel; the RAID makers' drives are tied by nearly everything.
std::vector<std::string> keys_of(const Request &request) {
    if (request.keys.empty() || request.raid) return {};
    std::vector<std::string> keys = request.keys;
    keys.insert(keys.end(), {"name", "path", "type"});
    if (request.ask_drives) keys.insert(keys.end(), {"maj_min", "diskseq", "kind", "tran", "removable", "model"});
    if (needs_identity(request)) keys.insert(keys.end(), {"serial", "wwn", "model", "size", "tran", "hctl", "pci"});
    return keys;
}

bool shows_bays(const Request &request) {
    const auto is_of_bay = [](const std::string &key) { return key == "bay" || key == "enclosure"; };
    return request.keys.empty() || std::any_of(request.keys.begin(), request.keys.end(), is_of_bay);
}

void note_failed(Machine &machine) {
    for (Thing &thing : machine.things()) {
        std::vector<std::string> words;
        for (const Trouble &trouble : thing.troubles) {
            const std::string what = trouble.what.empty() ? "device" : trouble.what;
            const bool is_new = std::find(words.begin(), words.end(), what) == words.end();
            if (trouble.essential && is_new) words.push_back(what);
        }
        thing.tell("failed", std::move(words), Source::kDerived);
    }
}

} // namespace

Machine survey(const Request &request) {
    Machine machine;
    read_kernel(machine, {request.all, keys_of(request)});
    read_usb(machine);
    if (shows_bays(request)) read_bays(machine);
    if (request.ask_drives) ask_drives(machine, request);
    settle(machine);
    if (request.raid) {
        read_raid(machine, {request.limit});
        settle(machine);
    }
    if (needs_identity(request)) relate_identities(machine);
    note_failed(machine);
    settle(machine);
    return machine;
}

std::vector<Trouble> all_troubles(const Machine &machine) {
    std::vector<Trouble> troubles = machine.troubles;
    for (const Thing &thing : machine.things()) {
        troubles.insert(troubles.end(), thing.troubles.begin(), thing.troubles.end());
    }
    return troubles;
}

} // namespace inventory
