#include "inventory/reading/isolated.h"

namespace inventory {

IsolatedOutcome run_isolated(const std::function<Wire()> &function, std::chrono::milliseconds limit,
                             const std::function<void()> &tick) {
    IsolatedOutcome isolated;
    const auto read = [&function] {
        std::string packed;
        Wire::to_msgpack(function(), packed);
        return packed;
    };
    const auto done = [&isolated](const Outcome &outcome) {
        isolated = {outcome.state, nullptr, outcome.words};
        if (outcome.state != Outcome::State::kDone) return;
        isolated.result = Wire::from_msgpack(outcome.answer, true, false);
        if (isolated.result.is_discarded()) {
            isolated = {Outcome::State::kCrashed, nullptr, "the reader's answer was no answer"};
        }
    };
    do_jobs({{read, done}}, {.limit = limit, .tick = tick});
    return isolated;
}

} // namespace inventory
