// Reading what megacli prints about LSI adapters.
#ifndef TORVANE_RAID_LSI_H
#define TORVANE_RAID_LSI_H

#include "foundation/errors.h"
#include "raid/tool.h"
#include "torvane.h"

#include <cstdint>
#include <cstdio>

namespace torvane {

constexpr uint32_t kUnknownCount = UINT32_MAX;

// The physical drives of the adapters that `first` begins. Adapter numbers are checked against `count`, which
// callers who know only the first adapter give as kUnknownCount.
int read_pdlist(FILE *stream, RaidController *first, uint32_t count) noexcept;

// Runs megacli and removes the log that it leaves in the current directory.
template <class Read> int run_megacli(const char *command, Read read) noexcept {
    constexpr const char *kFailure = "failed to read raid information with";
    const int result = run_tool({command, kFailure, kFailure, true}, read);
    (void)unlink("MegaSAS.log");
    return result;
}

// Reads one of megacli's lists by its rules.
template <class State, size_t Count>
int parse_megacli(FILE *stream, const LineRule<State> (&rules)[Count], State &state) noexcept {
    bool complete = false;
    const int status = parse_lines(stream, rules, state, complete);
    return complete ? status : fail(kRaid, "failed to read lsi raid information");
}

} // namespace torvane

#endif
