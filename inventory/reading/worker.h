// The worker's side, and what it shares with its parent.
#pragma once

#include "inventory/reading/workers.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace inventory {

// Milliseconds of the clock that all processes share.
std::int64_t now_milliseconds();

// In memory that parent and workers share: the queue, and who is at which job since when.
class Board {
  public:
    struct Place {
        std::atomic<std::int64_t> job{-1}; // -1: between two jobs
        std::atomic<std::int64_t> since{0};
    };

    explicit Board(std::size_t jobs) : jobs_(static_cast<std::int64_t>(jobs)) {}

    [[nodiscard]] std::size_t waiting() const {
        const std::int64_t next = next_.load();
        return next < jobs_ ? static_cast<std::size_t>(jobs_ - next) : 0;
    }
    // The next job; nothing when all are taken.
    std::optional<std::size_t> take() {
        const std::int64_t job = next_.fetch_add(1);
        if (job >= jobs_) return std::nullopt;
        return static_cast<std::size_t>(job);
    }
    // Every worker has a place of its own: one that was killed may still write to it for a moment.
    Place &place(std::size_t index) { return reinterpret_cast<Place *>(this + 1)[index]; }

  private:
    std::int64_t jobs_;
    std::atomic<std::int64_t> next_{0};
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free, "the board is shared between processes");

// A board with its places behind it, in shared memory.
class SharedBoard {
  public:
    SharedBoard(std::size_t jobs, std::size_t places);
    SharedBoard(const SharedBoard &) = delete;
    SharedBoard &operator=(const SharedBoard &) = delete;
    ~SharedBoard();
    [[nodiscard]] Board *get() const { return board_; } // null without memory

  private:
    std::size_t size_;
    Board *board_ = nullptr;
};

// What goes before each answer in the pipe.
struct MessageHead {
    std::uint64_t job;
    std::uint64_t state; // Outcome::State
    std::uint64_t size;  // bytes of the answer, or of the words
};

struct Employment {
    const std::vector<Job> &jobs;
    Board &board;
    std::size_t place;
    int pipe;                         // its end for the answers
    std::optional<std::size_t> first; // this job before those of the queue
    const std::string &lock_folder;
    int parent; // process number
};

// The life of a worker, in the child.
[[noreturn]] void be_a_worker(const Employment &employment);

} // namespace inventory
