#include "inventory/survey/survey.h"

#include "inventory/bays/bays.h"
#include "inventory/drives/drives.h"
#include "inventory/kernel/kernel.h"
#include "inventory/raid/raid.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <unordered_map>

namespace inventory {
namespace {

// Telling paths and twins apart, where somebody is shown what could be mistaken.
constexpr std::array<std::string_view, 6> kIdentity{"serial", "wwn", "paths", "duplicate_serial", "used_by", "verdict"};
constexpr std::array<std::string_view, 5> kPaths{"wwn", "paths", "duplicate_serial", "used_by", "verdict"};
// By which paths to one drive are told.
constexpr std::array<const char *, 4> kUnit{"serial", "wwn", "model", "size"};
constexpr std::array<std::string_view, 2> kBays{"bay", "enclosure"};

bool shows_any(const Request &request, std::span<const std::string_view> keys) {
    return request.keys.empty() || std::any_of(request.keys.begin(), request.keys.end(), [keys](const auto &key) {
               return std::find(keys.begin(), keys.end(), key) != keys.end();
           });
}

// What the facts that are shown need of the kernel; the RAID makers' drives are tied by nearly everything.
std::vector<std::string> keys_of(const Request &request) {
    if (request.keys.empty() || request.raid) return {};
    std::vector<std::string> keys = request.keys;
    keys.insert(keys.end(), {"name", "path", "type"});
    if (request.ask_drives) {
        const std::vector<std::string> needed = keys_for_asking(request.keys);
        keys.insert(keys.end(), needed.begin(), needed.end());
    }
    if (shows_any(request, kIdentity)) keys.insert(keys.end(), {"serial", "tran", "hctl"});
    if (shows_any(request, kPaths)) keys.insert(keys.end(), std::begin(kUnit), std::end(kUnit));
    return keys;
}

std::vector<Thing *> chosen(const Machine &machine, const std::vector<std::string> &names) {
    std::vector<Thing *> things;
    for (const std::string &name : names) {
        if (Thing *thing = machine.find(name)) things.push_back(thing);
    }
    return things;
}

// As root all drives are asked, and workers do the reading of their attributes, too.
bool puts_off(const Request &request) { return request.ask_drives && request.only.empty() && geteuid() == 0; }

void ask_drives(Machine &machine, const Request &request, const KernelRequest &kernel, std::vector<Thing *> put_off) {
    const std::vector<Thing *> only = chosen(machine, request.only);
    // Names of which none is a drive: there is nobody to ask.
    if (only.empty() && !request.only.empty()) return;
    read_drives(machine, {request.limit, keys_of(request), request.defects, request.state, only, std::move(put_off),
                          kernel, request.tick});
}

// Drives of one serial number.
std::vector<Thing *> find_twins(Machine &machine) {
    std::unordered_map<std::string, std::vector<Thing *>> by_serial;
    for (Thing &thing : machine.things()) {
        const std::string serial = thing.kind() == ThingKind::kDrive ? thing.text("serial") : "";
        if (!serial.empty()) by_serial[serial].push_back(&thing);
    }
    std::vector<Thing *> twins;
    for (const auto &[serial, drives] : by_serial) {
        if (drives.size() > 1) twins.insert(twins.end(), drives.begin(), drives.end());
    }
    return twins;
}

// Whether drives of one serial number are one drive is told by facts that nobody wants to see: they are read for those.
void read_units(const std::vector<Thing *> &twins, const std::vector<std::string> &known_keys) {
    std::vector<std::string> keys;
    for (const char *key : kUnit) {
        if (std::find(known_keys.begin(), known_keys.end(), key) == known_keys.end()) keys.emplace_back(key);
    }
    const KernelRequest request{false, keys};
    KernelDetails details(request);
    for (Thing *twin : twins) {
        Thing unit = *twin;
        if (!details.read(unit)) continue;
        for (const std::string &key : keys) {
            const Fact *known = twin->fact(key);
            if (known != nullptr && !known->words.empty()) continue;
            const Fact *read = unit.fact(key);
            if (read == nullptr) continue;
            for (const Word &word : read->words) twin->tell(key, word.value, word.source, word.detail);
        }
        settle(*twin);
        const auto known = static_cast<std::ptrdiff_t>(twin->troubles.size());
        twin->troubles.insert(twin->troubles.end(), unit.troubles.begin() + known, unit.troubles.end());
    }
}

void tell_identities(Machine &machine, const Request &request) {
    if (!shows_any(request, kIdentity)) return;
    const std::vector<std::string> keys = keys_of(request);
    if (!keys.empty() && !shows_any(request, kPaths)) read_units(find_twins(machine), keys);
    relate_identities(machine);
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
    const KernelRequest kernel{request.all, keys_of(request), puts_off(request)};
    std::vector<Thing *> put_off = read_kernel(machine, kernel);
    read_usb(machine);
    if (shows_any(request, kBays)) read_bays(machine);
    if (request.ask_drives) ask_drives(machine, request, kernel, std::move(put_off));
    settle(machine);
    if (request.raid) {
        read_raid(machine, {request.limit});
        settle(machine);
    }
    tell_identities(machine, request);
    note_failed(machine);
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
