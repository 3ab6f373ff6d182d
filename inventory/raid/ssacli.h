// What ssacli and its forerunners print, as it stands there, before logical drives get their members.
#pragma once

#include "inventory/raid/lines.h"

#include <map>
#include <string>
#include <vector>

namespace inventory::raid::ssacli {

struct Drive : PhysicalDrive {
    enum class Nesting : std::uint8_t { kNone, kArray, kUnassigned, kHba };
    std::size_t line = 0;
    Nesting nesting = Nesting::kNone;
    std::vector<std::size_t> arrays; // numbers within the reply; a spare may serve several
    std::string type;                // Drive Type
    bool detailed = false;           // has a block of its own, not only a line in a list
    bool spare_in_lists = false;
    bool active_spare = false; // stands in for a failed drive
    std::string listed_state;
    std::optional<std::uint64_t> listed_bytes;
};

struct Logical : LogicalDrive {
    std::size_t line = 0;
    std::size_t array = 0;
};

struct Box {
    Controller controller;
    std::vector<Logical> logical;
    std::vector<Drive> drives;
    std::map<std::string, std::size_t, std::less<>> drive_by_id;
    bool drives_told = true;
};

// The line that begins a controller.
struct Title {
    std::string model;
    std::string slot;
    std::string serial;
};

// What the keys that follow belong to.
enum class Block : std::uint8_t { kNone, kController, kArray, kLogical, kDrive, kOther };

struct Reading {
    Page &page;
    std::vector<Box> boxes{};
    bool indented = false;
    std::size_t box = 0;
    std::size_t arrays = 0; // seen so far; the last one is open while nesting is kArray
    std::size_t drive = 0;
    Block block = Block::kNone;
    Drive::Nesting nesting = Drive::Nesting::kNone;
    std::string trouble{};          // the tool's own "Error: ..."
    std::optional<Title> unknown{}; // a line without slot number: another controller, if keys of one follow

    Box &current() { return boxes[box]; }
};

// Reads one reply. Indentation is the structure of these texts, but headings alone decide here: copies lose it.
void read_reply(Reading &reading, const Reply &reply);

} // namespace inventory::raid::ssacli
