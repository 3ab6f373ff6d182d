// torvane usb: USB mass storage, and the states its devices can be put in.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "commands/usb_units.h"
#include "inventory/reading/in_use.h"
#include "inventory/survey/survey.h"

#include <algorithm>
#include <memory>
#include <thread>

namespace tool {
namespace {

using inventory::RelationKind;
using inventory::Thing;
using inventory::ThingKind;

constexpr std::chrono::milliseconds kNodePause{50};
const std::vector<std::string> kStates{"unbound", "bound", "node"};
constexpr unsigned kUsbKinds =
    inventory::bit(ThingKind::kUsbInterface) | inventory::bit(ThingKind::kDrive) | inventory::bit(ThingKind::kOptical);

struct UsbOptions {
    ListingOptions output;
    double timeout = kDefaultSeconds;
    std::string text;
    std::string state;
    bool wait = false;
    bool force = false;
};

Node interface_node(const Thing &interface) {
    Node node{&interface, 0, false, {{"devices", {}}}};
    for (const Thing *device : interface.related_to(RelationKind::kOnUsb)) {
        node.branches.front().nodes.push_back({device, inventory::bit(ThingKind::kDrive), false, {}});
    }
    return node;
}

// In this listing a device's state is whether it is bound, and an interface has an enclosure or none.
void name_as_of_usb(Thing &thing) {
    thing.tell("address", thing.text("hctl"), inventory::Source::kDerived);
    thing.tell("state", thing.text("status"), inventory::Source::kDerived);
    if (thing.kind() == ThingKind::kUsbInterface) {
        thing.tell("enclosure", thing.flag("has_enclosure"), inventory::Source::kDerived);
    }
}

int list(const UsbOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kUsbKinds, stdout);
        return kDone;
    }
    const Listing listing(options.output,
                          {"interfaces",
                           kUsbKinds,
                           {"NAME", "TYPE", "ADDRESS", "DRIVER", "STATE", "SIZE", "MODEL", "SERIAL", "ENCLOSURE"}});
    inventory::Machine machine = inventory::survey({});
    std::vector<Node> nodes;
    for (Thing &thing : machine.things()) {
        name_as_of_usb(thing);
        if (thing.kind() == ThingKind::kUsbInterface) nodes.push_back(interface_node(thing));
    }
    std::sort(nodes.begin(), nodes.end(),
              [](const Node &a, const Node &b) { return inventory::natural_less(a.thing->id(), b.thing->id()); });
    const bool any = !nodes.empty();
    listing.print(std::move(nodes), stdout);
    tell(machine.troubles);
    if (!any && machine.troubles.empty() && !options.output.is_json()) complain("no USB storage found");
    return exit_code(machine.troubles, any);
}

// Whether nothing uses the devices; otherwise says who does.
bool may_go(const UsbChoice &choice, const char *what, std::chrono::milliseconds limit) {
    bool may = true;
    for (const Thing *device : choice.devices) {
        for (const std::string &user : users_of(*device)) {
            complain("'" + choice.name + "' is in use: " + user);
            may = false;
        }
        const std::string path = device->text("path");
        if (!may || path.empty()) continue;
        // Containers and services have mounts of their own, and programs hold devices open.
        const inventory::Claim claim = inventory::ask_for_device_alone(path, device->text("maj_min"), limit);
        if (claim.state != inventory::Claim::State::kUsed) continue;
        complain("'" + choice.name + "' is in use: " + claim.words);
        may = false;
    }
    if (!may) complain(std::string("free it first, or ") + what + " it all the same with --force");
    return may;
}

// A change of every device of the choice, in a process that may hang on one without harm.
int change(const UsbOptions &options, const UsbChoice &choice, const std::function<int(ScsiDeviceInfo &unit)> &action,
           const char *what) {
    const Ended ended = run_isolated(
        [&]() -> Wire {
            const std::string words = UsbUnits(choice).for_each(action);
            return words.empty() ? Wire(nullptr) : Wire{{"error", words}};
        },
        to_limit(options.timeout));
    const std::string words = error_of(ended);
    if (words.empty()) return kDone;
    tell({{"cannot " + std::string(what) + " '" + options.text + "'", {}, words, remedy_without_root(), true}});
    return kFailed;
}

// A node beside one that is there fails, and what the failure undoes takes the node of a mounted stick along.
bool has_node_already(const UsbChoice &choice, std::uint32_t state) {
    if (state != STATE_NODE) return false;
    for (const Thing *device : choice.devices) {
        if (device->text("status") != "node") continue;
        complain("'" + choice.name + "' has its node already: " + device->text("path"));
        return true;
    }
    return false;
}

int set_state(const UsbOptions &options) {
    const auto state = std::find(kStates.begin(), kStates.end(), options.state);
    const auto number = static_cast<std::uint32_t>(state - kStates.begin());
    UsbChoice choice;
    if (!choose_usb(options.text, to_limit(options.timeout), choice)) return kFailed;
    if (has_node_already(choice, number)) return kFailed;
    if (!options.force && !may_go(choice, "change", to_limit(options.timeout))) return kFailed;
    return change(
        options, choice, [number](ScsiDeviceInfo &unit) { return change_scsi_device_state(&unit, number); },
        "change the state of");
}

// The time limit of the process that waits ends this.
int wait_for_node(ScsiDeviceInfo &unit) {
    while (has_device_node(&unit) != 1) std::this_thread::sleep_for(kNodePause);
    return 0;
}

int bind(const UsbOptions &options) {
    UsbChoice choice;
    if (!choose_usb(options.text, to_limit(options.timeout), choice)) return kFailed;
    const auto bind_it = [&options](ScsiDeviceInfo &unit) {
        if (bind_scsi_device_to_driver(&unit) != 0) return -1;
        return options.wait ? wait_for_node(unit) : 0;
    };
    return change(options, choice, bind_it, "bind");
}

int wait_until_gone(const std::string &node, std::chrono::milliseconds limit) {
    const auto seconds = static_cast<std::uint32_t>(limit.count() / 1000);
    if (wait_till_file_is_deleted("/dev", node.c_str(), seconds) == 0) return 0;
    set_error_str(TORVANE_ERROR_MOUNT, "unbound, but /dev/%s is still there", node.c_str());
    return -1;
}

int unbind(const UsbOptions &options) {
    UsbChoice choice;
    if (!choose_usb(options.text, to_limit(options.timeout), choice)) return kFailed;
    if (!options.force && !may_go(choice, "unbind", to_limit(options.timeout))) return kFailed;
    const auto unbind_it = [&options](ScsiDeviceInfo &unit) {
        const std::string node = unit.name == nullptr ? "" : unit.name;
        if (unbind_scsi_device_from_driver(&unit) != 0) return -1;
        return options.wait && !node.empty() ? wait_until_gone(node, to_limit(options.timeout)) : 0;
    };
    return change(options, choice, unbind_it, "unbind");
}

} // namespace

void add_usb_command(const Command &tool) {
    const auto options = std::make_shared<UsbOptions>();
    constexpr const char *kWhich = "serial number, device name or any text of it";
    const Command usb = tool.add("usb", "Show USB storage; bind it to its driver or keep it away.",
                                 [options] { return list(*options); });
    usb.listing(options->output);
    usb.add("state", "Put a device into a state: unbound, bound or node.", [options] { return set_state(*options); })
        .argument("SERIAL", options->text, kWhich)
        .argument("STATE", options->state, "unbound, bound, or node: bound and in /dev", true, kStates)
        .flag("--force", options->force, "even when it is in use")
        .timeout(options->timeout);
    usb.add("bind", "Bind a device to its driver.", [options] { return bind(*options); })
        .argument("SERIAL", options->text, kWhich)
        .flag("--wait", options->wait, "wait until its disk is there")
        .timeout(options->timeout);
    usb.add("unbind", "Take a device from its driver.", [options] { return unbind(*options); })
        .argument("SERIAL", options->text, kWhich)
        .flag("--wait", options->wait, "wait until its node is gone")
        .flag("--force", options->force, "even when it is in use")
        .timeout(options->timeout);
}

} // namespace tool
