#include "inventory/reading/isolated.h"
#include "inventory/reading/locks.h"
#include "inventory/reading/workers.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <set>
#include <stdexcept>

namespace {
int forks_that_fail = 0; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
} // namespace

extern "C" pid_t fork() noexcept {
    if (forks_that_fail == 0) return _Fork();
    --forks_that_fail;
    errno = EAGAIN;
    return -1;
}

namespace {

using namespace inventory;
using namespace std::chrono_literals;
using State = Outcome::State;
using Reading = std::function<std::string()>;

constexpr auto kLimit = 20s;

std::vector<Outcome> outcomes_of(const std::vector<Reading> &readings, const Work &work, const std::string &lock = {}) {
    std::vector<Outcome> outcomes(readings.size());
    std::vector<Job> jobs;
    for (std::size_t i = 0; i < readings.size(); ++i) {
        jobs.push_back({readings[i], [&outcomes, i](Outcome outcome) { outcomes[i] = std::move(outcome); },
                        [lock] { return lock; }});
    }
    do_jobs(jobs, work);
    return outcomes;
}

std::string process_number() { return std::to_string(getpid()); }

// Gone, or dead and not yet reaped by whose child it has become.
bool is_gone(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    return !(stat >> field >> field >> field) || field == "Z" || field == "X";
}

bool goes(pid_t pid) {
    for (int i = 0; i < 400 && !is_gone(pid); ++i) usleep(25'000);
    return is_gone(pid);
}

class Folder {
  public:
    Folder() { EXPECT_NE(mkdtemp(path_), nullptr); }
    ~Folder() { std::system(("rm -r " + std::string(path_)).c_str()); }
    [[nodiscard]] std::string path() const { return path_; }

  private:
    char path_[32] = "/tmp/workers_test.XXXXXX";
};

TEST(Workers, FewProcessesReadManyDevicesAndEveryAnswerComesWhole) {
    for (const auto &[count, most] : {std::pair<std::size_t, std::size_t>(1, 1), {8, 8}, {64, 8}, {500, 8}}) {
        std::vector<Reading> readings;
        for (std::size_t i = 0; i < count; ++i) {
            // The largest is more than a pipe holds.
            readings.emplace_back([i] { return process_number() + " " + std::string(i * 150, '\xff'); });
        }
        std::set<std::string> processes;
        const auto outcomes = outcomes_of(readings, {.limit = kLimit});
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(outcomes[i].state, State::kDone) << outcomes[i].words;
            const std::size_t blank = outcomes[i].answer.find(' ');
            EXPECT_EQ(outcomes[i].answer.substr(blank + 1), std::string(i * 150, '\xff'));
            processes.insert(outcomes[i].answer.substr(0, blank));
        }
        EXPECT_LE(processes.size(), most) << count << " jobs";
        EXPECT_FALSE(processes.contains(process_number()));
    }
}

TEST(Workers, AReaderThatFailsCostsItsOwnAnswerOnly) {
    const std::vector<std::pair<Reading, std::string>> cases = {
        {[] { return raise(SIGKILL), std::string(); }, "the reader was ended by signal 9"},
        {[]() -> std::string { _exit(0); }, "the reader ended without a result"},
        {[]() -> std::string { throw 1; }, "the reader ended without a result"},
        {[]() -> std::string { throw std::runtime_error("no such page"); }, "no such page"},
#if !defined(__SANITIZE_ADDRESS__)
        {[] { return std::string(std::size_t{1} << 30U, 'x'); }, "the reader needed more than 512 MiB of memory"},
#endif
    };
    std::vector<Reading> readings(40, [] { return std::string("good"); });
    for (std::size_t i = 0; i < cases.size(); ++i) readings[i * 7] = cases[i].first;
    const auto outcomes = outcomes_of(readings, {.limit = kLimit});
    for (std::size_t i = 0; i < readings.size(); ++i) {
        const bool is_bad = i % 7 == 0 && i / 7 < cases.size();
        EXPECT_EQ(outcomes[i].state, is_bad ? State::kCrashed : State::kDone) << i;
        EXPECT_EQ(outcomes[i].words, is_bad ? cases[i / 7].second : "");
    }
}

TEST(Workers, HungReadersEndTogetherAndCostNobodyElseTheirAnswer) {
    std::vector<Reading> readings(60, [] { return std::string("good"); });
    for (std::size_t i = 0; i < readings.size(); i += 2) readings[i] = [] { return std::to_string(pause()); };
    const auto before = std::chrono::steady_clock::now();
    const auto outcomes = outcomes_of(readings, {.limit = 3s});
    // One after the other they would take a minute and a half.
    EXPECT_LT(std::chrono::steady_clock::now() - before, 20s);
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        EXPECT_EQ(outcomes[i].state, i % 2 == 0 ? State::kTimedOut : State::kDone);
        EXPECT_EQ(outcomes[i].words, i % 2 == 0 ? "no answer within 3 s" : "");
    }
}

TEST(Workers, TheTickComesOnceASecond) {
    int ticks = 0;
    std::vector<Reading> readings(50, [] {
        usleep(20'000); // news come all the time
        return std::string();
    });
    readings.emplace_back([] {
        usleep(2'500'000);
        return std::string();
    });
    outcomes_of(readings, {.limit = kLimit, .tick = [&ticks] { ++ticks; }});
    EXPECT_GE(ticks, 2);
    EXPECT_LE(ticks, 5);
}

// In a process of its own, which the limits end with.
void in_a_process(const std::function<bool()> &holds) {
    const pid_t child = fork();
    if (child == 0) _exit(holds() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

bool all_refused(const std::string &words, std::size_t jobs) {
    const auto outcomes = outcomes_of(std::vector<Reading>(jobs, process_number), {.limit = kLimit});
    return std::all_of(outcomes.begin(), outcomes.end(), [&](const Outcome &outcome) {
        return outcome.state == State::kNotStarted && outcome.words == words;
    });
}

TEST(Workers, WantOfProcessesAndDescriptorsIsNamed) {
    in_a_process([] {
        const rlimit none{0, 0};
        return (geteuid() != 0 || setuid(65534) == 0) && setrlimit(RLIMIT_NPROC, &none) == 0 &&
               all_refused("cannot start a process: Resource temporarily unavailable", 20);
    });
    in_a_process([] {
        const rlimit few{3, 3};
        return setrlimit(RLIMIT_NOFILE, &few) == 0 && all_refused("cannot make a pipe: Too many open files", 20);
    });
}

TEST(Workers, OneProcessThatCannotBeHadCostsOneAnswer) {
    forks_that_fail = 1;
    const auto outcomes = outcomes_of(std::vector<Reading>(20, process_number), {.limit = kLimit});
    EXPECT_EQ(forks_that_fail, 0);
    EXPECT_EQ(std::count_if(outcomes.begin(), outcomes.end(),
                            [](const Outcome &outcome) { return outcome.state == State::kDone; }),
              19);
}

TEST(Workers, TheyGoWithTheirParentHoweverItEnds) {
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t parent = fork();
        if (parent == 0) {
            // The workers keep no descriptors, so they tell their numbers by name.
            const std::string path = "/proc/" + process_number() + "/fd/" + std::to_string(ends[1]);
            outcomes_of(std::vector<Reading>(3,
                                             [&] {
                                                 const pid_t pid = getpid();
                                                 const int fd = open(path.c_str(), O_WRONLY);
                                                 if (write(fd, &pid, sizeof pid) != sizeof pid) _exit(1);
                                                 pause();
                                                 return std::string();
                                             }),
                        {.limit = 100s});
            _exit(0);
        }
        pid_t workers[3];
        for (pid_t &pid : workers) ASSERT_EQ(read(ends[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
        kill(parent, signal);
        int status = 0;
        waitpid(parent, &status, 0);
        EXPECT_EQ(WTERMSIG(status), signal);
        for (const pid_t pid : workers) EXPECT_TRUE(goes(pid)) << "after signal " << signal;
        close(ends[0]);
        close(ends[1]);
    }
}

TEST(Isolated, ALateFunctionIsKilledWithTheCommandsItStarted) {
    const Folder folder;
    const std::string marker = folder.path() + "/marker";
    const std::string command = "echo $$ > " + marker + "; exec sleep 1000";
    const IsolatedOutcome outcome = run_isolated([&]() -> Wire { return std::system(command.c_str()); }, 1500ms);
    EXPECT_EQ(outcome.state, State::kTimedOut);
    EXPECT_EQ(outcome.words, "no answer within 1.5 s");
    pid_t pid = 0;
    std::ifstream(marker) >> pid;
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(goes(pid));
}

TEST(Isolated, NothingThatARunCommandPrintsGetsOut) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const IsolatedOutcome outcome = run_isolated(
        []() -> Wire {
            return {{"status", std::system("echo out; echo error >&2")}};
        },
        kLimit);
    EXPECT_EQ(outcome.state, State::kDone) << outcome.words;
    EXPECT_EQ(outcome.result, (Wire{{"status", 0}}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A process that takes a lock and, after a while, ends without letting go of it.
pid_t holder_of(const std::string &folder, const std::string &name, useconds_t microseconds) {
    const pid_t child = fork();
    if (child == 0) {
        auto locks = LockFolder::open(folder);
        if (locks->take(name)) _exit(1);
        usleep(microseconds);
        _exit(0);
    }
    const std::string file = folder + "/" + name;
    for (int i = 0; i < 400 && access(file.c_str(), F_OK) != 0; ++i) usleep(5'000);
    usleep(50'000); // the file is there before its lock
    return child;
}

TEST(Locks, AHeldLockKeepsASecondProcessAway) {
    const Folder folder;
    const pid_t holder = holder_of(folder.path(), "8:16-3", 60'000'000);
    const Work work{.limit = kLimit, .lock_folder = folder.path()};
    std::string words;
    for (int run = 0; run < 2; ++run) {
        const auto outcomes = outcomes_of({process_number}, work, "8:16-3");
        ASSERT_EQ(outcomes[0].state, State::kHeld);
        words = outcomes[0].words;
        EXPECT_TRUE(words.starts_with("has not answered since 2")) << words;
        EXPECT_NE(words.find(": process " + std::to_string(holder) + " still waits"), std::string::npos) << words;
    }
    EXPECT_EQ(outcomes_of({process_number}, work, "8:16-4")[0].state, State::kDone) << "another device's lock";
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(outcomes_of({process_number}, work, "8:16-3")[0].state, State::kDone) << "its holder is gone";
    EXPECT_NE(access((folder.path() + "/8:16-3").c_str(), F_OK), 0) << "nothing is left";
}

TEST(Locks, WhoIsDoneInAMomentIsWaitedFor) {
    const Folder folder;
    const pid_t holder = holder_of(folder.path(), "8:0", 300'000);
    const auto outcomes = outcomes_of({process_number}, {.limit = kLimit, .lock_folder = folder.path()}, "8:0");
    EXPECT_EQ(outcomes[0].state, State::kDone) << outcomes[0].words;
    waitpid(holder, nullptr, 0);
}

TEST(Locks, AFolderThatOthersMayWriteIsNone) {
    const Folder folder;
    chmod(folder.path().c_str(), 0777);
    EXPECT_FALSE(LockFolder::open(folder.path()));
    const std::string link = folder.path() + "/link";
    ASSERT_EQ(symlink("/tmp", link.c_str()), 0);
    EXPECT_FALSE(LockFolder::open(link));
    EXPECT_TRUE(LockFolder::open(folder.path() + "/new"));
    struct stat status {};
    ASSERT_EQ(stat((folder.path() + "/new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

} // namespace
