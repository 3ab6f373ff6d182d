// External commands within bounds. A maker's tool may print for ever, ignore SIGTERM, leave processes behind, write
// logs wherever it stands: none of that outlives the call.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace inventory {

struct CommandLimits {
    std::chrono::milliseconds time{60'000};
    std::size_t output = std::size_t{16} << 20U; // bytes kept; a tool that prints more is ended
    std::size_t errors = std::size_t{64} << 10U; // of standard error; what is beyond is dropped
};

struct CommandResult {
    std::string output; // what came until the end or the trouble
    std::string errors;
    int status = -1;     // exit status; 128 + signal when a signal ended it; -1 unknown
    std::string trouble; // "" when it ran to its end: "no answer within 60 s", "more than 16 MiB of output", ...
};

// Runs the file arguments[0] (no shell, no search) with standard input from /dev/null, locale C, and a scratch folder as
// working directory, home and place for temporary files; the folder is removed with all that was written there. When
// the command ends, or its time is over, or this process dies, all of its descendants are ended: SIGTERM, half a second
// later SIGKILL. Never writes to the caller's descriptors; the caller may ignore SIGCHLD.
CommandResult run_command(const std::vector<std::string> &arguments, const CommandLimits &limits);

// One holder machine-wide: RAID tools share state in the firmware and in files, and some refuse a second instance.
class ToolLock {
  public:
    // Waits for at most that long; see trouble().
    explicit ToolLock(std::chrono::milliseconds patience);
    ~ToolLock();
    ToolLock(const ToolLock &) = delete;
    ToolLock &operator=(const ToolLock &) = delete;

    [[nodiscard]] const std::string &trouble() const { return trouble_; } // "" when it is held

  private:
    int descriptor_ = -1;
    std::string trouble_;
};

} // namespace inventory
