#include "commands/usb_devices.h"

#include "output/text.h"

#include <algorithm>

namespace tool {
namespace {

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

bool is_usb(const Thing &thing) {
    return thing.kind() == ThingKind::kUsbInterface || !thing.related(RelationKind::kOnUsb).empty();
}

// How many interfaces and devices the library's comparison fits.
std::size_t fitting(const inventory::Machine &machine, const std::string &serial) {
    const auto fits = [&](const Thing &thing) { return is_usb(thing) && thing.text("serial").starts_with(serial); };
    std::vector<const Thing *> found;
    for (const Thing &thing : machine.things()) {
        if (!fits(thing)) continue;
        // A device of an interface that fits is meant with it.
        const std::vector<Thing *> interfaces = thing.related(RelationKind::kOnUsb);
        if (interfaces.empty() || !fits(*interfaces.front())) found.push_back(&thing);
    }
    return found.size();
}

// A stick's interface and its devices are one to people, and so are the slots of a reader that share its number.
void merge_devices(std::vector<Thing *> &things) {
    const auto interface_of = [](const Thing *thing) {
        const std::vector<Thing *> interfaces = thing->related(RelationKind::kOnUsb);
        return interfaces.empty() ? nullptr : interfaces.front();
    };
    const auto is_with_first = [&](const Thing *thing) {
        Thing *interface = interface_of(thing);
        return interface != nullptr && interface == interface_of(things.front()) &&
               interface->text("serial") == thing->text("serial");
    };
    if (things.size() > 1 && std::all_of(things.begin(), things.end(), is_with_first)) {
        things = {interface_of(things.front())};
    }
    std::erase_if(things, [&](const Thing *thing) {
        const std::vector<Thing *> interfaces = thing->related(RelationKind::kOnUsb);
        return !interfaces.empty() && std::find(things.begin(), things.end(), interfaces.front()) != things.end();
    });
}

void add_users(const Thing &thing, std::vector<std::string> &users) {
    const std::string name = short_name(thing.text("name"));
    const auto words = [&](const char *key) {
        const auto *list = std::get_if<std::vector<std::string>>(&thing.value(key));
        return list == nullptr ? std::vector<std::string>() : *list;
    };
    for (const std::string &point : words("mount_points")) {
        users.push_back(name + (point == "[SWAP]" ? " holds swap space" : " is mounted on " + point));
    }
    for (const std::string &holder : words("holders")) users.push_back(name + " is part of " + holder);
}

} // namespace

std::vector<std::string> users_of(const Thing &device) {
    std::vector<std::string> users;
    add_users(device, users);
    for (const Thing *part : device.related_to(RelationKind::kPartOf)) add_users(*part, users);
    return users;
}

bool choose_usb(const std::string &text, std::chrono::milliseconds limit, UsbChoice &choice) {
    Found found = look_up(text, limit, is_usb);
    merge_devices(found.things);
    Thing *thing = only_one(found, text, "USB storage, which 'torvane usb' lists");
    if (thing == nullptr) return false;
    const bool is_interface = thing->kind() == ThingKind::kUsbInterface;
    choice.interface = is_interface ? thing : thing->related(RelationKind::kOnUsb).front();
    choice.devices = is_interface ? thing->related_to(RelationKind::kOnUsb) : std::vector<Thing *>{thing};
    choice.serial = thing->text("serial");
    choice.machine = std::move(found.machine);
    if (choice.serial.empty()) {
        complain("'" + text + "' has no serial number, and only by one can its state be changed");
        return false;
    }
    if (fitting(choice.machine, choice.serial) == 1) return true;
    complain("the serial number " + choice.serial + " of '" + text +
             "' begins another one's: which of them is meant cannot be told");
    return false;
}

} // namespace tool
