#include "inventory/bays/bays.h"

#include "inventory/kernel/folder.h"

#include <cerrno>
#include <cstring>

namespace inventory {
namespace {

constexpr const char *kEnclosures = "/sys/class/enclosure";

struct Bay {
    std::string enclosure; // its logical identifier, or its SCSI address where it has none
    std::string number;    // "3", or the label where the enclosure does not count
    Folder folder;

    [[nodiscard]] std::string id() const { return enclosure + "/" + number; }
};

// Calls use(bay) for every bay until that returns false.
template <class Use> void for_each_bay(ReadFailures &failures, Use use) {
    const Folder enclosures(kEnclosures, &failures);
    for (const std::string &name : enclosures.names()) {
        const Folder folder(enclosures, name);
        std::string id = folder.text("id");
        if (id.empty()) id = name;
        for (const std::string &component : folder.names()) {
            Bay bay{id, component, Folder(folder, component)};
            // Fans and power supplies are components too.
            const std::string type = bay.folder.text("type");
            if (type != "device" && type != "array device") continue;
            const std::string slot = bay.folder.text("slot");
            if (!slot.empty()) bay.number = slot;
            if (!use(bay)) return;
        }
    }
}

// The folder of the SCSI device in the bay has one for its block device.
Thing *drive_in(const Machine &machine, const Bay &bay) {
    for (const std::string &name : bay.folder.names("device/block")) {
        if (Thing *drive = machine.find(name)) return drive;
    }
    return nullptr;
}

void tell_position(Thing &thing, const Bay &bay) {
    thing.tell("enclosure", bay.enclosure, Source::kKernel, kEnclosures);
    thing.tell("bay", bay.number, Source::kKernel, kEnclosures);
    settle(thing);
}

void read_bay(Machine &machine, const Bay &bay) {
    // An enclosure with two ways to it comes twice.
    const bool is_new = machine.find(bay.id()) == nullptr;
    Thing &thing = machine.add(ThingKind::kBay, bay.id());
    if (is_new) {
        thing.tell("name", bay.id(), Source::kKernel, kEnclosures);
        thing.tell("type", std::string("bay"), Source::kKernel, kEnclosures);
        tell_position(thing, bay);
    }
    Thing *drive = drive_in(machine, bay);
    if (drive == nullptr) return;
    if (drive->text("bay").empty()) tell_position(*drive, bay);
    Machine::relate(*drive, RelationKind::kInBay, thing);
}

// Calls use(bay) for this thing's bay; false when it is gone.
template <class Use> bool with_bay(const Thing &thing, ReadFailures &failures, Use use) {
    bool found = false;
    for_each_bay(failures, [&](const Bay &bay) {
        if (bay.id() != thing.id()) return true;
        found = true;
        return use(bay);
    });
    return found;
}

} // namespace

void read_bays(Machine &machine) {
    ReadFailures failures;
    for_each_bay(failures, [&](const Bay &bay) {
        read_bay(machine, bay);
        tell_failures(*machine.find(bay.id()), failures);
        return true;
    });
    tell_failures(machine, kEnclosures, failures);
}

void read_light(Thing &thing) {
    ReadFailures failures;
    with_bay(thing, failures, [&thing](const Bay &bay) {
        const auto light = bay.folder.number("locate");
        if (!light) return true;
        thing.forget("locate_led");
        thing.tell("locate_led", *light != 0, Source::kKernel, "locate");
        return false;
    });
    thing.lacks("locate_led", failures.empty() ? "the enclosure does not tell" : std::strerror(failures.front().error));
}

std::string set_locate(const Thing &thing, bool on) {
    int error = 0;
    // Of two ways to an enclosure one that works is enough.
    ReadFailures failures;
    const bool found = with_bay(thing, failures, [&](const Bay &bay) {
        error = bay.folder.write("locate", on ? "1" : "0");
        return error != 0;
    });
    if (!found && !failures.empty()) return failures.front().name + ": " + std::strerror(failures.front().error);
    if (!found) return "no enclosure has a bay '" + thing.id() + "'";
    if (error == ENOENT) return "the enclosure has no locating light for this bay";
    return error == 0 ? "" : std::strerror(error);
}

} // namespace inventory
