// torvane wait, watch: files that come and go.
#include "commands/commands.h"
#include "output/messages.h"
#include "output/text.h"

#include <torvane.h>

#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
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
    double timeout = 30;
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

struct WatchOptions {
    OutputOptions output;
    std::string directory;
};

struct ReleaseMonitor {
    void operator()(FileMonitor *monitor) const { release_monitor(monitor); }
};
using Monitor = std::unique_ptr<FileMonitor, ReleaseMonitor>;
struct ReleaseEvent {
    void operator()(inotify_event *event) const { release_event(event); }
};
using Event = std::unique_ptr<inotify_event, ReleaseEvent>;

struct EventName {
    uint32_t bit;
    const char *word;
};
constexpr EventName kEvents[] = {{IN_CREATE, "created"}, {IN_CLOSE_WRITE, "written"}, {IN_DELETE_SELF, "deleted"}};

const char *word_of(uint32_t mask) {
    for (const EventName &event : kEvents) {
        if ((mask & event.bit) != 0) return event.word;
    }
    return nullptr;
}

void print_event(const char *word, const std::string &path, bool is_directory, bool json) {
    if (json) {
        const Json line = {{"event", word}, {"path", path}, {"directory", is_directory}};
        std::printf("%s\n", line.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    } else {
        std::printf("%-8s %s%s\n", word, printable(path).c_str(), is_directory ? "/" : "");
    }
    std::fflush(stdout);
}

// Tells one event. A new directory is watched from here on; a directory that is gone no more.
void take_event(FileMonitor *monitor, const inotify_event &event, bool json) {
    Watch *watch = get_watch(monitor, event.wd);
    if (!watch) return;
    const std::string path = event.len > 0 ? std::string(watch->path) + "/" + event.name : std::string(watch->path);
    const bool is_directory = event.len == 0 || (event.mask & IN_ISDIR) != 0;
    if (const char *word = word_of(event.mask)) print_event(word, path, is_directory, json);
    if ((event.mask & (IN_DELETE_SELF | IN_IGNORED)) != 0) {
        remove_watch(monitor, watch);
    } else if (is_directory && (event.mask & IN_CREATE) != 0) {
        add_watches(monitor, path.c_str()); // it may be gone again
    }
}

int watch(const WatchOptions &options) {
    sigset_t ending{};
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    const int cancel = signalfd(-1, &ending, SFD_CLOEXEC);
    const Monitor monitor(cancel < 0 ? nullptr : monitor_directory(options.directory.c_str()));
    if (!monitor) {
        complain(options.directory + ": cannot be watched: " + std::strerror(errno));
        return kFailed;
    }
    while (monitor->watch_count > 0) {
        const Event event(wait_for_event(monitor.get(), cancel));
        if (!event) return kDone; // interrupted
        take_event(monitor.get(), *event, options.output.json);
    }
    complain(options.directory + ": is gone");
    return kFailed;
}

} // namespace

void add_wait_commands(CLI::App &tool, Action &chosen) {
    const auto waiting = std::make_shared<WaitOptions>();
    CLI::App &wait_command = add_command(tool, chosen, "wait", "Wait until files are created or deleted.",
                                         [waiting] { return wait_for_paths(*waiting); });
    wait_command.add_option("EVENT", waiting->event, "created or deleted")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>{"created", "deleted"}));
    wait_command.add_option("PATH", waiting->paths, "files, such as device nodes")->required();
    add_timeout_option(wait_command, waiting->timeout);
    const auto watching = std::make_shared<WatchOptions>();
    CLI::App &watch_command = add_command(tool, chosen, "watch", "Tell what happens in a directory until interrupted.",
                                          [watching] { return watch(*watching); });
    watch_command.add_option("DIRECTORY", watching->directory, "with all directories below it")->required();
    watch_command.add_flag("-J,--json", watching->output.json, "print each event as a line of JSON");
}

} // namespace tool
