// torvane mount, umount, tray: what is on a stick or in an optical drive.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/usb_devices.h"
#include "output/table.h"

#include <nlohmann/json.hpp>

#include <torvane.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

namespace tool {
namespace {

namespace fs = std::filesystem;

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
    return {{"directory", std::string(directory)}};
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
    if (const std::string words = error_of(ended); !words.empty()) return failed(options.target, words);
    const auto directory = ended.result.at("directory").get<std::string>();
    if (options.json) {
        print_json({{"schema_version", kSchemaVersion}, {"directory", directory}}, stdout);
    } else {
        std::printf("%s\n", directory.c_str());
    }
    return kDone;
}

// Everything in the directory is about to be removed, so only what `mount` makes will do: nodes, and mount
// points named after them.
std::string objection_to(const std::string &directory) {
    struct stat status {};
    if (lstat(directory.c_str(), &status) != 0) return std::strerror(errno);
    if (!S_ISDIR(status.st_mode)) return "not a directory";
    if (!fs::path(directory).filename().string().starts_with("torvane.")) return "not made by 'torvane mount'";
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory, error)) {
        const bool is_mount_point = entry.is_directory(error) && entry.path().string().ends_with("_mount");
        if (!is_mount_point && !entry.is_block_file(error)) {
            return "holds '" + entry.path().filename().string() + "', which 'torvane mount' did not put there";
        }
    }
    return error ? error.message() : "";
}

int umount(const MountOptions &options) {
    // The library compares mount points with the path as given, and the kernel lists them without a last slash.
    std::error_code error;
    const std::string directory = fs::canonical(options.target, error).string();
    const std::string objection = error ? error.message() : objection_to(directory);
    if (!objection.empty()) {
        complain(options.target + ": " + objection);
        return kFailed;
    }
    const Ended ended = run_isolated(
        [&directory]() -> Wire {
            if (remove_and_umount_in_temp_dir(directory.c_str()) == 0) return nullptr;
            return {{"error", words_about({TORVANE_ERROR_MOUNT}, "it cannot be unmounted")}};
        },
        to_limit(options.timeout));
    const std::string words = error_of(ended);
    return words.empty() ? static_cast<int>(kDone) : failed(options.target, words);
}

Wire read_tray(const std::string &path) {
    uint32_t open = 0;
    uint32_t disc = 0;
    if (get_optical_drive_status(path.c_str(), &open, &disc) != 0) {
        return {{"error", words_about({TORVANE_ERROR_DEVICE}, "its tray cannot be read")}};
    }
    return {{"tray_open", open != 0}, {"has_disc", disc != 0}};
}

bool is_optical(const inventory::Thing &thing) { return thing.kind() == inventory::ThingKind::kOptical; }

int tray(const MountOptions &options) {
    const Found found = look_up(options.target, to_limit(options.timeout), is_optical);
    const inventory::Thing *drive = only_one(found, options.target, "an optical drive");
    if (drive == nullptr) return kFailed;
    const std::string path = drive->text("path");
    const Ended ended = run_isolated([&path] { return read_tray(path); }, to_limit(options.timeout));
    if (const std::string words = error_of(ended); !words.empty()) return failed(path, words);
    const bool is_open = ended.result.at("tray_open").get<bool>();
    const bool has_disc = ended.result.at("has_disc").get<bool>();
    if (options.json) {
        print_json(
            {{"schema_version", kSchemaVersion}, {"device", path}, {"tray_open", is_open}, {"has_disc", has_disc}},
            stdout);
    } else {
        std::printf("%s: tray %s, %s\n", path.c_str(), is_open ? "open" : "closed",
                    has_disc ? "disc present" : "no disc");
    }
    return kDone;
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
    tool.add("tray", "Tell whether an optical drive is open and holds a disc.", [options] { return tray(*options); })
        .argument("DEVICE", options->target, "an optical drive: sr0, /dev/sr0, its serial number ...")
        .json(options->json)
        .timeout(options->timeout);
}

} // namespace tool
