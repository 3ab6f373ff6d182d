// Where the library's functions put what they hand out: one place of each kind, told as text and released together.
#ifndef TORVANE_TESTS_WORLD_PLACES_H
#define TORVANE_TESTS_WORLD_PLACES_H

#include "torvane.h"

#include <array>
#include <concepts>
#include <string>

namespace torvane::world {

// The fields of a record as one line, each between bars; "-" for null and for -1.
inline std::string field(const char *text) { return text == nullptr ? "-" : text; }
inline std::string field(const std::string &text) { return text; }
template <std::integral Number> std::string field(Number number) {
    return number == static_cast<Number>(-1) ? "-" : std::to_string(number);
}
template <class... Fields> std::string line(const Fields &...fields) {
    std::string text;
    ((text += "|" + field(fields)), ...);
    return text + "|\n";
}

// The text of a heap string, which is freed.
std::string taken(char *text);

// The results of a record's readers, and then what they have read, in lines.
std::string described(const DriveRecord &drive);
std::string described(const DriveList &list);
std::string described(const PartitionList &list);
std::string described(const MediaRecord &media);
std::string described(const RaidController &controller);
std::string described(const InfoMapEntry &entry);
std::string described(const PciInfo &adapter);

struct Places {
    char *text = nullptr;
    char **names = nullptr; // released with release_drive_names()
    uint32_t name_count = 0;
    StringList strings = {};
    FILE *streams[3] = {};
    int descriptor = -1;
    pid_t child = 0;
    uint64_t number = 0;
    int32_t numbers[2] = {};
    std::array<char, 120> buffer = {};
    DeviceSpecification specification = {};
    DeviceGeometry geometry = {};
    uint64_t partition_sizes[16] = {};
    DefectCounts defects = {};
    DeviceState state = {};
    DriveRecord drive = {};
    DriveRecord *new_drive = nullptr;
    DriveList list = {};
    PartitionList partitions = {};
    RaidController *raids = nullptr;
    uint32_t raid_count = 0;
    InfoMapEntry entry = {};
    InfoMapEntry *map = nullptr;
    uint32_t map_count = 0;
    PciInfo *adapters = nullptr;
    uint32_t adapter_count = 0;
    FileMonitor *monitor = nullptr;
    MediaRecord *media = nullptr;
    MediaList media_list = {};

    std::string described() const;
    void release();
};

} // namespace torvane::world

#endif
