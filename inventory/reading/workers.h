// Readers in processes of their own: a device that never answers holds up nobody but its worker.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace inventory {

struct Outcome {
    enum class State {
        kDone,
        kTimedOut,   // killed at the time limit, and left behind: who sleeps in the kernel cannot be waited for
        kHeld,       // a process of an earlier run still waits for the device, so that nobody was sent after it
        kCrashed,    // the reader ended or threw
        kNotStarted, // no process could be had for it
    };
    State state = State::kNotStarted;
    std::string answer; // what the reader returned, when it is done
    std::string words;  // why it is not
};

struct Job {
    // Runs in a worker with standard input, output and error on /dev/null and nothing else open: the library's
    // own commands, or a pipe that a hung worker holds open, never meddle with what the program prints.
    std::function<std::string()> read;
    std::function<void(Outcome)> done; // runs in the parent, as soon as the answer is there
    // Runs in the worker before it reads: the name of the lock that it holds meanwhile; none or "" for no lock.
    std::function<std::string()> lock = {};
};

inline constexpr std::size_t kWorkers = 8;

struct Work {
    std::chrono::milliseconds limit; // for each job
    std::function<void()> tick = {}; // called about once a second, to show that something goes on
    std::size_t workers = kWorkers;  // at most so many at once, those not counted that have long been silent
    std::string lock_folder = {};    // "": the usual one
};

// Does the jobs, which workers take one after the other from a common queue, and returns when all are done. Jobs are
// taken in order; they end as they may. Never throws for want of processes, descriptors or memory in a worker.
void do_jobs(const std::vector<Job> &jobs, const Work &work);

} // namespace inventory
