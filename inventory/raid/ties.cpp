#include "inventory/raid/ties.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <set>

namespace inventory::raid {
namespace {

// What ties need of a kernel device, read once.
struct Device {
    Thing *thing = nullptr;
    std::string wwn;
    std::string serial;
    std::string pci;
    std::string driver;
    std::string model;
    unsigned channel = 0;
    unsigned target = 0;
    bool has_address = false;
    std::optional<std::uint64_t> size;
    bool taken = false;
};

// host:channel:target:unit; of a unit other than 0 nothing is told by channel and target.
void read_address(Device &device) {
    std::vector<std::uint64_t> parts;
    std::string rest = device.thing->text("hctl");
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        parts.push_back(whole_number(rest.substr(0, end)).value_or(~0ULL));
        rest.erase(0, std::min(end + 1, rest.size()));
    }
    device.has_address = parts.size() == 4 && parts[1] < 256 && parts[2] < 4096 && parts[3] == 0;
    if (!device.has_address) return;
    device.channel = static_cast<unsigned>(parts[1]);
    device.target = static_cast<unsigned>(parts[2]);
}

std::string reversed_bytes(const std::string &hex) {
    std::string result;
    for (std::size_t i = hex.size(); i >= 2; i -= 2) result += hex.substr(i - 2, 2);
    return result;
}

// A source's own word of a serial, not what another tool made of it: only words of kernel and drive are compared.
bool is_serial(const std::string &told, const std::string &device) { return !told.empty() && same_word(told, device); }

class Ties {
  public:
    Ties(Machine &machine, const std::vector<Tied> &controllers, const std::vector<GenericNode> &generics)
        : controllers_(controllers), generics_(generics) {
        for (Thing &thing : machine.things()) {
            if (thing.kind() != ThingKind::kDrive) continue;
            Device device;
            device.thing = &thing;
            device.wwn = world_wide_name(thing.text("wwn"));
            device.serial = trimmed(thing.text("serial"));
            device.pci = thing.text("pci");
            device.driver = thing.text("driver");
            device.model = trimmed(thing.text("model"));
            device.size = thing.number("size");
            read_address(device);
            devices_.push_back(std::move(device));
        }
        for (const Tied &tied : controllers) {
            for (std::size_t i = 0; i < tied.things.drives.size(); ++i)
                ++serials_[lower(tied.found.controller.drives[i].serial)];
        }
    }

    // The surest way first for all of them, so that a guess for one never takes what another one surely is.
    void tie() {
        using Way = Device *(Ties::*)(const Tied &, const LogicalDrive &);
        using DriveWay = Device *(Ties::*)(const Tied &, const PhysicalDrive &);
        constexpr std::pair<Way, const char *> kLogicalWays[] = {
            {&Ties::by_wwn, "wwn"},
            {&Ties::by_serial, "serial"},
            {&Ties::by_name, "name"},
            {&Ties::by_address, "address"},
        };
        constexpr std::pair<DriveWay, const char *> kDriveWays[] = {
            {&Ties::by_wwn, "wwn"},
            {&Ties::by_serial, "serial"},
            {&Ties::by_name, "name"},
            {&Ties::by_address, "address"},
        };
        constexpr std::pair<Way, const char *> kGuesses[] = {{&Ties::by_label, "model"}, {&Ties::by_size, "size"}};
        for (const auto &[way, match] : kLogicalWays) tie_logical(way, match);
        for (const auto &[way, match] : kDriveWays) tie_drives(way, match);
        for (const auto &[way, match] : kGuesses) tie_logical(way, match);
        for (const Tied &tied : controllers_) name_rest(tied);
    }

  private:
    template <class Way> void tie_logical(Way way, const char *match) {
        for (const Tied &tied : controllers_) {
            for (std::size_t i = 0; i < tied.things.logical.size(); ++i) {
                Thing &thing = *tied.things.logical[i];
                if (!thing.related(RelationKind::kKnownAs).empty()) continue;
                Device *device = (this->*way)(tied, tied.found.controller.logical[i]);
                if (device == nullptr) continue;
                know_as(thing, *device, match, tied.found.controller.tool);
                check_size(thing, *device, tied.found.controller.logical[i], tied.found.controller.tool);
            }
        }
    }

    template <class Way> void tie_drives(Way way, const char *match) {
        for (const Tied &tied : controllers_) {
            for (std::size_t i = 0; i < tied.things.drives.size(); ++i) {
                Thing &thing = *tied.things.drives[i];
                const PhysicalDrive &drive = tied.found.controller.drives[i];
                if (drive.role == Role::kMissing || !thing.related(RelationKind::kKnownAs).empty()) continue;
                Device *device = (this->*way)(tied, drive);
                if (device != nullptr) know_as(thing, *device, match, tied.found.controller.tool);
            }
        }
    }

    static void know_as(Thing &thing, Device &device, const char *match, const std::string &tool) {
        device.taken = true;
        Machine::relate(thing, RelationKind::kKnownAs, *device.thing);
        thing.tell("name", device.thing->text("name"), Source::kKernel, "/sys");
        thing.tell("match", std::string(match), Source::kDerived, tool);
        if (device.size) thing.tell("size", *device.size, Source::kKernel, "size");
    }

    // Rounded to three digits, and GB may mean either thousand: a tenth and more is another device, or a wrong answer.
    static void check_size(Thing &thing, const Device &device, const LogicalDrive &logical, const std::string &tool) {
        if (!logical.bytes || !device.size || *logical.bytes == 0) return;
        const double ratio = static_cast<double>(*device.size) / static_cast<double>(*logical.bytes);
        if (ratio > 0.88 && ratio < 1.13) return;
        thing.troubles.push_back({tool, "size",
                                  "the tool tells " + std::to_string(*logical.bytes) + " bytes, the kernel's " +
                                      device.thing->text("name") + " has " + std::to_string(*device.size),
                                  "check which device it is before it is touched", false});
    }

    // The one free device that fits; none when several do.
    Device *only(const std::function<bool(const Device &)> &fits) {
        Device *found = nullptr;
        for (Device &device : devices_) {
            if (device.taken || !fits(device)) continue;
            if (found != nullptr) return nullptr;
            found = &device;
        }
        return found;
    }

    // Several paths to one drive answer with one name each: the first stands for all.
    Device *first(const std::function<bool(const Device &)> &fits) {
        const auto found = std::find_if(devices_.begin(), devices_.end(),
                                        [&](const Device &device) { return !device.taken && fits(device); });
        return found == devices_.end() ? nullptr : &*found;
    }

    static bool is_behind(const Device &device, const Tied &tied) {
        return !tied.found.controller.pci.empty() && device.pci == tied.found.controller.pci;
    }

    // Without its address: any device of a driver that the tool manages.
    static bool may_be_behind(const Device &device, const Tied &tied) {
        if (!tied.found.controller.pci.empty() && !device.pci.empty()) return is_behind(device, tied);
        const auto &drivers = tied.found.tool->drivers;
        return std::any_of(drivers.begin(), drivers.end(), [&](const char *driver) { return device.driver == driver; });
    }

    Device *by_wwn(const Tied &, const LogicalDrive &logical) {
        return logical.naa.empty() ? nullptr : first([&](const Device &device) { return device.wwn == logical.naa; });
    }
    Device *by_wwn(const Tied &, const PhysicalDrive &drive) {
        // The name of a port or one that the controller made up is nobody's; the serials must not contradict.
        return drive.wwn.empty() ? nullptr : first([&](const Device &device) {
            const bool contradicts =
                !drive.serial.empty() && !device.serial.empty() && !fits_cut(drive.serial, device.serial);
            return device.wwn == drive.wwn && !contradicts;
        });
    }
    Device *by_serial(const Tied &tied, const LogicalDrive &logical) {
        if (logical.serial.empty()) return nullptr;
        const std::string other = reversed_bytes(logical.serial);
        return only([&](const Device &device) {
            return may_be_behind(device, tied) &&
                   (is_serial(logical.serial, device.serial) || is_serial(other, device.serial));
        });
    }
    Device *by_serial(const Tied &, const PhysicalDrive &drive) {
        // Two drives with one serial number: neither is told by it.
        if (drive.serial.empty() || serials_[lower(drive.serial)] > 1) return nullptr;
        return only([&](const Device &device) { return is_serial(drive.serial, device.serial); });
    }
    template <class Drive> Device *by_name(const Tied &, const Drive &drive) {
        constexpr std::string_view kFolder = "/dev/";
        if (!drive.kernel_device.starts_with(kFolder)) return nullptr;
        const std::string id = drive.kernel_device.substr(kFolder.size());
        return first([&](const Device &device) { return device.thing->id() == id && !contradicts(drive, device); });
    }
    template <class Drive> Device *by_address(const Tied &tied, const Drive &drive) {
        if (!drive.scsi_channel || !drive.scsi_target) return nullptr;
        const auto fits = [&](const Device &device) {
            return device.has_address && device.channel == *drive.scsi_channel && device.target == *drive.scsi_target &&
                   !contradicts(drive, device);
        };
        if (!tied.found.controller.pci.empty()) {
            return only([&](const Device &device) { return is_behind(device, tied) && fits(device); });
        }
        return only([&](const Device &device) { return may_be_behind(device, tied) && fits(device); });
    }
    // Adapters of the aacraid kind give the logical drive's name as the model.
    Device *by_label(const Tied &tied, const LogicalDrive &logical) {
        if (logical.hidden || logical.label.empty()) return nullptr;
        return only([&](const Device &device) {
            return may_be_behind(device, tied) && device.model == logical.label.substr(0, 16) &&
                   is_size(logical, device);
        });
    }
    // A guess, and it says so: the only device of this size for the only logical drive of this size.
    Device *by_size(const Tied &tied, const LogicalDrive &logical) {
        if (logical.hidden || !logical.bytes) return nullptr;
        Device *device =
            only([&](const Device &other) { return may_be_behind(other, tied) && is_size(logical, other); });
        if (device == nullptr) return nullptr;
        std::size_t alike = 0;
        for (const Tied &other : controllers_) {
            for (std::size_t i = 0; i < other.things.logical.size(); ++i) {
                const bool tied_already = !other.things.logical[i]->related(RelationKind::kKnownAs).empty();
                if (!tied_already && is_size(other.found.controller.logical[i], *device)) ++alike;
            }
        }
        return alike == 1 ? device : nullptr;
    }

    static bool is_size(const LogicalDrive &logical, const Device &device) {
        if (!logical.bytes || !device.size) return false;
        if (logical.bytes_exact) return *logical.bytes == *device.size;
        const double ratio = static_cast<double>(*device.size) / static_cast<double>(*logical.bytes);
        return std::abs(ratio - 1) < 0.006; // three digits
    }

    // The kernel's serial may be the beginning of the drive's (SCSI), or the drive's be padded by the tool.
    static bool fits_cut(const std::string &one, const std::string &other) {
        const std::string a = lower(one);
        const std::string b = lower(other);
        return a.starts_with(b) || b.starts_with(a);
    }

    static bool contradicts(const LogicalDrive &logical, const Device &device) {
        return !logical.naa.empty() && !device.wwn.empty() && device.wwn.size() == logical.naa.size() &&
               device.wwn != logical.naa;
    }
    static bool contradicts(const PhysicalDrive &drive, const Device &device) {
        return !drive.serial.empty() && !device.serial.empty() && !fits_cut(drive.serial, device.serial);
    }

    void name_rest(const Tied &tied) {
        for (Thing *thing : tied.things.logical) {
            if (!thing->related(RelationKind::kKnownAs).empty()) continue;
            thing->tell("name", thing->id(), Source::kDerived);
            thing->tell("match", std::string("none"), Source::kDerived);
        }
        for (std::size_t i = 0; i < tied.things.drives.size(); ++i) {
            Thing &thing = *tied.things.drives[i];
            if (!thing.related(RelationKind::kKnownAs).empty()) continue;
            const GenericNode *generic = generic_of(tied.found.controller.drives[i]);
            thing.tell("name", generic == nullptr ? thing.id() : generic->node, Source::kDerived);
            thing.tell("match", std::string(generic == nullptr ? "none" : "serial"), Source::kDerived);
        }
        for (Thing *thing : tied.things.drives) {
            const std::vector<Thing *> logical = thing->related(RelationKind::kMemberOf);
            if (logical.empty()) continue;
            thing->tell("raid_device", logical.front()->text("name"), Source::kTool, tied.found.controller.tool);
        }
    }

    // A SCSI generic node alone leads to a drive that the controller keeps to itself.
    const GenericNode *generic_of(const PhysicalDrive &drive) {
        const GenericNode *found = nullptr;
        if (drive.serial.empty() || serials_[lower(drive.serial)] > 1) return nullptr;
        for (const GenericNode &node : generics_) {
            if (!is_serial(drive.serial, node.serial)) continue;
            if (found != nullptr) return nullptr;
            found = &node;
        }
        return found;
    }

    const std::vector<Tied> &controllers_;
    const std::vector<GenericNode> &generics_;
    std::vector<Device> devices_;
    std::map<std::string, std::size_t> serials_; // how many drives have it
};

} // namespace

void tie_to_kernel(Machine &machine, const std::vector<Tied> &controllers, const std::vector<GenericNode> &generics) {
    Ties(machine, controllers, generics).tie();
}

} // namespace inventory::raid
