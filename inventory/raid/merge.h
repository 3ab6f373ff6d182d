// Several tools may tell about one controller: it is one all the same.
#pragma once

#include "inventory/raid/adapters.h"
#include "inventory/raid/model.h"

#include <vector>

namespace inventory::raid {

// What one tool told, with its place in the order of belief.
struct Answer {
    const Tool *tool = nullptr;
    std::string binary; // its name without the folder
    Survey survey;
};

struct Found {
    Controller controller;
    const Tool *tool = nullptr;
    std::size_t answer = 0;           // place of the answer that it is from
    const Adapter *adapter = nullptr; // the kernel's; null when none could be told
};

// The controllers of all answers, each once. Of several tools the first tells; the others fill what it leaves open.
std::vector<Found> merged(const std::vector<Answer> &answers, const std::vector<Adapter> &adapters);

bool manages(const Tool &tool, const Adapter &adapter);
bool is_told(const Adapter &adapter, const std::vector<Found> &found);

} // namespace inventory::raid
