// A machine's RAID tools as files: one per command, its arguments joined by '_' ('/' becomes '-'), and truth.json.
#ifndef TORVANE_TESTS_INVENTORY_RAID_MACHINE_H
#define TORVANE_TESTS_INVENTORY_RAID_MACHINE_H

#include "inventory/raid/model.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace torvane::tests {

using Json = nlohmann::json;

struct RaidMachine {
    std::string name;
    Json truth;
    std::map<std::string, std::string> outputs;
};

inline void PrintTo(const RaidMachine &machine, std::ostream *stream) { *stream << machine.name; }

std::vector<RaidMachine> raid_machines(const std::filesystem::path &folder);

// What the machine's tool answers after each output went through the change.
using Change = std::function<std::string(const std::string &output)>;
inventory::raid::Survey survey(const inventory::raid::Tool &tool, const RaidMachine &machine,
                               const Change &change = {});

// In the form of truth.json: what is not told is left out; drives go by their serial number, else by their place.
Json as_truth(const inventory::raid::Survey &survey);

} // namespace torvane::tests

#endif
