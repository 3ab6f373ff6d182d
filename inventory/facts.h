// THE table of facts: what there is to know about a thing, once. Columns, JSON keys, the JSON schemas, `show`,
// the lists of columns in help, manual and completions all come from it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace inventory {

enum class ThingKind : std::uint8_t {
    kDrive,        // a whole disk, whatever its transport
    kPartition,    // a part of a drive or array that the kernel numbers
    kArray,        // md
    kMapped,       // device mapper: lvm, crypt, mpath, linear ...
    kOptical,      // a drive for discs
    kVirtual,      // loop, zram, nbd, ram: no hardware of this machine
    kUsbInterface, // a mass-storage interface (usb-storage, uas)
    kController,   // a RAID controller
    kLogical,      // a logical drive of a RAID controller
    kMember,       // a physical drive behind a RAID controller
    kBay,          // a slot of an enclosure
};
inline constexpr unsigned kThingKinds = 11;

constexpr unsigned bit(ThingKind kind) { return 1U << static_cast<unsigned>(kind); }

// What a value is, which decides how it is printed and what JSON type it has.
enum class Kind : std::uint8_t {
    kText,
    kDevice, // a device path, kept whole; people are shown its last part
    kCount,  // a whole number
    kBytes,  // a size: abbreviated for people
    kFlag,   // yes or no
    kWords   // several texts
};

// What has to be asked for the fact, cheapest first.
enum class Cost : std::uint8_t {
    kKernel,  // /sys, /proc, the device manager's database: no device is opened
    kDrive,   // the drive is opened and asked
    kDefects, // the drive reads its defect lists
    kState,   // a maker's own command
    kTool     // a RAID maker's tool runs
};

// Where a word about a fact comes from. A fact has an order of sources, best first.
enum class Source : std::uint8_t {
    kDrive,    // the drive itself, asked through the library
    kIdentity, // pages that the kernel kept of the drive's own answers: VPD 80h, 83h, 89h, NVMe and MMC identities
    kKernel,   // other attributes in /sys and /proc
    kDatabase, // the device manager's database
    kMounts,   // mount and swap tables
    kTool,     // a RAID maker's tool
    kDerived,  // concluded from other facts
};
inline constexpr unsigned kSources = 7;

// "the drive", "the kernel" ...: as `show` names a source.
const char *name_of(Source source);

// How words of several sources are held against each other.
enum class Compare : std::uint8_t {
    kEqual,  // after trimming and folding of blanks
    kCut,    // one may be the beginning or a part of the other: SCSI cuts models at 16 characters
    kIgnore, // sources count differently; the best one wins without a word
};

struct FactRow {
    const char *key;         // JSON key; readers tell facts by it
    const char *heading;     // column
    Kind kind;               //
    const char *unit;        // "" where the value needs none
    const char *meaning;     // one line for people
    unsigned of;             // which things have it: bits of ThingKind
    Cost cost;               // the cheapest way to it
    std::string_view origin; // where it comes from, best source first, for people
    Compare compare = Compare::kEqual;
    const char *words = "";        // for an enumeration, all words, separated by blanks
    const Source *order = nullptr; // best source first, kSources entries; null: the order of Source
};

std::span<const FactRow> all_facts();

// The row of a key or a heading, in any case; null when there is none.
const FactRow *find_fact(std::string_view name);

// The row's place in the table. Readers name facts of the table: any other key is a fault of the program and ends it.
std::size_t index_of(std::string_view key);

// "drive", "partition" ...
const char *name_of(ThingKind kind);

} // namespace inventory
