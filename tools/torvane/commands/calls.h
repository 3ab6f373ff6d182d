// Calls of the library that may hang, each in a process of its own.
#pragma once

#include "inventory/reading/isolated.h"

#include <cstdint>
#include <initializer_list>
#include <string>

namespace tool {

using inventory::Wire;
using Ended = inventory::IsolatedOutcome;
using inventory::run_isolated;

inline bool is_done(const Ended &ended) { return ended.state == inventory::Outcome::State::kDone; }

// The library's text of the first of these categories that has one, else the other words.
std::string words_about(std::initializer_list<std::uint32_t> categories, const char *otherwise);

// What the user can do about a failure of something that only root may do; "" for root.
std::string remedy_without_root();

// What a call has to say that gives {"error": words} when it fails; "" when it went well.
std::string error_of(const Ended &ended);

} // namespace tool
