#include "inventory/reading/workers.h"

#include "inventory/reading/descriptor.h"
#include "inventory/reading/signals.h"
#include "inventory/reading/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <list>
#include <utility>

namespace inventory {
namespace {

// One worker per so many jobs to begin with: a process costs as much as reading a few drives that answer at once.
constexpr std::size_t kJobsPerWorker = 8;
// While jobs wait for longer than this and workers give fewer answers than one each, further ones are started one by
// one: drives that take their time. Those that answer at once are done soonest by one worker a processor.
constexpr std::int64_t kGrowth = 20; // ms
// A worker that has been at one job for longer sits in the kernel and costs no processor, so it no longer counts
// against the number at work; that is how hundreds of dead disks end within about one time limit.
constexpr std::int64_t kSilent = 300;      // ms
constexpr std::int64_t kTickPeriod = 1000; // ms
constexpr std::size_t kMostAlive = 256;
constexpr const char *kNoResult = "the reader ended without a result";

// Killed workers that sleep in the kernel, and those that ended on their own, until they can be reaped. They outlive
// the crew that they belonged to.
std::vector<pid_t> left_behind; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

// Before there are more to leave behind: at that moment there may be no memory.
void make_room(std::size_t processes) {
    if (left_behind.capacity() - left_behind.size() >= processes) return;
    left_behind.reserve(left_behind.size() + processes + kMostAlive);
}

// Never a wait: a killed process may sleep in the kernel for as long as its disk does.
void reap() {
    std::erase_if(left_behind, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
}

std::string system_words(const char *what) { return std::string(what) + ": " + std::strerror(errno); }

std::string seconds_of(std::chrono::milliseconds limit) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", static_cast<double>(limit.count()) / 1000);
    return text.data();
}

struct Worker {
    pid_t pid = -1;
    Descriptor pipe;
    std::string received;
    std::size_t place = 0;
    bool has_answered = false;
    bool has_news = false; // or has ended
};

// False at the end of the pipe.
bool receive(Worker &worker) {
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): read fills it
    while (true) {
        const ssize_t count = retried([&] { return read(worker.pipe.get(), buffer.data(), buffer.size()); });
        if (count <= 0) return count < 0 && errno == EAGAIN;
        worker.received.append(buffer.data(), static_cast<std::size_t>(count));
        if (static_cast<std::size_t>(count) < buffer.size()) return true; // for now it is empty
    }
}

// Of a worker whose pipe has ended, so that it is about to end itself. Reaped, or left to be.
std::string how_it_ended(pid_t pid) {
    constexpr int kTries = 50;
    constexpr useconds_t kPause = 2000;
    int status = 0;
    for (int i = 0; i < kTries; ++i) {
        const pid_t ended = retried([&] { return waitpid(pid, &status, WNOHANG); });
        if (ended == pid && WIFSIGNALED(status)) {
            return "the reader was ended by signal " + std::to_string(WTERMSIG(status));
        }
        if (ended != 0) return kNoResult;
        usleep(kPause);
    }
    left_behind.push_back(pid);
    return kNoResult;
}

// More than there can be need of: but for those that find the queue empty, each worker takes a job with it.
std::size_t places_of(std::size_t jobs) { return jobs + kMostAlive; }

std::size_t processors() {
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online < 2 ? 2 : static_cast<std::size_t>(online);
}

class Crew {
  public:
    Crew(const std::vector<Job> &jobs, const Work &work, Board &board)
        : jobs_(jobs), work_(work), board_(board), decided_(jobs.size(), false), undecided_(jobs.size()) {
        const std::size_t wanted = (jobs.size() + kJobsPerWorker - 1) / kJobsPerWorker;
        const std::size_t most = std::min(work.workers, processors());
        first_crew_ = std::clamp<std::size_t>(wanted, 1, std::max<std::size_t>(most, 1));
    }
    Crew(const Crew &) = delete;
    Crew &operator=(const Crew &) = delete;
    ~Crew() { dismiss_all(); }

    void run() {
        while (undecided_ > 0) {
            hire();
            if (undecided_ > 0) wait_for_news();
            collect();
            dismiss_late();
            reap();
            tick();
        }
    }

  private:
    using Place = Board::Place;

    void decide(std::size_t job, Outcome outcome) {
        if (job >= decided_.size() || decided_[job]) return;
        decided_[job] = true;
        --undecided_;
        ++answers_;
        jobs_[job].done(std::move(outcome));
    }

    [[nodiscard]] bool jobs_wait() const { return !orphans_.empty() || board_.waiting() > 0; }

    [[nodiscard]] std::size_t at_work() const {
        const std::int64_t now = now_milliseconds();
        return static_cast<std::size_t>(std::count_if(workers_.begin(), workers_.end(), [&](const Worker &worker) {
            const Place &place = board_.place(worker.place);
            return place.job.load() < 0 || now - place.since.load() < kSilent;
        }));
    }

    [[nodiscard]] bool may_hire() {
        if (workers_.size() >= kMostAlive) return false;
        if (hired_ < first_crew_) return true;
        const std::size_t busy = at_work();
        return busy == 0 || (busy < work_.workers && is_slow());
    }

    // Whether too few answers came of late.
    [[nodiscard]] bool is_slow() {
        if (now_milliseconds() - last_hired_ < kGrowth) return false;
        const std::size_t answers = std::exchange(answers_, 0);
        if (answers < workers_.size()) return true;
        last_hired_ = now_milliseconds();
        return false;
    }

    void hire() {
        while (jobs_wait() && may_hire()) {
            const std::string words = start();
            if (words.empty()) continue;
            if (!workers_.empty()) return; // they take the job
            refuse_next(words);
        }
        if (!jobs_wait() && workers_.empty()) give_up();
    }

    std::optional<std::size_t> take_orphan() {
        if (orphans_.empty()) return std::nullopt;
        const std::size_t job = orphans_.back();
        orphans_.pop_back();
        return job;
    }

    void refuse_next(const std::string &words) {
        std::optional<std::size_t> job = take_orphan();
        if (!job) job = board_.take();
        if (job) decide(*job, {Outcome::State::kNotStarted, {}, words});
    }

    // Jobs that were taken from the queue by a worker that was killed from outside before it could say so.
    void give_up() {
        for (std::size_t job = 0; job < jobs_.size(); ++job) {
            decide(job, {Outcome::State::kCrashed, {}, kNoResult});
        }
    }

    // "", or why there is no further worker.
    std::string start() {
        if (hired_ >= places_of(jobs_.size())) return "too many readers ended without a result";
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) < 0) return system_words("cannot make a pipe");
        Worker worker;
        worker.pipe = Descriptor(ends[0]);
        const Descriptor theirs(ends[1]);
        worker.place = hired_;
        const std::optional<std::size_t> first = take_orphan();
        make_room(workers_.size() + 1);
        std::list<Worker> hired(1);
        const pid_t parent = getpid();
        worker.pid = fork();
        if (worker.pid == 0) {
            signals_.restore();
            be_a_worker({jobs_, board_, worker.place, theirs.get(), first, work_.lock_folder, parent});
        }
        if (worker.pid < 0) {
            std::string words = system_words("cannot start a process");
            if (first) orphans_.push_back(*first);
            return words;
        }
        setpgid(worker.pid, worker.pid); // whichever of the two comes first
        fcntl(worker.pipe.get(), F_SETFL, O_NONBLOCK);
        hired.front() = std::move(worker);
        workers_.splice(workers_.end(), hired);
        ++hired_;
        last_hired_ = now_milliseconds();
        return {};
    }

    [[nodiscard]] std::int64_t next_news() const {
        const std::int64_t now = now_milliseconds();
        std::int64_t next = now + kTickPeriod;
        if (work_.tick) next = std::min(next, last_tick_ + kTickPeriod);
        if (jobs_wait()) next = std::min(next, now + kGrowth);
        for (const Worker &worker : workers_) {
            const Place &place = board_.place(worker.place);
            if (place.job.load() >= 0) next = std::min(next, place.since.load() + work_.limit.count());
        }
        // A worker may begin its job right after this look at it.
        return std::max<std::int64_t>(0, std::min(next - now, work_.limit.count()));
    }

    // While there is a queue, several answers are taken at a time: being woken for each costs as much as taking it. A
    // fraction of the time so far, so that nobody waits long for the last ones.
    [[nodiscard]] int pause_for_more() const {
        constexpr std::int64_t kFraction = 8;
        constexpr std::int64_t kLongest = 4; // ms
        if (board_.waiting() == 0) return 0;
        return static_cast<int>(std::min((now_milliseconds() - begun_) / kFraction, kLongest));
    }

    void wait_for_news() {
        std::vector<pollfd> polled{{signals_.descriptor(), POLLIN, 0}};
        for (const Worker &worker : workers_) polled.push_back({worker.pipe.get(), POLLIN, 0});
        if (const int pause = pause_for_more(); pause > 0) poll(polled.data(), 1, pause);
        const bool is_told = poll(polled.data(), polled.size(), static_cast<int>(next_news())) >= 0;
        auto next = polled.begin();
        for (Worker &worker : workers_) worker.has_news = !is_told || (++next)->revents != 0;
        if (const std::optional<int> signal = signals_.pending()) {
            kill_all();
            signals_.end_by(*signal);
        }
    }

    void collect() {
        for (auto worker = workers_.begin(); worker != workers_.end();) {
            if (!worker->has_news) {
                ++worker;
                continue;
            }
            const bool lives = receive(*worker);
            take_messages(*worker);
            if (lives) {
                ++worker;
                continue;
            }
            const Worker gone = std::move(*worker);
            worker = workers_.erase(worker);
            bury(gone);
        }
    }

    void take_messages(Worker &worker) {
        std::size_t place = 0;
        MessageHead head{};
        while (worker.received.size() - place >= sizeof head) {
            std::memcpy(&head, worker.received.data() + place, sizeof head);
            if (worker.received.size() - place - sizeof head < head.size) break;
            std::string text = worker.received.substr(place + sizeof head, head.size);
            place += sizeof head + head.size;
            worker.has_answered = true;
            const auto state = static_cast<Outcome::State>(head.state);
            if (state == Outcome::State::kDone) {
                decide(head.job, {state, std::move(text), {}});
            } else {
                decide(head.job, {state, {}, std::move(text)});
            }
        }
        worker.received.erase(0, place);
    }

    // The job that a worker is at, if it is not done.
    std::optional<std::size_t> job_of(const Worker &worker) {
        const std::int64_t job = board_.place(worker.place).job.load();
        if (job < 0 || decided_[static_cast<std::size_t>(job)]) return std::nullopt;
        return static_cast<std::size_t>(job);
    }

    void bury(const Worker &gone) {
        const std::optional<std::size_t> job = job_of(gone);
        if (job) {
            decide(*job, {Outcome::State::kCrashed, {}, how_it_ended(gone.pid)});
            return;
        }
        left_behind.push_back(gone.pid);
        // A machine that lets no worker live long enough for a job would have them started for ever.
        if (!gone.has_answered && jobs_wait()) refuse_next("the reader's process ended before it began");
    }

    // The whole group: the commands that the reader started go with it.
    static void kill_group(pid_t pid) { kill(-pid, SIGKILL); }

    void dismiss_late() {
        const std::int64_t now = now_milliseconds();
        for (auto worker = workers_.begin(); worker != workers_.end();) {
            const std::optional<std::size_t> job = job_of(*worker);
            const Place &place = board_.place(worker->place);
            if (!job || now - place.since.load() < work_.limit.count()) {
                ++worker;
                continue;
            }
            Worker late = std::move(*worker);
            worker = workers_.erase(worker);
            dismiss(late, *job);
        }
    }

    // Its last answer may come with the very end of the time limit, and the worker be at the next job by then: that
    // one goes to somebody else.
    void dismiss(Worker &late, std::size_t job) {
        kill_group(late.pid);
        left_behind.push_back(late.pid);
        receive(late);
        take_messages(late);
        const std::optional<std::size_t> last = job_of(late);
        if (last && *last != job) orphans_.push_back(*last);
        decide(job, {Outcome::State::kTimedOut, {}, "no answer within " + seconds_of(work_.limit) + " s"});
    }

    void tick() {
        const std::int64_t now = now_milliseconds();
        if (!work_.tick || now - last_tick_ < kTickPeriod) return;
        last_tick_ = now;
        work_.tick();
    }

    void kill_all() {
        for (const Worker &worker : workers_) kill_group(worker.pid);
    }

    // At the end the queue is empty and they go on their own; when a `done` threw, they are stopped.
    void dismiss_all() {
        if (undecided_ > 0) kill_all();
        for (const Worker &worker : workers_) left_behind.push_back(worker.pid);
        reap();
    }

    const std::vector<Job> &jobs_;
    const Work &work_;
    Board &board_;
    EndingSignals signals_;
    std::vector<bool> decided_;
    std::size_t undecided_;
    std::vector<std::size_t> orphans_;
    std::list<Worker> workers_;
    std::size_t first_crew_ = 1;
    std::size_t hired_ = 0;
    std::int64_t begun_ = now_milliseconds();
    std::int64_t last_hired_ = 0; // or found enough
    std::size_t answers_ = 0;     // since then
    std::int64_t last_tick_ = now_milliseconds();
};

} // namespace

void do_jobs(const std::vector<Job> &jobs, const Work &work) {
    if (jobs.empty()) return;
    const SharedBoard board(jobs.size(), places_of(jobs.size()));
    if (board.get() != nullptr) {
        Crew(jobs, work, *board.get()).run();
        return;
    }
    const std::string words = system_words("cannot share memory with workers");
    for (const Job &job : jobs) job.done({Outcome::State::kNotStarted, {}, words});
}

} // namespace inventory
