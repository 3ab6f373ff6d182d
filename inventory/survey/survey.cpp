#include "inventory/survey/survey.h"

#include "inventory/bays/bays.h"
#include "inventory/drives/drives.h"
#include "inventory/kernel/kernel.h"
#include "inventory/raid/raid.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"

#include <algorithm>

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
    read_kernel(machine, {request.all, {}});
    read_usb(machine);
    read_bays(machine);
    if (request.ask_drives) ask_drives(machine, request);
    settle(machine);
    if (request.raid) {
        read_raid(machine, {request.limit});
        settle(machine);
    }
    relate_identities(machine);
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
