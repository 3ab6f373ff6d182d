// What is wrong with arrays, logical drives and member drives, for monitoring.
#pragma once

#include "inventory/machine.h"

#include <string>
#include <string_view>
#include <vector>

namespace inventory {

struct Problem {
    const Thing *thing;
    std::string kind;  // degraded, failed, rebuilding, foreign, predictive-failure, missing, other
    std::string words; // one line: "/dev/sda (c0/v0): degraded: Dgrd"
};

// In the order of the machine's things.
std::vector<Problem> problems_of(const Machine &machine);

enum class Health : unsigned char {
    kUnknown, // no state is told
    kOptimal, //
    kBusy,    // works as it should and is at something: rebuilding, checking, initialising
    kBad,
};

// What a state means: of md, of controllers, of logical drives and of drives, in the words of all tools.
Health health_of(const Thing &thing);

} // namespace inventory
