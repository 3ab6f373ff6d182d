// torvane mount, umount: what is on a USB stick.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/mount_directory.h"
#include "commands/usb_units.h"
#include "output/table.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

namespace tool {
namespace {

namespace fs = std::filesystem;
using inventory::RelationKind;
using inventory::Thing;

constexpr std::chrono::milliseconds kClearing{5000};

struct MountOptions {
    bool json = false;
    double timeout = kDefaultSeconds;
    std::string target;
};

// "" or why not.
std::string check_unit(const ScsiDeviceInfo &unit) {
    if (unit.state == STATE_UNBOUND) return "not bound to its driver: 'torvane usb bind' binds it";
    char **names = nullptr;
    std::uint32_t count = 0;
    if (unit.name == nullptr || get_partition_names(&names, &count, unit.name) != 0) return words_of_failure();
    const int bad = check_single_node_for_bad_filesystem(&unit, names, count);
    release_partition_names(names, &count);
    if (bad == 1) return "it has a file system of its own and partitions as well, which could be read either way";
    return bad == 0 ? "" : words_of_failure();
}

std::string mount_below(const UsbChoice &choice, const std::string &directory) {
    const UsbUnits units(choice);
    return units.for_each([&](ScsiDeviceInfo &unit) {
        const std::string words = check_unit(unit);
        if (!words.empty()) set_error_str(TORVANE_ERROR_MOUNT, "%s", words.c_str());
        if (!words.empty() || add_scsi_device_nodes_at(&unit, directory.c_str()) != 0) return -1;
        if (mount_all_devices(directory.c_str()) != 0) return -1;
        const std::string trouble = harden_mounts(directory);
        if (trouble.empty()) return 0;
        set_error_str(TORVANE_ERROR_MOUNT, "%s", trouble.c_str());
        return -1;
    });
}

// In a process of its own; "" or why not.
std::string in_a_process(const std::function<std::string()> &action, std::chrono::milliseconds limit) {
    const Ended ended = run_isolated(
        [&action]() -> Wire {
            const std::string words = action();
            return words.empty() ? Wire(nullptr) : Wire{{"error", words}};
        },
        limit);
    return error_of(ended);
}

bool is_extended(const Thing &part) {
    const std::string type = part.text("part_type");
    return type == "0x5" || type == "0xf" || type == "0x85";
}

std::string contents_of(const Thing &thing) {
    const std::string type = thing.text("fs_type");
    return short_name(thing.text("name")) + (type.empty() ? " has no file system that is known here" : " has " + type);
}

// What the stick holds, for people whose mount failed with a number.
std::string contents_of(const UsbChoice &choice) {
    const Thing &device = *choice.devices.front();
    std::string words;
    for (const Thing *part : device.related_to(RelationKind::kPartOf)) {
        words += (words.empty() ? "" : "; ") + contents_of(*part);
    }
    return words.empty() ? contents_of(device) : words;
}

int failed(const std::string &target, const std::string &words) {
    tell({{target, {}, words, remedy_without_root(), true}});
    return kFailed;
}

// What cannot be mounted whoever tries; "" for what may be.
std::string objection_to(const UsbChoice &choice) {
    if (choice.devices.size() > 1) return "has several devices: name one of them";
    const Thing &device = *choice.devices.front();
    if (device.number("size") == 0U) return "has no medium";
    for (const Thing *part : device.related_to(RelationKind::kPartOf)) {
        if (!is_extended(*part)) continue;
        return short_name(part->text("name")) +
               " is an extended partition, which holds no file system itself: nothing is mounted";
    }
    return {};
}

// Of a mount that failed, or whose process had to be killed.
void clear(const std::string &directory) {
    const std::string words = in_a_process([&directory] { return end_mounts(directory); }, kClearing);
    if (words.empty()) return;
    complain(directory + ": is left behind: " + words + "; 'torvane umount " + directory + "' removes it");
}

int mount(const MountOptions &options) {
    const auto limit = to_limit(options.timeout);
    UsbChoice choice;
    if (!choose_usb(options.target, limit, choice)) return kFailed;
    if (const std::string words = objection_to(choice); !words.empty()) return failed(options.target, words);
    // Made here: whatever becomes of the process that mounts, its place is known.
    std::string directory;
    if (const std::string words = make_mount_directory(directory); !words.empty()) {
        return failed(options.target, words);
    }
    const std::string words = in_a_process([&] { return mount_below(choice, directory); }, limit);
    if (!words.empty()) {
        clear(directory);
        return failed(options.target, contents_of(choice) + " (" + words + ")");
    }
    if (options.json) {
        print_json({{"schema_version", kSchemaVersion}, {"directory", directory}}, stdout);
    } else {
        std::printf("%s\n", directory.c_str());
    }
    return kDone;
}

int end(const std::string &directory, std::chrono::milliseconds limit) {
    const std::string words = in_a_process([&directory] { return end_mounts(directory); }, limit);
    return words.empty() ? static_cast<int>(kDone) : failed(directory, words);
}

void add_directories(const Thing &thing, std::set<std::string> &directories) {
    const auto *points = std::get_if<std::vector<std::string>>(&thing.value("mount_points"));
    if (points == nullptr) return;
    for (const std::string &point : *points) {
        const std::string directory = point.substr(0, point.find_last_of('/'));
        if (is_made_by_mount(directory)) directories.insert(directory);
    }
}

int umount(const MountOptions &options) {
    const auto limit = to_limit(options.timeout);
    std::error_code none;
    if (options.target.find('/') != std::string::npos && !fs::is_block_file(options.target, none)) {
        return end(options.target, limit);
    }
    UsbChoice choice;
    if (!choose_usb(options.target, limit, choice)) return kFailed;
    std::set<std::string> directories;
    for (const Thing *device : choice.devices) {
        add_directories(*device, directories);
        for (const Thing *part : device->related_to(RelationKind::kPartOf)) add_directories(*part, directories);
    }
    if (directories.empty()) return failed(options.target, "not mounted by 'torvane mount'");
    int status = kDone;
    for (const std::string &directory : directories) status = std::max(status, end(directory, limit));
    return status;
}

} // namespace

void add_mount_commands(const Command &tool) {
    const auto options = std::make_shared<MountOptions>();
    tool.add("mount", "Mount a USB stick read-only in a new directory and print it.",
             [options] { return mount(*options); })
        .argument("SERIAL", options->target, "serial number, device name or any text of it")
        .json(options->json)
        .timeout(options->timeout);
    tool.add("umount", "Unmount what 'mount' mounted and remove its directory.", [options] { return umount(*options); })
        .argument("DIRECTORY|SERIAL", options->target, "what 'mount' printed, or what it mounted")
        .timeout(options->timeout);
}

} // namespace tool
