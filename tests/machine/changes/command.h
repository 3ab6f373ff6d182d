// One run of the tool, with an end to it.
#pragma once

#include "changes/history.h"

#include <chrono>
#include <string>
#include <vector>

namespace changes {

struct Ran {
    Time begin = 0;
    Time end = 0;
    int status = -1; // 128 + signal when one ended it; -1 when it was still running long after its limit, and is killed
    std::string output;
    std::string errors;
};

// SIGTERM comes after `patience`, when that is not zero.
Ran run(const std::vector<std::string> &arguments, std::chrono::milliseconds patience = {});

} // namespace changes
