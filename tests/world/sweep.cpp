#include "sweep.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace torvane::world {
namespace {

constexpr size_t kMostBlocks = 1 << 18;
#if defined(TORVANE_SANITIZE)
constexpr bool kTakesLong = true;
#else
constexpr bool kTakesLong = false;
#endif

// The errors that fit each call, between blanks; the rest can only fail with EIO.
struct Errors {
    std::string_view calls;
    std::array<int, 3> errors;
};
constexpr Errors kErrors[] = {
    {" open openat fopen opendir fdopendir scandir glob mkdtemp pipe pipe2 inotify_init inotify_init1 ",
     {EMFILE, EIO, EINTR}},
    {" ioctl fcntl readlink readlinkat realpath access faccessat fstat lstat fstatat stat ", {EIO, ENODEV, EINTR}},
    {" fgets fread __isoc99_vfscanf read readdir getmntent_r ", {EIO, EINTR, ENODEV}},
    {" fclose close write fwrite mknod mkdir unlink unlinkat rmdir remove ", {ENOSPC, EIO, EINTR}},
    {" select poll ", {EINTR, ENOMEM, EBADF}},
    {" waitpid ", {EINTR, ECHILD}},
    {" fork ", {EAGAIN, ENOMEM}},
};

// ENOMEM for an allocation, and for a call the one in this place of those that fit it.
int error_of(Step step, std::string_view call, size_t place, bool *has_next) {
    *has_next = false;
    if (step == Step::kAllocation) return ENOMEM;
    for (const Errors &each : kErrors) {
        for (size_t at = each.calls.find(call); at < each.calls.size(); at = each.calls.find(call, at + 1)) {
            if (each.calls[at - 1] != ' ' || each.calls[at + call.size()] != ' ') continue;
            const size_t count = each.errors[2] == 0 ? 2 : 3;
            *has_next = place + 1 < count;
            return each.errors[place % count];
        }
    }
    return EIO;
}

// Plain data: malloc() uses it before any constructor has run.
struct Sweep {
    bool counting = false;
    Failure failure;
    const char *failed_call = nullptr;
    int error = 0;
    bool has_next = false;
};
constinit Sweep sweep;

// Blocks that the call under sweep allocated and that are not yet freed, in an open-addressed table.
std::array<void *, kMostBlocks> blocks;
size_t live_blocks;
size_t removed_blocks; // their slots
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
        ++removed_blocks;
        --live_blocks;
        return;
    }
}

} // namespace

bool fails_now(Step step, const char *name) {
    if (!sweep.counting || step != sweep.failure.step) return false;
    if (sweep.failure.index > 0) {
        --sweep.failure.index;
        return false;
    }
    if (sweep.failed_call != nullptr && !sweep.failure.for_good) return false;
    bool has_next = false;
    // A call interrupted for good would be tried again for good.
    int error = error_of(step, name, sweep.failure.error, &has_next);
    if (sweep.failure.for_good && error == EINTR) error = EIO;
    if (sweep.failed_call == nullptr) {
        sweep.failed_call = name;
        sweep.error = error;
        sweep.has_next = has_next && !sweep.failure.for_good;
    }
    errno = error;
    return true;
}

void stop_sweep() { sweep.counting = false; }

Uncounted::Uncounted(bool pause) : counted_(sweep.counting) { sweep.counting = counted_ && !pause; }
Uncounted::~Uncounted() { sweep.counting = counted_; }

Trial try_with(const Failure &failure, const std::function<void()> &call, const std::function<void()> &release) {
    if (live_blocks != 0 || removed_blocks > kMostBlocks / 2) {
        blocks.fill(nullptr);
        removed_blocks = 0;
    }
    live_blocks = 0;
    tracking = true;
    sweep = {.counting = true, .failure = failure};
    call();
    sweep.counting = false;
    release();
    tracking = false;
    Trial trial;
    trial.failed = sweep.failed_call != nullptr;
    trial.has_next = sweep.has_next;
    trial.blocks_left = live_blocks;
    if (trial.failed) {
        trial.at = std::string(sweep.failed_call) + " " + std::to_string(failure.index) + " (" +
                   strerrorname_np(sweep.error) + (failure.for_good ? ", and all after it)" : ")");
    }
    return trial;
}

long attempt_each_failure(bool all_errors, long stride, const std::function<Trial(const Failure &)> &attempt) {
    long points = 0;
    for (const Step step : {Step::kAllocation, Step::kCall}) {
        for (const bool for_good : {false, true}) {
            if (kTakesLong && step == Step::kAllocation && for_good) continue;
            Failure failure = {.step = step, .for_good = for_good};
            for (Trial trial = attempt(failure); trial.failed; trial = attempt(failure)) {
                const bool again = trial.has_next && all_errors;
                failure.index += again ? 0 : for_good ? stride : 1;
                failure.error = again ? failure.error + 1 : all_errors ? 0 : static_cast<size_t>(failure.index % 3);
                ++points;
            }
        }
    }
    return points;
}

void without_each_allocation(const std::function<void()> &call, const std::function<void(const Trial &)> &check) {
    Trial trial;
    trial.failed = true;
    for (long index = 0; trial.failed; ++index) {
        trial = try_with({.step = Step::kAllocation, .index = index}, call, [] {});
        check(trial);
    }
}

} // namespace torvane::world

using torvane::world::fails_now;
using torvane::world::Step;

extern "C" {

// The allocator's own names: the address sanitizer's, or the C library's.
#if defined(TORVANE_SANITIZE)
#define ALLOCATOR(name) __interceptor_##name
#else
#define ALLOCATOR(name) __libc_##name
#endif
void *ALLOCATOR(malloc)(size_t size);
void *ALLOCATOR(calloc)(size_t count, size_t size);
void *ALLOCATOR(realloc)(void *block, size_t size);
void ALLOCATOR(free)(void *block);

void *malloc(size_t size) noexcept {
    if (fails_now(Step::kAllocation, "allocation")) return nullptr;
    void *block = ALLOCATOR(malloc)(size);
    torvane::world::note(block);
    return block;
}

void *calloc(size_t count, size_t size) noexcept {
    if (fails_now(Step::kAllocation, "allocation")) return nullptr;
    void *block = ALLOCATOR(calloc)(count, size);
    torvane::world::note(block);
    return block;
}

void *realloc(void *block, size_t size) noexcept {
    if (fails_now(Step::kAllocation, "allocation")) return nullptr;
    torvane::world::forget(block);
    void *grown = ALLOCATOR(realloc)(block, size);
    torvane::world::note(grown != nullptr || size == 0 ? grown : block);
    return grown;
}

void free(void *block) noexcept {
    torvane::world::forget(block);
    ALLOCATOR(free)(block);
}

#if defined(TORVANE_SANITIZE)
// What is kept aside to find late uses is copied by every fork, of which a sweep makes thousands.
const char *__asan_default_options() {
    return "quarantine_size_mb=2:thread_local_quarantine_size_kb=64:malloc_context_size=8";
}

// The sanitizer's own takes memory past malloc().
char *strdup(const char *text) noexcept {
    const size_t size = std::strlen(text) + 1;
    void *block = malloc(size);
    return block == nullptr ? nullptr : static_cast<char *>(std::memcpy(block, text, size));
}
#endif

} // extern "C"
