// What was plugged in when, and what callers were told meanwhile: an answer is right when it was so at some moment of
// the call.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace changes {

using Time = std::int64_t; // milliseconds of the clock that all processes share
constexpr Time kNever = std::numeric_limits<Time>::max();
Time now();

// One stay of a disk in the machine. It came at some moment of the first pair of times, and went at one of the second.
struct Stay {
    std::string name; // "sdc"
    Time plugged_from = 0;
    Time plugged_by = 0;
    Time pulled_from = kNever;
    Time pulled_by = kNever;
};

struct Disk {
    std::string id;
    std::string serial;      // "" for any
    std::uint64_t bytes = 0; // 0: any
    unsigned partitions = 0;
    bool is_steady = true;     // nobody but the hands takes it away or gives it another name
    bool is_in_drawer = false; // in the beginning and in the end
    std::vector<Stay> stays = {};
};

// One call and its answer, as a line of JSON between processes.
struct Answer {
    std::string call;
    Time begin = 0;
    Time end = 0;
    std::string failure;  // stated by the callee
    std::string fault;    // of the callee, whatever was plugged in
    bool is_list = false; // of all disks: each that was there throughout must be in it
    struct Row {
        std::string name;
        std::string serial;
        std::uint64_t bytes = 0;
        unsigned partitions = 0;
        NLOHMANN_DEFINE_TYPE_INTRUSIVE(Row, name, serial, bytes, partitions)
    };
    std::vector<Row> rows;
    std::string there; // serial number of what is said to be there,
    std::string gone;  // or gone, at some moment of the call
    NLOHMANN_DEFINE_TYPE_INTRUSIVE(Answer, call, begin, end, failure, fault, is_list, rows, there, gone)
};

// What is wrong with an answer; "" for a right one.
std::string fault_of(const Answer &answer, const std::vector<Disk> &disks);

// Words without names and numbers that vary, for counting.
std::string kind_of(std::string words);

} // namespace changes
