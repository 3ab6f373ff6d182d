// torvane firmware: a drive's firmware image as a file.
#include "commands/calls.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "output/new_file.h"

#include <torvane.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>

namespace tool {
namespace {

namespace fs = std::filesystem;

// Eighty commands and more, each of which a slow drive may think about.
constexpr double kFirmwareSeconds = 300;

struct FirmwareOptions {
    std::string device;
    std::string file;
    bool force = false;
    double timeout = kFirmwareSeconds;
};

Wire read_image(const std::string &path) {
    if (access(path.c_str(), R_OK) != 0) return {{"error", std::strerror(errno)}};
    DeviceState state{-1, -1, nullptr};
    const int result = get_device_state_full(-1, path.c_str(), &state);
    const std::unique_ptr<unsigned char, decltype(&std::free)> image(state.firmware_image, &std::free);
    if (image && state.firmware_size > 0) {
        return {{"image", Wire::binary({image.get(), image.get() + state.firmware_size})}};
    }
    if (result == 0) return {{"error", "the library knows no way to read firmware from this maker's drives"}};
    return {
        {"error", words_about({TORVANE_ERROR_STATE, TORVANE_ERROR_IDENTITY}, "the drive did not give its firmware")}};
}

Ended read_with_progress(const FirmwareOptions &options, const std::string &path) {
    const bool on_terminal = isatty(STDERR_FILENO) == 1;
    const auto started = std::chrono::steady_clock::now();
    std::function<void()> tick;
    if (on_terminal) {
        tick = [&] {
            const auto passed = std::chrono::steady_clock::now() - started;
            std::fprintf(stderr, "\rreading firmware of %s: %lld s", path.c_str(),
                         static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(passed).count()));
        };
    }
    Ended ended = run_isolated([&path] { return read_image(path); }, to_limit(options.timeout), tick);
    if (on_terminal) std::fprintf(stderr, "\r\033[K");
    return ended;
}

int run(const FirmwareOptions &options) {
    if (!options.force && fs::exists(fs::symlink_status(options.file))) {
        complain(options.file + ": exists already; --force replaces it");
        return kFailed;
    }
    // Reading takes minutes: what would fail at their end is told before.
    const fs::path folder = fs::absolute(options.file).parent_path();
    if (access(folder.c_str(), W_OK | X_OK) != 0 || fs::is_directory(options.file)) {
        complain(options.file +
                 ": cannot be written: " + std::strerror(fs::is_directory(options.file) ? EISDIR : errno));
        return kFailed;
    }
    const Found found = look_up(options.device, to_limit(options.timeout));
    const inventory::Thing *drive = only_one(found, options.device);
    if (drive == nullptr) return kFailed;
    const std::string path = drive->text("path");
    if (path.empty()) {
        complain("'" + options.device + "' has no node in /dev to be asked by");
        return kFailed;
    }
    const Ended ended = read_with_progress(options, path);
    if (const std::string words = error_of(ended); !words.empty()) {
        tell({{path, {}, words, {}, true}});
        return kFailed;
    }
    const Wire::binary_t &image = ended.result.at("image").get_binary();
    if (!NewFile(options.file).keep(image.data(), image.size(), options.force)) {
        complain(options.file + ": cannot be written: " + std::strerror(errno));
        return kFailed;
    }
    std::fprintf(stderr, "%s: %zu bytes\n", options.file.c_str(), image.size());
    return kDone;
}

} // namespace

void add_firmware_command(const Command &tool) {
    const auto options = std::make_shared<FirmwareOptions>();
    tool.add("firmware", "Write a drive's firmware image to a file.", [options] { return run(*options); })
        .argument("DEVICE|SERIAL", options->device, "the drive: device name, serial number ...")
        .option("-o,--output", options->file, "FILE", "the file to write", true)
        .flag("--force", options->force, "replace the file if it exists")
        .timeout(options->timeout);
}

} // namespace tool
