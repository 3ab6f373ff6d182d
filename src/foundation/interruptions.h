// Going on where a caller's signal handler has interrupted a call.
#ifndef TORVANE_FOUNDATION_INTERRUPTIONS_H
#define TORVANE_FOUNDATION_INTERRUPTIONS_H

#include <cerrno>
#include <cstdint>

namespace torvane {

// Whether the call that has just failed was interrupted and is to be made again. What is interrupted for ever
// fails: after so many times a timer of 1 kHz has run for a quarter of an hour.
class Interruptions {
  public:
    bool again() noexcept { return errno == EINTR && ++count_ < kMost; }

  private:
    static constexpr uint32_t kMost = 1'000'000;
    uint32_t count_ = 0;
};

} // namespace torvane

#endif
