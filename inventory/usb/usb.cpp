#include "inventory/usb/usb.h"

#include "inventory/kernel/block.h"
#include "inventory/kernel/pages.h"

#include <sys/stat.h>

#include <algorithm>

namespace inventory {
namespace {

constexpr const char *kUsbDevices = "/sys/bus/usb/devices";
constexpr const char *kMassStorage = "08"; // USB class codes

// Peripheral device types (SPC, standard INQUIRY data).
enum : std::uint64_t { kDisk = 0, kCdDvd = 5, kOpticalMemory = 7, kEnclosureServices = 13, kSimplifiedDisk = 14 };

struct Unit {
    std::string address; // "6:0:0:0"
    std::uint64_t type = kDisk;
    Folder folder;
};

struct Interface {
    std::string address;
    std::string driver; // "" while it is unbound
    Folder folder;
    Folder device;
    Place place;
};

bool is_storage_driver(std::string_view driver) {
    // The ums-... drivers are usb-storage with initialization for some card readers.
    return driver == "usb-storage" || driver == "uas" || driver.starts_with("ums-");
}

bool is_address(const std::string &name) { return std::count(name.begin(), name.end(), ':') == 3; }

// The folders in this one whose names begin so.
std::vector<Folder> below(const Folder &folder, std::string_view beginning) {
    std::vector<Folder> found;
    for (const std::string &name : folder.names()) {
        if (name.starts_with(beginning)) found.emplace_back(folder, name);
    }
    return found;
}

std::vector<Unit> units_of(const Folder &interface) {
    std::vector<Unit> units;
    for (const Folder &host : below(interface, "host")) {
        for (const Folder &target : below(host, "target")) {
            for (const std::string &name : target.names()) {
                if (!is_address(name)) continue;
                Unit unit{name, kDisk, Folder(target, name)};
                unit.type = unit.folder.number("type").value_or(kDisk);
                units.push_back(std::move(unit));
            }
        }
    }
    return units;
}

bool is_drive(const Unit &unit) {
    return unit.type == kDisk || unit.type == kCdDvd || unit.type == kOpticalMemory || unit.type == kSimplifiedDisk;
}

bool has_node(const std::string &name) {
    struct stat about = {};
    return stat(("/dev/" + name).c_str(), &about) == 0 && S_ISBLK(about.st_mode);
}

// A drive that no driver of disks has taken, or whose block device this process is not shown.
Thing &add_bare_drive(Machine &machine, const Interface &interface, const Unit &unit) {
    const ThingKind kind = unit.type == kCdDvd ? ThingKind::kOptical : ThingKind::kDrive;
    Thing &thing = machine.add(kind, unit.address);
    const auto tell = [&thing](const char *key, std::string text) {
        thing.tell(key, std::move(text), Source::kKernel, "path in /sys");
    };
    tell("name", unit.address);
    tell("type", kind == ThingKind::kOptical ? "optical" : "disk");
    tell("hctl", unit.address);
    tell("tran", scsi_transport(interface.place, interface.driver));
    tell("port", port_of(interface.place));
    tell("pci", interface.place.pci);
    tell("driver", interface.driver);
    tell_scsi_unit(thing, unit.folder, Wanted({}));
    thing.lacks("size", "the kernel has made no block device of it");
    return thing;
}

void read_unit(Machine &machine, Thing &owner, const Interface &interface, const Unit &unit) {
    const std::vector<std::string> names = unit.folder.names("block");
    Thing *known = names.empty() ? nullptr : machine.find(names.front());
    Thing &thing = known == nullptr ? add_bare_drive(machine, interface, unit) : *known;
    Machine::relate(thing, RelationKind::kOnUsb, owner);
    // Bound is what a driver of disks has taken; whoever makes nodes may not have come to it.
    const bool is_bound = !names.empty() || !unit.folder.link("driver").empty();
    const bool is_named = !names.empty() && has_node(names.front());
    thing.tell("status", std::string(is_named ? "node" : is_bound ? "bound" : "unbound"), Source::kKernel, "block");
    const Fact *serial = thing.fact("serial");
    if (serial == nullptr || serial->words.empty()) {
        thing.tell("serial", owner.text("serial"), Source::kKernel, "serial of " + owner.id());
    }
    settle(thing);
}

// A serial number of the unit's own that is not the USB device's: a bridge with somebody else's disk in it.
bool has_foreign_serial(const Folder &unit, const std::string &serial) {
    Thing own(ThingKind::kDrive, "");
    own.tell("serial", serial_of_page(unit.bytes("vpd_pg80").value_or("")), Source::kIdentity);
    return !serial.empty() && !own.text("serial").empty() && !own.text("serial").starts_with(serial);
}

// Card readers and bridges: several units, one with a serial number of its own, or one without a medium.
bool is_adapter(const std::vector<Unit> &units, bool has_enclosure, const std::string &serial) {
    if (units.size() > 1) return !has_enclosure;
    if (units.empty()) return false;
    const Unit &unit = units.front();
    if (has_foreign_serial(unit.folder, serial)) return true;
    if (unit.type == kCdDvd) return false;
    const std::vector<std::string> names = unit.folder.names("block");
    return !names.empty() && unit.folder.number(("block/" + names.front() + "/size").c_str()) == 0;
}

void read_interface(Machine &machine, const Interface &interface) {
    Thing &thing = machine.add(ThingKind::kUsbInterface, interface.address);
    const auto tell = [&thing](const char *key, std::string text, const char *detail) {
        thing.tell(key, std::move(text), Source::kKernel, detail);
    };
    const std::vector<Unit> units = units_of(interface.folder);
    const auto is_enclosure = [](const Unit &unit) { return unit.type == kEnclosureServices; };
    const bool has_enclosure = units.size() == 2 && std::count_if(units.begin(), units.end(), is_enclosure) == 1;
    tell("name", interface.address, kUsbDevices);
    tell("type", is_adapter(units, has_enclosure, interface.device.text("serial")) ? "adapter" : "device", kUsbDevices);
    tell("model", interface.device.text("manufacturer") + " " + interface.device.text("product"), "product");
    tell("serial", interface.device.text("serial"), "serial");
    tell("driver", interface.driver, "driver");
    tell("port", interface.place.usb_port, kUsbDevices);
    thing.tell("has_enclosure", has_enclosure, Source::kKernel, "type");
    thing.lacks("serial", "the device has none");
    settle(thing);
    for (const Unit &unit : units) {
        if (is_drive(unit)) read_unit(machine, thing, interface, unit);
    }
}

void read_candidate(Machine &machine, const Folder &devices, const std::string &name) {
    Interface interface {
        name, "", Folder(devices, name), {}, {}
    };
    interface.driver = last_part(interface.folder.link("driver"));
    const bool is_free = interface.driver.empty() && interface.folder.text("bInterfaceClass") == kMassStorage;
    if (!is_free && !is_storage_driver(interface.driver)) return;
    interface.device = Folder(devices, name.substr(0, name.find(':')));
    // A trailing part: the place is read off the folders above a device.
    interface.place = place_of(devices.link(name.c_str()) + "/host");
    read_interface(machine, interface);
}

} // namespace

void read_usb(Machine &machine) {
    ReadFailures failures;
    const Folder devices(kUsbDevices, &failures);
    const std::vector<std::string> names = devices.names();
    tell_failures(machine, kUsbDevices, failures);
    for (const std::string &name : names) {
        if (name.find(':') == std::string::npos) continue;
        read_candidate(machine, devices, name);
        Thing *thing = machine.find(name);
        if (thing != nullptr) tell_failures(*thing, failures);
        tell_failures(machine, name, failures);
    }
}

} // namespace inventory
