// One call that may hang, in a process of its own: mounting, binding, a tray, firmware.
#pragma once

#include "inventory/reading/workers.h"

#include <nlohmann/json.hpp>

namespace inventory {

using Wire = nlohmann::json;

struct IsolatedOutcome { // NOLINT(bugprone-exception-escape): a value of JSON is moved without an exception
    Outcome::State state = Outcome::State::kNotStarted;
    Wire result;       // what the function returned, when it is done
    std::string words; // why it is not
};

// The function runs as a worker's job does. Commands that it started and that still run at the time limit are killed
// with it.
IsolatedOutcome run_isolated(const std::function<Wire()> &function, std::chrono::milliseconds limit,
                             const std::function<void()> &tick = {});

} // namespace inventory
