// Running a maker's tool and reading what it prints.
#ifndef TORVANE_RAID_TOOL_H
#define TORVANE_RAID_TOOL_H

#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <cstddef>
#include <cstdio>

namespace torvane {

// A command and how its failures are told: "<start> '<command>' (<reason>)" when it could not be started,
// "<end> (<reason>)" when it ended badly, with the quoted command in between when `end_names_command` is set.
struct Tool {
    const char *command;
    const char *start_failure;
    const char *end_failure;
    bool end_names_command;
};

struct RunningTool {
    pid_t pid;
    File output; // null when the tool could not be started, which is then recorded
};

RunningTool start_tool(const Tool &tool) noexcept;

// Reads the rest of the output, so that the tool never blocks on a full pipe or writes to a closed one, and
// waits for the tool's end. -1 when it was killed or its exit code is not 0, which is then recorded.
int finish_tool(const Tool &tool, RunningTool &running) noexcept;

// Runs a tool: `read` takes the output and tells 0 or -1. The tool's own failure outranks the reader's.
template <class Read> int run_tool(const Tool &tool, Read read) noexcept {
    RunningTool running = start_tool(tool);
    if (!running.output) return -1;
    const int result = read(running.output.get());
    return finish_tool(tool, running) == 0 ? result : -1;
}

// Whether a shell command, run silently, ends with exit code 0.
bool command_succeeds(const char *command) noexcept;

// Hands every line and its length to `handle` until that says false. False when reading failed.
template <class Handle> bool for_each_line(FILE *stream, Handle handle) noexcept {
    for (;;) {
        char *text = nullptr;
        const int length = get_line(&text, stream);
        const CString line(text);
        if (length < 1) return length == 0;
        if (!handle(line.get(), length)) return true;
    }
}

// What a line means: the first rule of a table whose text the line contains decides.
template <class State> struct LineRule {
    const char *text;
    int (*read)(State &state, const char *line) noexcept; // 0 or -1
};

template <class State, size_t Count>
int apply_rules(const LineRule<State> (&rules)[Count], State &state, const char *line) noexcept {
    for (const LineRule<State> &rule : rules) {
        if (contains(line, rule.text)) return rule.read(state, line);
    }
    return 0;
}

// Reads a whole output by its rules. After the first error the remaining lines are read and thrown away.
// `complete` tells whether the stream could be read to its end.
template <class State, size_t Count>
int parse_lines(FILE *stream, const LineRule<State> (&rules)[Count], State &state, bool &complete) noexcept {
    int status = 0;
    complete = for_each_line(stream, [&](const char *line, int) noexcept {
        if (status == 0) status = apply_rules(rules, state, line);
        return true;
    });
    return complete ? status : -1;
}

} // namespace torvane

#endif
