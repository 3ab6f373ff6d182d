// torvane mount, umount: what is on a USB stick.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/mount_directory.h"
#include "commands/usb_devices.h"
#include "output/table.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <torvane.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

namespace tool {
namespace {

namespace fs = std::filesystem;
using inventory::RelationKind;
using inventory::Thing;

struct MountOptions {
    bool json = false;
    double timeout = kDefaultSeconds;
    std::string target;
};

// The directory, or the reason why there is none.
Wire mount_in_child(const std::string &serial) {
    char *directory = nullptr;
    if (create_and_mount_in_temp_dir(serial.c_str(), &directory) != 0) {
        return {
            {"error", words_about({TORVANE_ERROR_MOUNT, TORVANE_ERROR_DEVICE}, "the file system cannot be mounted")}};
    }
    const std::unique_ptr<char, decltype(&std::free)> owned(directory, &std::free);
    const std::string trouble = harden_mounts(directory);
    if (trouble.empty()) return {{"directory", std::string(directory)}};
    end_mounts(directory);
    return {{"error", trouble}};
}

std::string contents_of(const Thing &thing) {
    const std::string name = short_name(thing.text("name"));
    const std::string type = thing.text("fs_type");
    const std::string partition_type = thing.text("part_type");
    const bool is_extended = partition_type == "0x5" || partition_type == "0xf" || partition_type == "0x85";
    if (is_extended) return name + " is an extended partition, which holds no file system itself";
    return name + (type.empty() ? " has no file system that is known here" : " has " + type);
}

// What the stick holds, for people whose mount failed with a number.
std::string contents_of(const UsbChoice &choice) {
    std::string words;
    for (const Thing *device : choice.devices) {
        std::vector<Thing *> parts = device->related_to(RelationKind::kPartOf);
        if (parts.empty()) words += (words.empty() ? "" : "; ") + contents_of(*device);
        for (const Thing *part : parts) words += (words.empty() ? "" : "; ") + contents_of(*part);
    }
    return words.empty() ? "it has no medium" : words;
}

int failed(const std::string &target, const std::string &words) {
    tell({{target, {}, words, remedy_without_root(), true}});
    return kFailed;
}

int mount(const MountOptions &options) {
    const auto limit = to_limit(options.timeout);
    UsbChoice choice;
    if (!choose_usb(options.target, limit, choice)) return kFailed;
    const Ended ended = run_isolated([&choice] { return mount_in_child(choice.serial); }, limit);
    const std::string words = error_of(ended);
    if (!words.empty()) return failed(options.target, contents_of(choice) + " (" + words + ")");
    const auto directory = ended.result.at("directory").get<std::string>();
    if (options.json) {
        print_json({{"schema_version", kSchemaVersion}, {"directory", directory}}, stdout);
    } else {
        std::printf("%s\n", directory.c_str());
    }
    return kDone;
}

int end_in_child(const std::string &directory, std::chrono::milliseconds limit) {
    const Ended ended = run_isolated(
        [&directory]() -> Wire {
            const std::string trouble = end_mounts(directory);
            return trouble.empty() ? Wire(nullptr) : Wire{{"error", trouble}};
        },
        limit);
    const std::string words = error_of(ended);
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
        return end_in_child(options.target, limit);
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
    for (const std::string &directory : directories) status = std::max(status, end_in_child(directory, limit));
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
