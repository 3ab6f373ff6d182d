// Readers in processes of their own: a disk that never answers holds up nobody but its reader.
#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <utility>

namespace tool {

using Wire = nlohmann::json;

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing
struct Outcome {
    enum class State { kDone, kTimedOut, kCrashed };
    State state = State::kCrashed;
    Wire result;       // what the reader returned, when it is done
    std::string words; // why it is not
};

// Runs in the child, with standard input, output and error on /dev/null: the library's own commands and a
// terminal or pipe that a hung child holds open never meddle with what the tool prints.
using Reader = std::function<Wire()>;

struct Task {
    Reader reader;
    // Runs in the parent; it may add further tasks.
    std::function<void(Outcome)> done;
};

// Runs tasks side by side, each within the time limit. A child that exceeds it is killed and left behind:
// one that sleeps in the kernel cannot be waited for.
class Isolation {
  public:
    explicit Isolation(std::chrono::milliseconds limit) : limit_(limit) {}

    // Called about once a second while tasks run, to show that something goes on.
    void on_tick(std::function<void()> tick) { tick_ = std::move(tick); }
    void add(Task task) { waiting_.push_back(std::move(task)); }
    void run();

  private:
    std::chrono::milliseconds limit_;
    std::deque<Task> waiting_;
    std::function<void()> tick_;
};

// One reader alone.
Outcome run_isolated(const Reader &reader, std::chrono::milliseconds limit);

} // namespace tool
