// The operations table: which makers' tools there are, and where their binaries lie.
#pragma once

#include "inventory/raid/model.h"

#include <span>
#include <string>
#include <vector>

namespace inventory::raid {

extern const Tool kStorcli2; // storcli.cpp
extern const Tool kPerccli2;
extern const Tool kStorcli;
extern const Tool kPerccli;
extern const Tool kMegacli;  // megacli.cpp
extern const Tool kArcconf;  // arcconf.cpp
extern const Tool kSsacli;   // ssacli.cpp
extern const Tool kSas3ircu; // sasircu.cpp
extern const Tool kSas2ircu;
extern const Tool kMvcli; // mvcli.cpp

// In the order of belief: what prints for machines comes before what prints for people, the newer before the older.
std::span<const Tool *const> all_tools();

// Absolute paths of the tool's binaries that this process may run, newest and best first, each file once.
std::vector<std::string> binaries_of(const Tool &tool);

} // namespace inventory::raid
