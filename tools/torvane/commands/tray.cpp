// torvane tray: whether an optical drive is open and holds a disc.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "output/table.h"

#include <nlohmann/json.hpp>

#include <torvane.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace tool {
namespace {

using inventory::Thing;

struct TrayOptions {
    bool json = false;
    double timeout = kDefaultSeconds;
    std::string target;
};

Wire read_tray(const std::string &path) {
    if (access(path.c_str(), R_OK) != 0) return {{"error", std::strerror(errno)}};
    std::uint32_t open = 0;
    std::uint32_t disc = 0;
    if (get_optical_drive_status(path.c_str(), &open, &disc) != 0) {
        return {{"error", words_about({TORVANE_ERROR_DEVICE}, "its tray cannot be read")}};
    }
    return {{"tray_open", open != 0}, {"has_disc", disc != 0}};
}

int tray(const TrayOptions &options) {
    const Found found = look_up(options.target, to_limit(options.timeout), is_optical);
    const Thing *drive = only_one(found, options.target, "an optical drive");
    if (drive == nullptr) return kFailed;
    const std::string path = drive->text("path");
    const auto *mounts = std::get_if<std::vector<std::string>>(&drive->value("mount_points"));
    const bool is_mounted = mounts != nullptr && !mounts->empty();
    const Ended ended = run_isolated([&path] { return read_tray(path); }, to_limit(options.timeout));
    const std::string words = error_of(ended);
    // A drive whose disc is mounted cannot be asked, since it must be had alone for that; but then its tray is locked.
    const bool is_known = words.empty() || (is_mounted && is_done(ended) && access(path.c_str(), R_OK) == 0);
    if (!is_known) {
        tell({{path, {}, words, {}, true}});
        return kFailed;
    }
    const bool is_open = words.empty() && ended.result.at("tray_open").get<bool>();
    const bool has_disc = !words.empty() || ended.result.at("has_disc").get<bool>();
    if (options.json) {
        print_json(
            {{"schema_version", kSchemaVersion}, {"device", path}, {"tray_open", is_open}, {"has_disc", has_disc}},
            stdout);
    } else {
        std::printf("%s: tray %s, %s%s\n", path.c_str(), is_open ? "open" : "closed",
                    has_disc ? "disc present" : "no disc",
                    is_mounted ? (", mounted on " + mounts->front()).c_str() : "");
    }
    return kDone;
}

} // namespace

void add_tray_command(const Command &tool) {
    const auto options = std::make_shared<TrayOptions>();
    tool.add("tray", "Tell whether an optical drive is open and holds a disc.", [options] { return tray(*options); })
        .argument("DRIVE", options->target, "an optical drive: sr0, its serial number ...")
        .json(options->json)
        .timeout(options->timeout);
}

} // namespace tool
