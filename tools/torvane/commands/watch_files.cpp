#include "commands/watch_files.h"

#include "commands/ending.h"
#include "output/messages.h"
#include "output/table.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kInside = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t kMask = kInside | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

struct EventName {
    std::uint32_t bit;
    const char *word;
};
constexpr EventName kEvents[] = {{IN_CREATE, "created"}, {IN_CLOSE_WRITE, "written"}, {IN_DELETE, "deleted"}};

void print_event(const std::string &word, const std::string &path, bool is_directory, bool json,
                 const std::string &to = {}) {
    if (json) {
        Json line = {{"event", word}, {"path", path}, {"directory", is_directory}};
        if (!to.empty()) line["to"] = to;
        print_json_line(line, stdout);
    } else {
        const std::string slash = is_directory ? "/" : "";
        const std::string target = to.empty() ? "" : " -> " + printable(to) + slash;
        std::printf("%-8s %s%s%s\n", word.c_str(), printable(path).c_str(), slash.c_str(), target.c_str());
    }
    std::fflush(stdout);
}

class FileWatch {
  public:
    FileWatch(int inotify, std::string top, bool json) : inotify_(inotify), top_(std::move(top)), json_(json) {}

    bool start() { return add(top_, false); }
    [[nodiscard]] bool is_over() const { return paths_.empty(); }

    // All events of one read: several fit, and each counts.
    bool take() {
        alignas(inotify_event) std::array<char, 65536> buffer{};
        const ssize_t size = read(inotify_, buffer.data(), buffer.size());
        if (size < 0) return errno == EINTR || errno == EAGAIN;
        for (const char *at = buffer.data(); at < buffer.data() + size;) {
            const auto &event = *reinterpret_cast<const inotify_event *>(at);
            take(event, event.len > 0 ? std::string(event.name) : std::string());
            at += sizeof(inotify_event) + event.len;
        }
        tell_departure(); // with no second half in the same read it went elsewhere
        return true;
    }

  private:
    // What is in a new directory before its watch begins is told as created with it.
    bool add(const std::string &directory, bool tell) {
        const int watch = inotify_add_watch(inotify_, directory.c_str(), kMask);
        if (watch < 0) return false;
        paths_[watch] = directory;
        std::error_code gone;
        for (const fs::directory_entry &entry : fs::directory_iterator(directory, gone)) {
            const bool is_directory = entry.is_directory(gone) && !entry.is_symlink(gone);
            if (tell && told_.insert(entry.path()).second) print_event("created", entry.path(), is_directory, json_);
            if (is_directory) add(entry.path(), tell);
        }
        return true;
    }

    void take(const inotify_event &event, const std::string &name) {
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            complain("more happened than the kernel keeps: some events are lost");
            return;
        }
        const auto known = paths_.find(event.wd);
        if (known == paths_.end()) return;
        if ((event.mask & IN_IGNORED) != 0) {
            if (known->second == top_) paths_.clear();
            paths_.erase(event.wd);
            return;
        }
        if (name.empty()) return; // of the directory itself: its parent tells
        const std::string path = known->second + "/" + name;
        const bool is_directory = (event.mask & IN_ISDIR) != 0;
        if ((event.mask & (IN_MOVED_FROM | IN_MOVED_TO)) != 0) return take_move(event, path, is_directory);
        tell_departure();
        for (const EventName &known_event : kEvents) {
            if ((event.mask & known_event.bit) == 0) continue;
            const bool is_told = known_event.bit == IN_CREATE && told_.erase(path) != 0;
            if (!is_told) print_event(known_event.word, path, is_directory, json_);
        }
        if (is_directory && (event.mask & IN_CREATE) != 0) add(path, true); // it may be gone again
    }

    // The two halves of a rename follow each other.
    void take_move(const inotify_event &event, const std::string &path, bool is_directory) {
        if ((event.mask & IN_MOVED_FROM) != 0) {
            tell_departure();
            departure_ = {event.cookie, path, is_directory};
            return;
        }
        if (departure_.cookie == event.cookie) {
            print_event("renamed", departure_.path, is_directory, json_, path);
            if (is_directory) follow(departure_.path, path);
            departure_ = {};
            return;
        }
        tell_departure();
        print_event("created", path, is_directory, json_); // moved here from where nobody watches
        if (is_directory) add(path, true);
    }

    void tell_departure() {
        if (departure_.path.empty()) return;
        print_event("deleted", departure_.path, departure_.is_directory, json_);
        if (departure_.is_directory) forget(departure_.path);
        departure_ = {};
    }

    void follow(const std::string &from, const std::string &to) {
        for (auto &[watch, path] : paths_) {
            if (path == from || path.starts_with(from + "/")) path = to + path.substr(from.size());
        }
    }

    void forget(const std::string &directory) {
        for (const auto &[watch, path] : paths_) {
            if (path == directory || path.starts_with(directory + "/")) inotify_rm_watch(inotify_, watch);
        }
    }

    struct Departure {
        std::uint32_t cookie = 0;
        std::string path;
        bool is_directory = false;
    };

    int inotify_;
    std::string top_;
    bool json_;
    std::map<int, std::string> paths_; // by watch
    std::set<std::string> told_;       // created before their watch was there
    Departure departure_;
};

} // namespace

int watch_files(const std::string &directory, bool json) {
    const Ending ending;
    const int inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    FileWatch watch(inotify, directory, json);
    if (inotify < 0 || ending.descriptor() < 0 || !watch.start()) {
        complain(directory + ": cannot be watched: " + std::strerror(errno));
        return kFailed;
    }
    while (!watch.is_over()) {
        std::array<pollfd, 2> polled{{{ending.descriptor(), POLLIN, 0}, {inotify, POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) break;
        if (polled[0].revents != 0) return kDone;
        if (polled[1].revents != 0 && !watch.take()) break;
    }
    complain(directory + ": is gone");
    return kFailed;
}

} // namespace tool
