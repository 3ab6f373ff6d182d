#include "inventory/reading/keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace inventory {
namespace {

constexpr int kGraceTicks = 50; // between SIGTERM and SIGKILL
constexpr int kMostTicks = 500; // then the rest sleeps in the kernel, and SIGKILL waits there for it
constexpr useconds_t kTick = 10'000;
constexpr rlim_t kLargestFile = rlim_t{256} << 20U; // logs of a tool that writes for ever

void tell(int report, const KeeperReport &told) {
    if (write(report, &told, sizeof told) != sizeof told) _exit(1);
}

[[noreturn]] void be_the_command(const KeeperTask &task, pid_t keeper) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != keeper) _exit(1); // it went before the line above
    for (int signal = 1; signal < NSIG; ++signal) std::signal(signal, SIG_DFL);
    sigset_t none{};
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const rlimit no_core{0, 0};
    const rlimit file_size{kLargestFile, kLargestFile};
    setrlimit(RLIMIT_CORE, &no_core);
    setrlimit(RLIMIT_FSIZE, &file_size);
    // The pipes' ends lie above 2: the program keeps its standard descriptors taken.
    const bool ready = dup2(task.output, STDOUT_FILENO) >= 0 && dup2(task.errors, STDERR_FILENO) >= 0 &&
                       chdir(task.folder) == 0 && fcntl(task.report, F_SETFD, FD_CLOEXEC) == 0;
    if (ready) {
        close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
        execve(task.arguments[0], task.arguments, task.environment);
    }
    tell(task.report, {errno, -1});
    _exit(127);
}

// The keeper may wait long for a command that sleeps in the kernel, and must hold nothing of the program's open.
void keep_only(int one, int other) {
    const auto low = static_cast<unsigned>(std::min(one, other));
    const auto high = static_cast<unsigned>(std::max(one, other));
    if (low > 3) close_range(3, low - 1, 0);
    if (high > low + 1) close_range(low + 1, high - 1, 0);
    close_range(high + 1, ~0U, 0);
}

void use_null_as_standard() {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (null < 0) {
            close(standard);
        } else if (null != standard) {
            dup2(null, standard);
        }
    }
}

// A signal to each child; who lost its parent is the keeper's child.
void signal_children(int signal) {
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/self/task/%d/children", getpid());
    const int list = open(path.data(), O_RDONLY | O_CLOEXEC);
    if (list < 0) return;
    std::array<char, 4096> text{};
    const ssize_t size = read(list, text.data(), text.size() - 1);
    close(list);
    if (size <= 0) return;
    // A number that the buffer cuts off would be another process; its turn comes with the next look.
    text.at(static_cast<std::size_t>(size)) = '\0';
    for (char *next = text.data(), *end = nullptr;; next = end) {
        const long pid = std::strtol(next, &end, 10);
        if (end == next || *end != ' ') return;
        if (pid > 1) kill(static_cast<pid_t>(pid), signal);
    }
}

class Keeper {
  public:
    explicit Keeper(const KeeperTask &task) : task_(task) {}

    void start() {
        const pid_t keeper = getpid();
        command_ = fork();
        if (command_ == 0) be_the_command(task_, keeper);
        if (command_ < 0) tell(task_.report, {errno, -1});
        if (command_ > 0) setpgid(command_, command_); // whichever of the two comes first
        keep_only(task_.lifeline, task_.report);
    }

    // Until the command has ended or shall.
    void watch(int signals) {
        while (command_ > 0 && !ended_) {
            std::array<pollfd, 2> watched{{{task_.lifeline, POLLIN, 0}, {signals, POLLIN, 0}}};
            if (poll(watched.data(), watched.size(), 1000) < 0 && errno != EINTR) return;
            signalfd_siginfo ignored{};
            if (watched[1].revents != 0 && read(signals, &ignored, sizeof ignored) < 0) return;
            reap();
            if (watched[0].revents != 0) return;
        }
    }

    void end_all() {
        const int status = ended_ ? status_ : -1;
        for (int tick = 0; reap() && tick < kMostTicks; ++tick) {
            const int signal = tick < kGraceTicks ? SIGTERM : SIGKILL;
            if (tick == 0 || tick >= kGraceTicks) {
                if (!ended_) kill(-command_, signal);
                signal_children(signal);
            }
            usleep(kTick);
        }
        status_ = status;
    }

    [[nodiscard]] int status() const { return status_; }

  private:
    // False when there is no child any more.
    bool reap() {
        int status = 0;
        pid_t pid = waitpid(-1, &status, WNOHANG);
        for (; pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
            if (pid != command_) continue;
            ended_ = true;
            status_ = status;
        }
        return pid == 0;
    }

    const KeeperTask &task_;
    pid_t command_ = -1;
    bool ended_ = false;
    int status_ = -1;
};

} // namespace

void be_the_keeper(const KeeperTask &task) {
    setpgid(0, 0); // what a terminal sends is for the program, which ends and so ends this
    use_null_as_standard();
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t all{};
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Keeper keeper(task);
    keeper.start();
    sigset_t child{};
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    keeper.watch(signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK));
    keeper.end_all();
    std::error_code ignored;
    std::filesystem::remove_all(task.folder, ignored);
    tell(task.report, {0, keeper.status()});
    _exit(0);
}

} // namespace inventory
