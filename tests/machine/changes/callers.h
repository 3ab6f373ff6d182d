// Those who ask meanwhile: each loop in a process of its own.
#pragma once

#include "changes/history.h"

#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace changes {

struct Loop {
    const char *name;
    std::function<std::vector<Answer>(std::mt19937 &random)> ask; // once
};

// What asks through the library, and through the tool at this path.
std::vector<Loop> all_loops(const std::string &torvane);

// Commands of the tool that still run, and all mounts, temporary files, nodes without device and lock files.
std::set<std::string> leavings(const std::string &torvane);

} // namespace changes
