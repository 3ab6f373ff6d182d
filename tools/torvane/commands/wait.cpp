// torvane wait: files that come and go.
#include "commands/commands.h"
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
constexpr std::chrono::milliseconds kPause{200};

bool is_there(const std::string &path) {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(path, ignored));
}

void wait_a_slice(const fs::path &path, bool created, Clock::duration left) {
    std::string directory = path.parent_path().string();
    if (directory.empty()) directory = ".";
    const std::string name = path.filename().string();
    const auto wait_for = created ? wait_till_file_is_created : wait_till_file_is_deleted;
    const auto before = Clock::now();
    // The library waits whole seconds; the rest of a shorter time is slept.
    if (left >= std::chrono::seconds(kSliceSeconds) && wait_for(directory.c_str(), name.c_str(), kSliceSeconds) == 0)
        return;
    if (Clock::now() - before < kPause) std::this_thread::sleep_for(std::min<Clock::duration>(left, kPause));
}

bool wait_for_path(const std::string &path, bool created, Clock::time_point end) {
    fs::path cleaned(path);
    if (!cleaned.has_filename()) cleaned = cleaned.parent_path(); // "dir/" is "dir"
    while (is_there(cleaned.string()) != created) {
        const auto now = Clock::now();
        if (now >= end) return false;
        wait_a_slice(cleaned, created, end - now);
    }
    return true;
}

int wait_for_paths(const WaitOptions &options) {
    const bool created = options.event == "created";
    const auto end = Clock::now() + to_limit(options.timeout);
    int status = kDone;
    for (const std::string &path : options.paths) {
        if (wait_for_path(path, created, end)) continue;
        complain(path + ": " + (created ? "still not there" : "still there") + " when the time was over (--timeout)");
        status = kFailed;
    }
    return status;
}

} // namespace

void add_wait_command(const Command &tool) {
    const auto options = std::make_shared<WaitOptions>();
    tool.add("wait", "Wait until files are created or deleted.", [options] { return wait_for_paths(*options); })
        .argument("EVENT", options->event, "created or deleted", true, {"created", "deleted"})
        .arguments("PATH", options->paths, "files, such as device nodes", true)
        .timeout(options->timeout);
}

} // namespace tool
