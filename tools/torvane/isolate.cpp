#include "isolate.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <list>
#include <memory>
#include <optional>
#include <system_error>

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A child that has been silent for this long sits in the kernel and costs no processor, so it no longer
// counts against the number at work; that is how hundreds of dead disks end within one time limit.
constexpr milliseconds kAtWork{500};
constexpr milliseconds kTick{1000};
constexpr std::size_t kMostAtWork = 8;
constexpr std::size_t kMostAlive = 256;
// Where the child finds the pipe to its parent.
constexpr int kResultDescriptor = 3;

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_ = -1;
};

[[noreturn]] void fail_system(const char *what) { throw std::system_error(errno, std::generic_category(), what); }

// The signals that end the tool: its children are in process groups of their own and must be told.
class EndingSignals {
  public:
    EndingSignals() {
        sigemptyset(&ending_);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&ending_, signal);
        sigprocmask(SIG_BLOCK, &ending_, &before_);
        descriptor_ = Descriptor(signalfd(-1, &ending_, SFD_CLOEXEC | SFD_NONBLOCK));
        if (descriptor_.get() < 0) fail_system("cannot watch for signals");
    }
    EndingSignals(const EndingSignals &) = delete;
    EndingSignals &operator=(const EndingSignals &) = delete;
    ~EndingSignals() { restore(); }

    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    void restore() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    [[nodiscard]] std::optional<int> pending() const {
        signalfd_siginfo info{};
        if (read(descriptor_.get(), &info, sizeof info) != sizeof info) return std::nullopt;
        return static_cast<int>(info.ssi_signo);
    }

  private:
    sigset_t ending_{};
    sigset_t before_{};
    Descriptor descriptor_;
};

bool write_all(int fd, const void *bytes, std::size_t size) {
    const auto *next = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t written = write(fd, next, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// The child has nothing of its parent's but the pipe: a hung child must not hold a caller's pipe open.
void leave_the_parent(int pipe_end) {
    setpgid(0, 0);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int result = fcntl(pipe_end, F_DUPFD_CLOEXEC, 10);
    if (result < 0) _exit(1);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (null < 0) {
            close(standard);
        } else {
            dup2(null, standard);
        }
    }
    if (dup3(result, kResultDescriptor, O_CLOEXEC) < 0) _exit(1);
    close_range(kResultDescriptor + 1, ~0U, 0);
    std::signal(SIGPIPE, SIG_DFL);
}

[[noreturn]] void be_the_child(const Reader &reader, int pipe_end) {
    leave_the_parent(pipe_end);
    try {
        const std::vector<std::uint8_t> message = Wire::to_msgpack(reader());
        const std::uint64_t size = message.size();
        const bool sent = write_all(kResultDescriptor, &size, sizeof size) &&
                          write_all(kResultDescriptor, message.data(), message.size());
        _exit(sent ? 0 : 1);
    } catch (...) {
        _exit(1);
    }
}

// One running reader, in the parent.
struct Child {
    Task task;
    pid_t pid = -1;
    Descriptor pipe;
    std::vector<std::uint8_t> received;
    Clock::time_point started;
};

Child start(Task task, const EndingSignals &signals) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) < 0) fail_system("cannot make a pipe");
    Child child;
    child.pipe = Descriptor(ends[0]);
    const Descriptor theirs(ends[1]);
    child.task = std::move(task);
    child.started = Clock::now();
    child.pid = fork();
    if (child.pid < 0) fail_system("cannot start a process");
    if (child.pid == 0) {
        signals.restore();
        be_the_child(child.task.reader, theirs.get());
    }
    setpgid(child.pid, child.pid); // whichever of the two comes first
    fcntl(child.pipe.get(), F_SETFL, O_NONBLOCK);
    return child;
}

// The whole group: the commands that the reader started go with it.
void kill_group(pid_t pid) { kill(-pid, SIGKILL); }

// Whether the pipe has ended.
bool receive(Child &child) {
    std::array<std::uint8_t, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    while (true) {
        const ssize_t count = read(child.pipe.get(), buffer.data(), buffer.size());
        if (count > 0) {
            child.received.insert(child.received.end(), buffer.begin(), buffer.begin() + count);
        } else if (count == 0) {
            return true;
        } else if (errno != EINTR) {
            return errno != EAGAIN;
        }
    }
}

std::optional<Wire> message_of(const std::vector<std::uint8_t> &received) {
    std::uint64_t size = 0;
    if (received.size() < sizeof size) return std::nullopt;
    std::memcpy(&size, received.data(), sizeof size);
    if (received.size() - sizeof size != size) return std::nullopt;
    Wire result = Wire::from_msgpack(received.begin() + sizeof size, received.end(), true, false);
    if (result.is_discarded()) return std::nullopt;
    return result;
}

std::string how_it_ended(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) == pid && WIFSIGNALED(status)) {
        return "the reader was ended by signal " + std::to_string(WTERMSIG(status));
    }
    return "the reader ended without a result";
}

Outcome outcome_of(const Child &child) {
    if (std::optional<Wire> message = message_of(child.received)) {
        return {Outcome::State::kDone, std::move(*message), {}};
    }
    return {Outcome::State::kCrashed, nullptr, how_it_ended(child.pid)};
}

std::string seconds_of(milliseconds limit) {
    Wire seconds = static_cast<double>(limit.count()) / 1000;
    if (limit.count() % 1000 == 0) seconds = limit.count() / 1000;
    return seconds.dump();
}

class Runner {
  public:
    Runner(std::deque<Task> &waiting, milliseconds limit, const std::function<void()> &tick)
        : waiting_(waiting), limit_(limit), tick_(tick) {}
    Runner(const Runner &) = delete;
    Runner &operator=(const Runner &) = delete;
    ~Runner() { kill_all(); }

    void run() {
        while (!waiting_.empty() || !running_.empty()) {
            start_what_may();
            wait_for_news();
            collect();
            reap();
            if (tick_) tick_();
        }
    }

  private:
    void start_what_may() {
        while (!waiting_.empty() && running_.size() < kMostAlive && at_work() < kMostAtWork) {
            Task next = std::move(waiting_.front());
            waiting_.pop_front();
            running_.push_back(start(std::move(next), signals_));
        }
    }

    [[nodiscard]] std::size_t at_work() const {
        const auto since = Clock::now() - kAtWork;
        return static_cast<std::size_t>(
            std::count_if(running_.begin(), running_.end(), [&](const Child &child) { return child.started > since; }));
    }

    void wait_for_news() {
        std::vector<pollfd> polled{{signals_.descriptor(), POLLIN, 0}};
        auto next = Clock::now() + (tick_ ? std::min<milliseconds>(limit_, kTick) : limit_);
        for (const Child &child : running_) {
            polled.push_back({child.pipe.get(), POLLIN, 0});
            next = std::min(next, child.started + limit_);
            if (!waiting_.empty() && child.started + kAtWork > Clock::now())
                next = std::min(next, child.started + kAtWork);
        }
        const auto wait = std::chrono::ceil<milliseconds>(next - Clock::now());
        poll(polled.data(), polled.size(), static_cast<int>(std::max<milliseconds::rep>(0, wait.count())));
        if (const std::optional<int> signal = signals_.pending()) end_by(*signal);
    }

    void collect() {
        for (auto child = running_.begin(); child != running_.end();) {
            const bool ended = receive(*child);
            const bool late = !ended && Clock::now() >= child->started + limit_;
            if (!ended && !late) {
                ++child;
                continue;
            }
            const Child finished = std::move(*child);
            child = running_.erase(child);
            left_.push_back(finished.pid);
            if (late) {
                kill_group(finished.pid);
                finished.task.done(
                    {Outcome::State::kTimedOut, nullptr, "no answer within " + seconds_of(limit_) + " s"});
            } else {
                finished.task.done(outcome_of(finished));
            }
        }
    }

    // Never a wait: a killed child may sleep in the kernel for as long as its disk does.
    void reap() {
        std::erase_if(left_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    }

    void kill_all() {
        for (const Child &child : running_) kill_group(child.pid);
    }

    [[noreturn]] void end_by(int signal) {
        kill_all();
        std::signal(signal, SIG_DFL);
        signals_.restore();
        raise(signal);
        _exit(128 + signal);
    }

    EndingSignals signals_;
    std::deque<Task> &waiting_;
    milliseconds limit_;
    const std::function<void()> &tick_;
    std::list<Child> running_;
    std::vector<pid_t> left_;
};

} // namespace

void Isolation::run() { Runner(waiting_, limit_, tick_).run(); }

Outcome run_isolated(const Reader &reader, milliseconds limit) {
    Outcome outcome;
    Isolation isolation(limit);
    isolation.add({reader, [&outcome](Outcome result) { outcome = std::move(result); }});
    isolation.run();
    return outcome;
}

} // namespace tool
