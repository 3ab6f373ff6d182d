// USB mass storage as the library tells it, brought over from a reader's process.
#pragma once

#include "isolate.h"
#include "output/messages.h"

#include <chrono>
#include <string>
#include <vector>

namespace tool {

// A wire array of interfaces, each with its devices; a failure is appended.
Wire find_interfaces(std::chrono::milliseconds limit, std::vector<Failure> &failures);

// One interface, or one device behind it, that a serial number selects as the library would.
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing
struct Selected {
    Wire interface;
    std::vector<Wire> devices; // those that the change will touch
};

// What begins with the serial number; more than one is refused by the caller.
std::vector<Selected> select_by_serial(const Wire &interfaces, const std::string &serial);

// Tells the candidates and how to choose; the exit code.
int refuse_candidates(const std::string &serial, const std::vector<Selected> &candidates);

// Exactly one, or the reason on standard error and nothing.
bool select_one(const std::string &serial, std::chrono::milliseconds limit, Selected &selected);

} // namespace tool
