// torvane mount, umount, tray: what is on a stick or in an optical drive.
#include "commands/commands.h"
#include "devices.h"
#include "drives.h"
#include "records.h"
#include "usb.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

namespace tool {
namespace {

namespace fs = std::filesystem;

struct MountOptions {
    OutputOptions output;
    double timeout = kDefaultLimit.count();
    std::string target;
};

std::string words_or(std::initializer_list<uint32_t> categories, const char *otherwise) {
    const std::string words = words_about(categories);
    return words.empty() ? otherwise : words;
}

// The directory, or the reason why there is none.
Wire mount_in_child(const std::string &serial) {
    char *directory = nullptr;
    if (create_and_mount_in_temp_dir(serial.c_str(), &directory) != 0) {
        return {{"error", words_or({TORVANE_ERROR_MOUNT, TORVANE_ERROR_DEVICE}, "the file system cannot be mounted")}};
    }
    const std::unique_ptr<char, decltype(&std::free)> owned(directory, &std::free);
    return {{"directory", std::string(directory)}};
}

int failed(const std::string &target, const Outcome &outcome) {
    const bool done = outcome.state == Outcome::State::kDone;
    complain(target + ": " + (done ? outcome.result.at("error").get<std::string>() : outcome.words));
    return kFailed;
}

int mount(const MountOptions &options) {
    const auto limit = to_limit(options.timeout);
    Selected selected;
    if (!select_one(options.target, limit, selected)) return kFailed;
    const Outcome outcome = run_isolated([&options] { return mount_in_child(options.target); }, limit);
    if (outcome.state != Outcome::State::kDone || !outcome.result.contains("directory")) {
        return failed(options.target, outcome);
    }
    const auto directory = outcome.result.at("directory").get<std::string>();
    if (options.output.json) {
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
    const Outcome outcome = run_isolated(
        [&directory]() -> Wire {
            if (remove_and_umount_in_temp_dir(directory.c_str()) == 0) return nullptr;
            return {{"error", words_or({TORVANE_ERROR_MOUNT}, "it cannot be unmounted")}};
        },
        to_limit(options.timeout));
    if (outcome.state == Outcome::State::kDone && outcome.result.is_null()) return kDone;
    return failed(options.target, outcome);
}

Wire read_tray(const std::string &path) {
    uint32_t open = 0;
    uint32_t disc = 0;
    if (get_optical_drive_status(path.c_str(), &open, &disc) != 0) {
        return {{"error", words_or({TORVANE_ERROR_DEVICE}, "its tray cannot be read")}};
    }
    return {{"tray_open", open != 0}, {"has_disc", disc != 0}};
}

int tray(const MountOptions &options) {
    std::vector<Failure> failures;
    const std::vector<std::string> paths = resolve_devices({options.target}, false, failures);
    tell(failures);
    if (paths.empty()) return kFailed;
    const std::string &path = paths.front();
    const Outcome outcome = run_isolated([&path] { return read_tray(path); }, to_limit(options.timeout));
    if (outcome.state != Outcome::State::kDone || outcome.result.contains("error")) return failed(path, outcome);
    const bool is_open = outcome.result.at("tray_open").get<bool>();
    const bool has_disc = outcome.result.at("has_disc").get<bool>();
    if (options.output.json) {
        print_json(
            {{"schema_version", kSchemaVersion}, {"device", path}, {"tray_open", is_open}, {"has_disc", has_disc}},
            stdout);
    } else {
        std::printf("%s: tray %s, %s\n", path.c_str(), is_open ? "open" : "closed",
                    has_disc ? "disc present" : "no disc");
    }
    return kDone;
}

void add_one(CLI::App &tool, Action &chosen, const char *name, const char *summary, const char *argument,
             const char *help, int (*action)(const MountOptions &), bool with_json) {
    const auto options = std::make_shared<MountOptions>();
    CLI::App &command = add_command(tool, chosen, name, summary, [options, action] { return action(*options); });
    command.add_option(argument, options->target, help)->required();
    if (with_json) add_json_option(command, options->output);
    add_timeout_option(command, options->timeout);
}

} // namespace

void add_mount_commands(CLI::App &tool, Action &chosen) {
    add_one(tool, chosen, "mount", "Mount a USB stick read-only in a new directory and print it.", "SERIAL",
            "the beginning of one serial number", mount, true);
    add_one(tool, chosen, "umount", "Unmount what 'mount' mounted and remove its directory.", "DIRECTORY",
            "the directory that 'mount' printed", umount, false);
    add_one(tool, chosen, "tray", "Tell whether an optical drive is open and holds a disc.", "DEVICE",
            "an optical drive: sr0, /dev/sr0 ...", tray, true);
}

} // namespace tool
