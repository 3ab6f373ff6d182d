// torvane mount, umount: what is on a USB stick.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/mount_directory.h"
#include "commands/usb_devices.h"
#include "output/table.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <torvane.h>

#include <memory>

namespace tool {
namespace {

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
    complain(target + ": " + words);
    return kFailed;
}

int mount(const MountOptions &options) {
    const auto limit = to_limit(options.timeout);
    UsbChoice choice;
    if (!choose_usb(options.target, limit, choice)) return kFailed;
    const Ended ended = run_isolated([&choice] { return mount_in_child(choice.serial); }, limit);
    const std::string words = error_of(ended);
    if (!words.empty()) return failed(options.target, words + " (" + contents_of(choice) + ")");
    const auto directory = ended.result.at("directory").get<std::string>();
    if (options.json) {
        print_json({{"schema_version", kSchemaVersion}, {"directory", directory}}, stdout);
    } else {
        std::printf("%s\n", directory.c_str());
    }
    return kDone;
}

int umount(const MountOptions &options) {
    const Ended ended = run_isolated(
        [&options]() -> Wire {
            const std::string trouble = end_mounts(options.target);
            return trouble.empty() ? Wire(nullptr) : Wire{{"error", trouble}};
        },
        to_limit(options.timeout));
    const std::string words = error_of(ended);
    return words.empty() ? static_cast<int>(kDone) : failed(options.target, words);
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
        .argument("DIRECTORY", options->target, "the directory that 'mount' printed")
        .timeout(options->timeout);
}

} // namespace tool
