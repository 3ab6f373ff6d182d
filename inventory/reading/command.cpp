#include "inventory/reading/command.h"

#include "inventory/reading/keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <thread>

namespace inventory {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// SIGTERM, half a second, SIGKILL, and the processes' own time to go.
constexpr milliseconds kEnding{4000};
constexpr const char *kLockFolder = "/run/torvane";
constexpr const char *kLockFile = "/run/torvane/raid-tools.lock";

std::string in_words(milliseconds time) {
    if (time.count() % 1000 == 0) return std::to_string(time.count() / 1000) + " s";
    return std::to_string(time.count()) + " ms";
}

struct Pipe {
    int reading = -1;
    int writing = -1;

    Pipe() {
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
        reading = above_standard(ends[0]);
        writing = above_standard(ends[1]);
        fcntl(reading, F_SETFL, O_NONBLOCK);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        close_end(reading);
        close_end(writing);
    }
    // A caller may have its standard descriptors closed; a pipe on their numbers would be lost when they are set.
    static int above_standard(int end) {
        if (end > STDERR_FILENO) return end;
        const int higher = fcntl(end, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(end);
        return higher;
    }
    static void close_end(int &end) {
        if (end >= 0) close(end);
        end = -1;
    }
};

// Of a command that was never started.
class ScratchFolder {
  public:
    ScratchFolder() : path_(make()) {}
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;
    ~ScratchFolder() {
        if (!path_.empty()) rmdir(path_.c_str());
    }
    [[nodiscard]] const std::string &path() const { return path_; }
    void leave_to_keeper() { path_.clear(); }

  private:
    static std::string make();

    std::string path_;
};

std::string ScratchFolder::make() {
    for (const char *pattern : {"/tmp/torvane-XXXXXX", "/run/torvane-XXXXXX", "/var/tmp/torvane-XXXXXX"}) {
        std::string folder = pattern;
        if (mkdtemp(folder.data()) != nullptr) return folder;
    }
    return {};
}

// The caller's environment, but for what changes a tool's words or where it writes.
std::vector<std::string> environment_in(const std::string &folder) {
    std::vector<std::string> made{"LC_ALL=C", "HOME=" + folder, "TMPDIR=" + folder,
                                  // ssacli asks each disk of a storage network otherwise, and takes minutes.
                                  "INFOMGR_BYPASS_NONSA=1"};
    constexpr std::array<std::string_view, 6> kReplaced{
        "LC_", "LANG=", "LANGUAGE=", "HOME=", "TMPDIR=", "INFOMGR_BYPASS_NONSA="};
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const bool replaced = std::any_of(kReplaced.begin(), kReplaced.end(),
                                          [text](std::string_view name) { return text.starts_with(name); });
        if (!replaced) made.emplace_back(text);
    }
    return made;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

class Run {
  public:
    explicit Run(const CommandLimits &limits) : limits_(limits) {}

    CommandResult of(std::vector<std::string> arguments) {
        ScratchFolder folder;
        if (folder.path().empty()) return failed("no scratch folder");
        std::vector<std::string> environment = environment_in(folder.path());
        const std::vector<char *> argument_list = pointers_to(arguments);
        const std::vector<char *> environment_list = pointers_to(environment);
        deadline_ = Clock::now() + limits_.time;
        const pid_t keeper = start({argument_list.data(), environment_list.data(), folder.path().c_str(),
                                    output_.writing, errors_.writing, lifeline_.reading, report_.writing});
        if (keeper < 0) {
            return failed(std::string("cannot start a process: ") + std::strerror(errno));
        }
        folder.leave_to_keeper();
        attend();
        // One that is still there sleeps in the kernel; it goes when it wakes.
        for (int result = -1; keeper_ended_ && result < 0;) {
            result = waitpid(keeper, nullptr, 0);
            if (result < 0 && errno != EINTR) break; // whoever ignores SIGCHLD has no child to wait for
        }
        return std::move(result_);
    }

  private:
    CommandResult failed(const std::string &why) {
        result_.trouble = why;
        return std::move(result_);
    }

    pid_t start(const KeeperTask &task) {
        const bool complete =
            output_.writing >= 0 && errors_.writing >= 0 && lifeline_.writing >= 0 && report_.writing >= 0;
        if (!complete) return -1;
        const pid_t keeper = fork();
        if (keeper == 0) be_the_keeper(task);
        if (keeper > 0) {
            Pipe::close_end(output_.writing);
            Pipe::close_end(errors_.writing);
            Pipe::close_end(lifeline_.reading);
            Pipe::close_end(report_.writing);
        }
        return keeper;
    }

    void attend() {
        while (!keeper_ended_) {
            const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - Clock::now());
            if (left.count() <= 0) {
                if (lifeline_.writing < 0) return; // neither does it end
                give_up("no answer within " + in_words(limits_.time));
                continue;
            }
            std::array<pollfd, 3> watched{
                {{output_.reading, POLLIN, 0}, {errors_.reading, POLLIN, 0}, {report_.reading, POLLIN, 0}}};
            const int wait = static_cast<int>(std::min<std::int64_t>(left.count() + 1, 60'000));
            if (poll(watched.data(), watched.size(), wait) < 0 && errno != EINTR) return give_up("poll failed");
            if (watched[0].revents != 0) read_output();
            if (watched[1].revents != 0) read_some(errors_, result_.errors, limits_.errors);
            if (watched[2].revents != 0) read_report();
        }
        // All who could write are gone.
        while (output_.reading >= 0 && read_output()) {
        }
        while (errors_.reading >= 0 && read_some(errors_, result_.errors, limits_.errors) > 0) {
        }
    }

    void give_up(const std::string &why) {
        if (result_.trouble.empty()) result_.trouble = why;
        Pipe::close_end(lifeline_.writing);
        deadline_ = Clock::now() + kEnding;
    }

    // What fits the limit is kept, what does not is read and dropped. Bytes read, 0 at the end.
    std::size_t read_some(Pipe &pipe, std::string &into, std::size_t limit) {
        const ssize_t size = read(pipe.reading, buffer_.data(), buffer_.size());
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
        if (size <= 0) {
            Pipe::close_end(pipe.reading);
            return 0;
        }
        const auto read_size = static_cast<std::size_t>(size);
        into.append(buffer_.data(), std::min(read_size, limit - into.size()));
        return read_size;
    }

    bool read_output() {
        const std::size_t before = result_.output.size();
        const std::size_t size = read_some(output_, result_.output, limits_.output);
        if (before + size > limits_.output && lifeline_.writing >= 0) {
            give_up("more than " + std::to_string(limits_.output >> 20U) + " MiB of output");
        }
        return size > 0;
    }

    void read_report() {
        KeeperReport told{};
        const ssize_t size = read(report_.reading, &told, sizeof told);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (size != sizeof told) {
            keeper_ended_ = true;
        } else if (told.start_error != 0) {
            result_.trouble = std::string("cannot be run: ") + std::strerror(told.start_error);
        } else if (WIFEXITED(told.wait_status) && told.wait_status >= 0) {
            result_.status = WEXITSTATUS(told.wait_status);
        } else if (told.wait_status >= 0 && WIFSIGNALED(told.wait_status)) {
            result_.status = 128 + WTERMSIG(told.wait_status);
            if (result_.trouble.empty())
                result_.trouble = std::string("ended by a signal: ") + strsignal(WTERMSIG(told.wait_status));
        }
    }

    const CommandLimits &limits_;
    CommandResult result_;
    Pipe output_;
    Pipe errors_;
    Pipe lifeline_;
    Pipe report_;
    Clock::time_point deadline_;
    bool keeper_ended_ = false;
    std::array<char, 65536> buffer_{};
};

} // namespace

CommandResult run_command(const std::vector<std::string> &arguments, const CommandLimits &limits) {
    return Run(limits).of(arguments);
}

ToolLock::ToolLock(milliseconds patience) {
    mkdir(kLockFolder, 0755);
    descriptor_ = open(kLockFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    // Where no lock can be had (no root, a full /run) no other holder is kept out, and the tools run all the same.
    if (descriptor_ < 0) return;
    const Clock::time_point end = Clock::now() + patience;
    while (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return;
        if (Clock::now() >= end) {
            trouble_ = "another run of RAID tools has not ended within " + in_words(patience);
            return;
        }
        std::this_thread::sleep_for(milliseconds(20));
    }
}

ToolLock::~ToolLock() {
    if (descriptor_ >= 0) close(descriptor_);
}

} // namespace inventory
