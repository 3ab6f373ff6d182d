// A fact's value as the truths beside the tests' inputs have it.
#pragma once

#include "inventory/machine.h"

#include <nlohmann/json.hpp>

#include <type_traits>

namespace inventory::tests {

inline nlohmann::ordered_json json_of(const Value &value) {
    return std::visit(
        [](const auto &held) -> nlohmann::ordered_json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>) {
                return nullptr;
            } else {
                return held;
            }
        },
        value);
}

} // namespace inventory::tests
