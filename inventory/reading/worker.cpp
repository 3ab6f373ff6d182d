#include "inventory/reading/worker.h"

#include "inventory/reading/descriptor.h"
#include "inventory/reading/locks.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <array>
#include <csignal>
#include <ctime>
#include <exception>
#include <new>
#include <thread>

namespace inventory {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

// Where the worker finds the pipe to its parent.
constexpr int kAnswers = 3;

// A device or a tool that tells nonsense must not cost the machine its memory. The longest answer that drives are
// known to give, a defect list, has 16 MiB.
constexpr rlim_t kMemory = rlim_t{512} << 20U; // bytes of address space
constexpr const char *kNoMemory = "the reader needed more than 512 MiB of memory";

// A lock that is younger belongs to somebody who may be done in a moment.
constexpr milliseconds kPatience{1000};
constexpr milliseconds kRetry{10};

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kLimitsMemory = false; // the sanitizer's own tables take terabytes of address space
#else
constexpr bool kLimitsMemory = true;
#endif

void limit_memory() {
    rlimit limit{};
    if (!kLimitsMemory || getrlimit(RLIMIT_AS, &limit) != 0) return;
    limit.rlim_cur = std::min(limit.rlim_max, kMemory);
    setrlimit(RLIMIT_AS, &limit);
}

// Nothing of the parent's stays open but the pipe, and the worker goes when its parent goes, however that comes.
void leave_the_parent(const Employment &employment) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != employment.parent) _exit(1);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int answers = fcntl(employment.pipe, F_DUPFD_CLOEXEC, kAnswers + 1);
    if (answers < 0) _exit(1);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (null < 0) {
            close(standard);
        } else {
            dup2(null, standard);
        }
    }
    if (dup3(answers, kAnswers, O_CLOEXEC) < 0) _exit(1);
    close_range(kAnswers + 1, ~0U, 0);
    std::signal(SIGPIPE, SIG_DFL);
    limit_memory();
}

bool write_all(const void *bytes, std::size_t size) {
    const auto *next = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t written = retried([&] { return write(kAnswers, next, size); });
        if (written <= 0) return false;
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// One write for what fits a pipe's page: the parent then wakes once.
bool send(std::size_t job, const Outcome &outcome) {
    const std::string &text = outcome.state == Outcome::State::kDone ? outcome.answer : outcome.words;
    const MessageHead head{job, static_cast<std::uint64_t>(outcome.state), text.size()};
    constexpr std::size_t kSmall = 4096;
    if (text.size() > kSmall - sizeof head) {
        return write_all(&head, sizeof head) && write_all(text.data(), text.size());
    }
    std::array<char, kSmall> message; // NOLINT(cppcoreguidelines-pro-type-member-init): filled as far as it is sent
    std::copy_n(reinterpret_cast<const char *>(&head), sizeof head, message.begin());
    std::copy(text.begin(), text.end(), message.begin() + sizeof head);
    return write_all(message.data(), sizeof head + text.size());
}

std::string time_text(system_clock::time_point time) {
    const std::time_t seconds = system_clock::to_time_t(time);
    std::tm parts{};
    std::array<char, 32> text{};
    if (localtime_r(&seconds, &parts) == nullptr) return "an unknown time";
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    return text.data();
}

Outcome held_by(const Holder &holder) {
    const std::string who = holder.process.empty() ? "another process" : "process " + holder.process;
    return {Outcome::State::kHeld,
            {},
            "has not answered since " + time_text(holder.since) + ": " + who +
                " still waits for it, so that no second one was sent"};
}

template <class Read> Outcome guarded(Read read) {
    try {
        return read();
    } catch (const std::bad_alloc &) {
        return {Outcome::State::kCrashed, {}, kNoMemory};
    } catch (const std::exception &error) {
        return {Outcome::State::kCrashed, {}, error.what()};
    } catch (...) {
        return {Outcome::State::kCrashed, {}, "the reader ended without a result"};
    }
}

Outcome read_answer(const Job &job) {
    return guarded([&job] { return Outcome{Outcome::State::kDone, job.read(), {}}; });
}

class Locks {
  public:
    explicit Locks(const std::string &folder) : path_(folder) {}

    Outcome outcome_of(const Job &job) {
        return guarded([&] { return read_locked(job); });
    }
    void let_go() {
        if (folder_) folder_->let_go();
    }

  private:
    Outcome read_locked(const Job &job) {
        const std::string name = job.lock ? job.lock() : "";
        if (name.empty()) let_go();
        if (name.empty() || !open()) return read_answer(job);
        while (true) {
            const std::optional<Holder> holder = folder_->take(name);
            if (!holder) return read_answer(job);
            const auto age = system_clock::now() - holder->since;
            if (age >= kPatience || age < milliseconds(0)) return held_by(*holder);
            std::this_thread::sleep_for(kRetry);
        }
    }

    bool open() {
        if (!tried_) folder_ = path_.empty() ? LockFolder::open() : LockFolder::open(path_);
        tried_ = true;
        return folder_.has_value();
    }

    const std::string &path_;
    bool tried_ = false;
    std::optional<LockFolder> folder_;
};

} // namespace

std::int64_t now_milliseconds() {
    // To a tick of the kernel, which is enough for limits and costs no look at a clock that may be slow to read.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

SharedBoard::SharedBoard(std::size_t jobs, std::size_t places) : size_(sizeof(Board) + places * sizeof(Board::Place)) {
    void *memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    board_ = new (memory) Board(jobs);
    for (std::size_t i = 0; i < places; ++i) new (&board_->place(i)) Board::Place;
}

SharedBoard::~SharedBoard() {
    if (board_ != nullptr) munmap(board_, size_);
}

void be_a_worker(const Employment &employment) {
    leave_the_parent(employment);
    Board::Place &place = employment.board.place(employment.place);
    Locks locks(employment.lock_folder);
    std::optional<std::size_t> next = employment.first ? employment.first : employment.board.take();
    for (; next; next = employment.board.take()) {
        place.since.store(now_milliseconds());
        place.job.store(static_cast<std::int64_t>(*next));
        const Outcome outcome = locks.outcome_of(employment.jobs[*next]);
        // With the last answer the parent may end, and this process with it.
        if (employment.board.waiting() == 0) locks.let_go();
        if (!send(*next, outcome)) _exit(1);
        place.job.store(-1);
    }
    locks.let_go();
    _exit(0);
}

} // namespace inventory
