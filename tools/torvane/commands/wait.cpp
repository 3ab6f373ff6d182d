// torvane wait: files that come and go.
#include "commands/commands.h"
#include "inventory/survey/find.h"
#include "inventory/survey/survey.h"
#include "output/messages.h"

#include <torvane.h>

#include <filesystem>
#include <memory>
#include <thread>

namespace tool {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct WaitOptions {
    std::string event;
    std::vector<std::string> paths;
    double timeout = kDefaultSeconds;
};

// A look between two waits finds what came while nobody watched, and the library's match of name beginnings.
constexpr uint32_t kSliceSeconds = 1;
constexpr std::chrono::milliseconds kLookPause{200};

// A place in the file system, as opposed to a serial number or WWN.
bool is_path(const std::string &text) { return text.find('/') != std::string::npos; }

enum class Presence { kThere, kGone, kUnknown };

Presence presence_of(const std::string &text) {
    if (!is_path(text)) {
        inventory::Machine machine = inventory::survey({});
        return inventory::find_things(machine, text).empty() ? Presence::kGone : Presence::kThere;
    }
    std::error_code error;
    const fs::file_status status = fs::symlink_status(text, error);
    if (status.type() != fs::file_type::none) return fs::exists(status) ? Presence::kThere : Presence::kGone;
    return error == std::errc::not_a_directory ? Presence::kGone : Presence::kUnknown;
}

void wait_a_slice(const fs::path &path, bool created, Clock::duration left) {
    std::string directory = path.parent_path().string();
    if (directory.empty()) directory = ".";
    const std::string name = path.filename().string();
    const auto wait_for = created ? wait_till_file_is_created : wait_till_file_is_deleted;
    const auto before = Clock::now();
    // The library waits whole seconds; the rest of a shorter time is slept.
    if (is_path(path.string()) && left >= std::chrono::seconds(kSliceSeconds) &&
        wait_for(directory.c_str(), name.c_str(), kSliceSeconds) == 0)
        return;
    if (Clock::now() - before < kLookPause) std::this_thread::sleep_for(std::min<Clock::duration>(left, kLookPause));
}

// "" once it is so; else why not.
std::string wait_for_one(const std::string &text, bool created, Clock::time_point end) {
    fs::path cleaned(text);
    if (is_path(text) && !cleaned.has_filename()) cleaned = cleaned.parent_path(); // "dir/" is "dir"
    const Presence wanted = created ? Presence::kThere : Presence::kGone;
    while (true) {
        const Presence now = presence_of(cleaned.string());
        if (now == wanted) return {};
        if (now == Presence::kUnknown) return "whether it is there cannot be seen: permission denied";
        if (Clock::now() >= end) {
            return std::string(created ? "still not there" : "still there") + " when the time was over (--timeout)";
        }
        wait_a_slice(cleaned, created, end - Clock::now());
    }
}

int wait_for_all(const WaitOptions &options) {
    const auto end = Clock::now() + to_limit(options.timeout);
    int status = kDone;
    for (const std::string &text : options.paths) {
        const std::string trouble = wait_for_one(text, options.event == "created", end);
        if (trouble.empty()) continue;
        complain(text + ": " + trouble);
        status = kFailed;
    }
    return status;
}

} // namespace

void add_wait_command(const Command &tool) {
    const auto options = std::make_shared<WaitOptions>();
    tool.add("wait", "Wait until devices or files are there or gone.", [options] { return wait_for_all(*options); })
        .argument("EVENT", options->event, "created or deleted", true, {"created", "deleted"})
        .arguments("PATH", options->paths, "files such as device nodes; serial numbers, WWNs", true)
        .timeout(options->timeout);
}

} // namespace tool
