// Failure sweeps: a library call is run again and again, with its first, second, ... allocation or system call
// failing, once and for good.
#ifndef TORVANE_TESTS_WORLD_SWEEP_H
#define TORVANE_TESTS_WORLD_SWEEP_H

#include <functional>

namespace torvane::world {

enum class Step { kAllocation, kSystemCall };

// `call` makes the library call and returns its result; it must not allocate by itself. `check` judges the
// result and releases what the call handed out; `failed` says whether a step has failed during the call.
// After each run nothing that the call allocated and no descriptor may be left.
using SweptCall = std::function<int()>;
using SweptCheck = std::function<void(int result, bool failed)>;

// Every malloc(), calloc(), realloc() and whatever the C library builds on them. Under the address sanitizer,
// which owns the heap, the call is made once without a failure.
void sweep_allocations(const SweptCall &call, const SweptCheck &check);

// Every system call that answers.cpp answers, failing with EIO.
void sweep_system_calls(const SweptCall &call, const SweptCheck &check);

// For checks of calls that have one failure value. Steps that may fail unharmed (a stream's buffer, say) let the
// call succeed all the same.
void expect_swept(int result, bool failed, int success = 0, int failure = -1);

// Whether the step now being made is the one to fail; sets errno then.
bool fails_now(Step step);

// While one of these lives, steps are neither counted nor made to fail: the fixture's own doings.
class Uncounted {
  public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted &) = delete;
    Uncounted &operator=(const Uncounted &) = delete;

  private:
    bool counted_;
};

} // namespace torvane::world

#endif
