// Failures made to measure: the n-th allocation or system call of a run fails, it alone or with all that follow.
#ifndef TORVANE_TESTS_WORLD_SWEEP_H
#define TORVANE_TESTS_WORLD_SWEEP_H

#include <cstddef>
#include <functional>
#include <string>

namespace torvane::world {

// malloc(), calloc(), realloc() and whatever the C library builds on them; or every call that answers.cpp answers.
enum class Step { kAllocation, kCall };

// Whether the step now being made is the one to fail; sets errno then.
bool fails_now(Step step, const char *name);

// In a child that is none of the sweep's.
void stop_sweep();

// While one of these lives, steps are neither counted nor made to fail: the fixture's own doings.
class Uncounted {
  public:
    explicit Uncounted(bool pause = true);
    ~Uncounted();
    Uncounted(const Uncounted &) = delete;
    Uncounted &operator=(const Uncounted &) = delete;

  private:
    bool counted_;
};

struct Failure {
    Step step = Step::kCall;
    long index = 0; // steps before the one that fails
    bool for_good = false;
    size_t error = 0; // which of the errors that fit the step
};

struct Trial {
    bool failed = false;    // whether the run came as far as the failing step
    std::string at;         // which failed, and how
    bool has_next = false;  // whether another error fits that step
    size_t blocks_left = 0; // allocated by the run and not freed by `release`
};

// Runs `call` with the failure, then `release`, which frees what the call handed out.
Trial try_with(const Failure &failure, const std::function<void()> &call, const std::function<void()> &release);

// Attempts an operation with each of its failures: every allocation and then every call, alone and with all that
// follow, with all of the errors that fit or with one by turns. Of those for good every `stride`-th; how many they were.
long attempt_each_failure(bool all_errors, long stride, const std::function<Trial(const Failure &)> &attempt);

// Runs `call` with each of its allocations failing alone, at last with none; `check` looks at each run.
void without_each_allocation(const std::function<void()> &call, const std::function<void(const Trial &)> &check);

} // namespace torvane::world

#endif
