#include "raid.h"

#include "records.h"

#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

namespace tool {
namespace {

struct Maker {
    const RaidControllerOps *operations;
    const char *program;
    const char *hardware; // what its driver shows when there is a controller
};

// The library's order.
const Maker kMakers[] = {
    {&lsiOperations, "megacli", "/sys/bus/pci/drivers/megaraid_sas/*:*"},
    {&adaptecOperations, "arcconf", "/sys/bus/pci/drivers/aacraid/*:*"},
};

bool is_on_path(const std::string &program) {
    const char *path = std::getenv("PATH");
    std::istringstream directories(path ? path : "");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        if (access((std::filesystem::path(directory) / program).c_str(), X_OK) == 0) return true;
    }
    return false;
}

bool exists(const char *pattern) {
    glob_t found{};
    const bool any = glob(pattern, GLOB_NOSORT, nullptr, &found) == 0;
    globfree(&found);
    return any;
}

// What tells the kernel's devices apart; held while names are given, to say afterwards why each name fits.
struct Maps {
    InfoMapEntry *models = nullptr;
    uint32_t model_count = 0;
    InfoMapEntry *serials = nullptr;
    uint32_t serial_count = 0;
    PciInfo *slots = nullptr;
    uint32_t slot_count = 0;

    Maps() = default;
    Maps(const Maps &) = delete;
    Maps &operator=(const Maps &) = delete;
    ~Maps() {
        release_info_map(models, static_cast<int>(model_count));
        release_info_map(serials, static_cast<int>(serial_count));
        release_pci_info(slots, static_cast<int>(slot_count));
    }

    bool read() {
        return lookup_pci_info(&slots, &slot_count) == 0 && relate_model_to_drives(&models, &model_count) == 0 &&
               relate_serial_to_drives(&serials, &serial_count) == 0;
    }
};

const char *text_of(const char *text) { return text ? text : ""; }

bool is_made_up(const char *device, const char *prefix) {
    return std::string_view(text_of(device)).starts_with(prefix);
}

const char *match_of(const RaidDriveGroup &group, const Maps &maps) {
    if (is_made_up(group.device, "/dev/raid_")) return "none";
    const std::string ending = std::string(" ") + text_of(group.name);
    for (uint32_t i = 0; i < maps.model_count; ++i) {
        const InfoMapEntry &entry = maps.models[i];
        if (std::strcmp(entry.device, group.device) == 0 && std::string_view(entry.info).ends_with(ending))
            return "model";
    }
    return "pci";
}

const char *match_of(const RaidDrive &drive) { return is_made_up(drive.device, "/dev/sg_raid_") ? "none" : "serial"; }

void put_text(Wire &wire, const char *key, const char *text) {
    wire[key] = text ? Wire(std::string(text)) : Wire(nullptr);
}

Wire drives_to_wire(const RaidDrive *drives, uint32_t count) {
    Wire list = Wire::array();
    for (uint32_t i = 0; i < count; ++i) {
        Wire wire = {{"number", drives[i].number}, {"size", drives[i].size}, {"match", match_of(drives[i])}};
        put_text(wire, "device", drives[i].device);
        put_text(wire, "serial", drives[i].serial);
        put_text(wire, "model", drives[i].model);
        put_text(wire, "location", drives[i].location);
        list.push_back(std::move(wire));
    }
    return list;
}

Wire group_to_wire(const RaidDriveGroup &group, const Maps &maps) {
    Wire wire = {{"controller_number", group.controller_number},
                 {"number", group.logical_number},
                 {"size", group.size},
                 {"match", match_of(group, maps)}};
    put_text(wire, "name", group.name);
    put_text(wire, "device", group.device);
    wire["drives"] = drives_to_wire(group.drives, group.drive_count);
    return wire;
}

Wire controllers_to_wire(const Controllers &controllers, const Maker &maker, const Maps &maps) {
    Wire list = Wire::array();
    for (uint32_t i = 0; i < controllers.count(); ++i) {
        const RaidController &controller = controllers.list()[i];
        Wire wire = {{"maker", maker.operations->name}, {"type", controller.type}, {"number", controller.number}};
        wire["groups"] = Wire::array();
        for (uint32_t g = 0; g < controller.group_count; ++g) {
            wire["groups"].push_back(group_to_wire(controller.groups[g], maps));
        }
        wire["drives"] = drives_to_wire(controller.drives, controller.drive_count);
        list.push_back(std::move(wire));
    }
    return list;
}

std::string raid_words(const char *otherwise) {
    const std::string words = words_about({TORVANE_ERROR_RAID});
    return words.empty() ? otherwise : words;
}

// The steps of get_raids() for one maker, each with its own words for a failure.
Wire read_controllers(const Maker &maker) {
    Controllers controllers;
    if (get_raids_from_card(controllers.list_place(), controllers.count_place(), maker.operations) != 0) {
        return {{"error", raid_words("its output cannot be read")}};
    }
    if (check_raids(controllers.list(), static_cast<int>(controllers.count())) != 0) {
        return {{"error", "a drive without size, serial number or model in its output"}};
    }
    if (controllers.count() == 0) return {{"controllers", Wire::array()}};
    Maps maps;
    if (!maps.read() ||
        assign_names_to_raids(controllers.list(), static_cast<int>(controllers.count()), maps.models, maps.model_count,
                              maps.serials, maps.serial_count, maps.slots, maps.slot_count) != 0) {
        return {{"error", raid_words("the kernel's names of its drives cannot be found")}};
    }
    return {{"controllers", controllers_to_wire(controllers, maker, maps)}};
}

Failure absent(const Maker &maker, bool has_hardware) {
    const std::string why =
        has_hardware ? "not found on the PATH, though there is a controller for it" : "not found on the PATH";
    return {maker.program,
            {},
            why,
            "RAID controllers are read through their makers' tools: install megacli or arcconf",
            true};
}

// A machine with one maker's controllers has one maker's tool; no tool at all is another matter.
void note_absent(std::vector<Failure> &failures) {
    const bool any_present = has_raid_tool();
    for (const Maker &maker : kMakers) {
        const bool has_hardware = exists(maker.hardware);
        if (!is_on_path(maker.program) && (has_hardware || !any_present))
            failures.push_back(absent(maker, has_hardware));
    }
}

char *copy_of(const Wire &wire, const char *key) {
    if (wire.at(key).is_null()) return nullptr;
    char *copy = strdup(wire.at(key).get_ref<const std::string &>().c_str());
    if (!copy) throw std::bad_alloc();
    return copy;
}

template <class T> T *zeroed(std::size_t count) {
    if (count == 0) return nullptr;
    auto *records = static_cast<T *>(std::calloc(count, sizeof(T)));
    if (!records) throw std::bad_alloc();
    return records;
}

void drives_from_wire(const Wire &wire, RaidController *controller, RaidDriveGroup *group, RaidDrive *&drives,
                      uint32_t &count) {
    drives = zeroed<RaidDrive>(wire.size());
    for (const Wire &entry : wire) {
        RaidDrive &drive = drives[count++];
        drive.number = entry.at("number").get<uint32_t>();
        drive.device = copy_of(entry, "device");
        drive.serial = copy_of(entry, "serial");
        drive.model = copy_of(entry, "model");
        drive.location = copy_of(entry, "location");
        drive.size = entry.at("size").get<uint64_t>();
        drive.group = group;
        drive.controller = controller;
    }
}

void groups_from_wire(const Wire &wire, RaidController &controller) {
    controller.groups = zeroed<RaidDriveGroup>(wire.size());
    for (const Wire &entry : wire) {
        RaidDriveGroup &group = controller.groups[controller.group_count++];
        group.name = copy_of(entry, "name");
        group.device = copy_of(entry, "device");
        group.controller_number = entry.at("controller_number").get<int32_t>();
        group.logical_number = entry.at("number").get<int32_t>();
        group.size = entry.at("size").get<uint64_t>();
        group.controller = &controller;
        drives_from_wire(entry.at("drives"), &controller, &group, group.drives, group.drive_count);
    }
}

} // namespace

bool has_raid_tool() {
    return std::any_of(std::begin(kMakers), std::end(kMakers),
                       [](const Maker &maker) { return is_on_path(maker.program); });
}

Wire find_controllers(std::chrono::milliseconds limit, std::vector<Failure> &failures) {
    std::map<const Maker *, Wire> found; // in the order of the makers, whichever tool ends first
    note_absent(failures);
    Isolation isolation(2 * limit); // each tool is run twice
    for (const Maker &maker : kMakers) {
        if (!is_on_path(maker.program)) continue;
        isolation.add({[&maker] { return read_controllers(maker); },
                       [&](const Outcome &outcome) {
                           const bool done = outcome.state == Outcome::State::kDone;
                           if (done && outcome.result.contains("controllers")) {
                               found[&maker] = outcome.result.at("controllers");
                               return;
                           }
                           const std::string words =
                               done ? outcome.result.at("error").get<std::string>() : outcome.words;
                           failures.push_back({maker.program, {}, words, {}, true});
                       }});
    }
    isolation.run();
    Wire all = Wire::array();
    for (const auto &[maker, controllers] : found) all.insert(all.end(), controllers.begin(), controllers.end());
    return all;
}

Controllers controllers_from_wire(const Wire &wire) {
    Controllers controllers;
    *controllers.list_place() = zeroed<RaidController>(wire.size());
    for (const Wire &entry : wire) {
        RaidController &controller = controllers.list()[(*controllers.count_place())++];
        controller.type = entry.at("type").get<uint32_t>();
        controller.number = entry.at("number").get<uint32_t>();
        groups_from_wire(entry.at("groups"), controller);
        drives_from_wire(entry.at("drives"), &controller, nullptr, controller.drives, controller.drive_count);
    }
    return controllers;
}

} // namespace tool
