#include "sweep.h"
#include "world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define TORVANE_OWN_HEAP 0
#else
#define TORVANE_OWN_HEAP 1
#endif

namespace torvane::world {
namespace {

constexpr long kMostSteps = 20000;
constexpr size_t kMostBlocks = 1 << 18;

// Plain data: malloc() uses it before any constructor has run.
struct Sweep {
    bool counting = false;
    Step kind = Step::kAllocation;
    long left = 0; // steps that still succeed
    bool for_good = false;
    bool failed = false;
};
Sweep sweep;

// Blocks that the call under sweep allocated and that are not yet freed, in an open-addressed table.
std::array<void *, kMostBlocks> blocks;
size_t live_blocks;
bool tracking;
void *const kRemoved = &blocks;

size_t first_slot(const void *block) { return (reinterpret_cast<uintptr_t>(block) >> 4) % kMostBlocks; }

[[maybe_unused]] void note(void *block) {
    if (!sweep.counting || block == nullptr || live_blocks > kMostBlocks / 2) return;
    size_t slot = first_slot(block);
    while (blocks[slot] != nullptr && blocks[slot] != kRemoved) slot = (slot + 1) % kMostBlocks;
    blocks[slot] = block;
    ++live_blocks;
}

[[maybe_unused]] void forget(const void *block) {
    if (!tracking || block == nullptr) return;
    for (size_t slot = first_slot(block); blocks[slot] != nullptr; slot = (slot + 1) % kMostBlocks) {
        if (blocks[slot] != block) continue;
        blocks[slot] = kRemoved;
        --live_blocks;
        return;
    }
}

// One run; true when a step failed in it.
bool run(const SweptCall &call, const SweptCheck &check, Step kind, long successes, bool for_good) {
    SCOPED_TRACE(std::string(kind == Step::kAllocation ? "allocation " : "system call ") + std::to_string(successes) +
                 (for_good ? " and all later ones fail" : " fails"));
    const auto descriptors = open_descriptors();
    if (live_blocks != 0 || kind == Step::kAllocation) blocks.fill(nullptr);
    live_blocks = 0;
    tracking = true;
    sweep = {.counting = true, .kind = kind, .left = successes, .for_good = for_good, .failed = false};
    const int result = call();
    sweep.counting = false;
    check(result, sweep.failed);
    tracking = false;
    EXPECT_EQ(live_blocks, 0U) << "blocks left allocated";
    EXPECT_EQ(open_descriptors(), descriptors) << "descriptors left open";
    return sweep.failed;
}

void sweep_all(Step kind, const SweptCall &call, const SweptCheck &check) {
    // The first call of all may leave caches of the C library behind.
    check(call(), false);
    for (const bool for_good : {false, true}) {
        long steps = 0;
        while (run(call, check, kind, steps, for_good)) {
            if (testing::Test::HasFailure()) return;
            ASSERT_LT(++steps, kMostSteps) << "the call never comes to an end";
        }
        ASSERT_GT(steps, 0) << "the call has nothing that could fail";
    }
}

} // namespace

bool fails_now(Step step) {
    if (!sweep.counting || step != sweep.kind) return false;
    if (sweep.left > 0) {
        --sweep.left;
        return false;
    }
    if (sweep.failed && !sweep.for_good) return false;
    sweep.failed = true;
    errno = step == Step::kAllocation ? ENOMEM : EIO;
    return true;
}

Uncounted::Uncounted() : counted_(sweep.counting) { sweep.counting = false; }
Uncounted::~Uncounted() { sweep.counting = counted_; }

void expect_swept(int result, bool failed, int success, int failure) {
    EXPECT_TRUE(result == success || (failed && result == failure))
        << result << (failed ? " after" : " without") << " a failed step";
}

void sweep_allocations(const SweptCall &call, const SweptCheck &check) {
    if (TORVANE_OWN_HEAP) return sweep_all(Step::kAllocation, call, check);
    check(call(), false);
}

void sweep_system_calls(const SweptCall &call, const SweptCheck &check) { sweep_all(Step::kSystemCall, call, check); }

} // namespace torvane::world

#if TORVANE_OWN_HEAP

using torvane::world::fails_now;
using torvane::world::Step;

extern "C" {

// The C library's own names of its allocator.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);

void *malloc(size_t size) noexcept {
    if (fails_now(Step::kAllocation)) return nullptr;
    void *block = __libc_malloc(size);
    torvane::world::note(block);
    return block;
}

void *calloc(size_t count, size_t size) noexcept {
    if (fails_now(Step::kAllocation)) return nullptr;
    void *block = __libc_calloc(count, size);
    torvane::world::note(block);
    return block;
}

void *realloc(void *block, size_t size) noexcept {
    if (fails_now(Step::kAllocation)) return nullptr;
    torvane::world::forget(block);
    void *grown = __libc_realloc(block, size);
    torvane::world::note(grown != nullptr || size == 0 ? grown : block);
    return grown;
}

void free(void *block) noexcept {
    torvane::world::forget(block);
    __libc_free(block);
}

} // extern "C"

#endif
