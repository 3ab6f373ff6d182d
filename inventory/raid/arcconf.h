// What arcconf prints about one controller, as it stands there, before drives are tied to logical drives.
#pragma once

#include "inventory/raid/lines.h"

#include <string>
#include <vector>

namespace inventory::raid::arcconf {

// What the firmware answers for a controller without serial number.
inline bool is_no_serial(std::string_view serial) { return same_word(serial, "BAD0"); }

// Where a drive sits. The tool says it in one of three ways, by version and cabling; only the same way compares.
struct Place {
    enum class Kind : std::uint8_t { kNone, kChannel, kEnclosure, kConnector };
    Kind kind = Kind::kNone;
    std::string first;      // channel, enclosure ("" for none between drive and controller), connector
    std::string second;     // device, slot, device
    std::string connectors; // of kEnclosure, where told: "0", "0 1"
};

// "Enclosure 0, Slot 3", "Connector 1, Device 0", "Controller:1,Enclosure:0,Slot:3", "0,8", "0,8(8:0)",
// "Enclosure Direct Attached, Slot 1(Connector 0:CN0)" ...
Place place_of(std::string_view words);

// One drive of a logical drive, as the logical drive names it.
struct Segment {
    std::size_t line = 0;
    std::string name; // "Group 0, Segment 1"
    std::string word; // Present, Missing, ...; "" where only a place is told
    Place place;
    std::string serial;
    std::string interface;
    std::string media;
    std::optional<std::uint64_t> bytes;

    [[nodiscard]] bool is_gone() const; // the word says that there is no working drive
};

// False when the value is no segment at all, as in the legend that newer versions print before the segments.
bool read_segment(std::string_view value, Segment &segment);

// A logical drive, a cache in front of them, or an array, which holds several of them.
struct Volume : LogicalDrive {
    std::size_t line = 0;
    std::string array;
    std::vector<Segment> segments;
    std::vector<Segment> spare_lines;
    bool is_cache = false;
    bool is_array = false;
};

struct Drive : PhysicalDrive {
    enum class What : std::uint8_t { kNotTold, kDisk, kOther };
    std::size_t line = 0;
    What what = What::kNotTold;
    bool only_in_a_segment = false;
    Place channel_place;
    Place location;
    std::optional<std::uint64_t> size; // of versions that tell no total size
    std::vector<std::string> arrays;
    std::vector<std::string> spare_for; // numbers of logical drives
    std::string configuration;          // Drive Configuration Type

    // Of a drive that was pulled, or that the controller lost, a block without serial number stays.
    [[nodiscard]] bool is_gone() const { return holds(vendor, "*missing*"); }
};

struct Config {
    Controller controller;
    std::vector<Volume> volumes;
    std::vector<Drive> drives;
    bool controller_told = false;
    bool volumes_told = false; // the section was there
    bool drives_told = false;
    bool complete = false;        // the closing line was there
    bool cut_in_a_volume = false; // the reply ends within a logical drive: its later drives are not told
};

void read_config(Page &page, Config &config);

// Ties drives to logical drives and gives them their roles. Doubts name the thing, not a line, where two sections of
// the reply do not fit.
void tie_drives(Page &page, Config &config);

} // namespace inventory::raid::arcconf
