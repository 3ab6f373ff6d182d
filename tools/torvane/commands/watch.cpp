// torvane watch: what happens in a directory.
#include "commands/commands.h"
#include "output/messages.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <torvane.h>

#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <memory>

namespace tool {
namespace {

struct WatchOptions {
    bool json = false;
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
        take_event(monitor.get(), *event, options.json);
    }
    complain(options.directory + ": is gone");
    return kFailed;
}

} // namespace

void add_watch_command(const Command &tool) {
    const auto options = std::make_shared<WatchOptions>();
    tool.add("watch", "Tell what happens in a directory until interrupted.", [options] { return watch(*options); })
        .argument("DIRECTORY", options->directory, "with all directories below it")
        .flag("-J,--json", options->json, "print each event as a line of JSON");
}

} // namespace tool
