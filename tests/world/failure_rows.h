// What the failure sweep runs: one row for every exported operation that allocates or calls the system.
#ifndef TORVANE_TESTS_WORLD_FAILURE_ROWS_H
#define TORVANE_TESTS_WORLD_FAILURE_ROWS_H

#include "places.h"

#include <span>

namespace torvane::world {

struct Row {
    const char *names;            // the exported functions it runs, between blanks
    int (*call)(Places &);        // under failure; it allocates nothing of its own
    int bits = 1;                 // a failure's result is the negative sum of some of these
    int other = -1;               // a further result that tells a failure, such as 0 for "no"
    const char *silent = nullptr; // why less may be told by success; null: it must not
    void (*prepare)(Places &) = nullptr;
    bool sweep_udev = false; // the steps that libudev makes, too
    bool halfway = false;    // a failure may come between two of the nodes that it makes or removes
    bool runs_tools = false; // starting processes costs: one error a step, by turns
};

std::span<const Row> failure_rows();

// The exported functions that neither allocate nor call the system.
extern const char *const kPlainNames;

} // namespace torvane::world

#endif
