// What the drives of the machine are: the library's discovery, taken apart into steps that run in processes
// of their own, so that one step that fails or never ends costs only its own part of the answer.
#pragma once

#include "records.h"

#include <chrono>
#include <string>
#include <vector>

namespace tool {

constexpr std::chrono::seconds kDefaultLimit{30};

struct Request {
    DriveOptions options = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_OPTICAL;
    std::vector<std::string> names; // device paths; none: the whole machine
    std::chrono::milliseconds limit = kDefaultLimit;
    bool every_failure = false; // name also the pieces that a healthy drive may lack
};

struct Found {
    std::vector<Drive> drives;
    std::vector<Failure> failures; // of whole sources
};

Found find_drives(const Request &request);

// Every failure, those of single drives included.
std::vector<Failure> all_failures(const Found &found);

} // namespace tool
