#include "commands/usb_devices.h"

#include "commands/devices.h"
#include "output/text.h"

#include <algorithm>
#include <thread>

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kSettling{5000};
constexpr std::chrono::milliseconds kSettlingPause{200};

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

// A stick's interface and its only device are one to people, and a card reader's serial number means all of it.
void merge_devices(std::vector<Thing *> &things, const std::string &text) {
    for (Thing *&thing : things) {
        const std::vector<Thing *> interfaces = thing->related(RelationKind::kOnUsb);
        const bool is_meant = !interfaces.empty() && interfaces.front()->text("serial").starts_with(text) &&
                              (thing->text("serial") == interfaces.front()->text("serial") ||
                               std::find(things.begin(), things.end(), interfaces.front()) != things.end());
        if (is_meant) thing = interfaces.front();
    }
    std::sort(things.begin(), things.end());
    things.erase(std::unique(things.begin(), things.end()), things.end());
}

bool choose_once(const std::string &text, std::chrono::milliseconds limit, UsbChoice &choice) {
    Found found = look_up(text, limit, is_usb);
    merge_devices(found.things, text);
    Thing *thing = only_one(found, text, "USB storage, which 'torvane usb' lists");
    if (thing == nullptr) return false;
    const bool is_interface = thing->kind() == ThingKind::kUsbInterface;
    choice.interface = is_interface ? thing : thing->related(RelationKind::kOnUsb).front();
    choice.devices = is_interface ? thing->related_to(RelationKind::kOnUsb) : std::vector<Thing *>{thing};
    choice.name = thing->text("serial").empty() ? thing->id() : thing->text("serial");
    choice.machine = std::move(found.machine);
    return true;
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
    const auto end = Clock::now() + std::min(limit, kSettling);
    bool is_one = choose_once(text, limit, choice);
    while (is_one && choice.devices.empty() && Clock::now() < end) {
        std::this_thread::sleep_for(kSettlingPause);
        is_one = choose_once(text, limit, choice);
    }
    if (is_one && choice.devices.empty()) complain("'" + choice.name + "' has no device of storage");
    return is_one && !choice.devices.empty();
}

} // namespace tool
