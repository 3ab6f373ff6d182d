// What the tool of a RAID controller's maker tells, before it is tied to the kernel's devices. Empty texts and
// missing numbers mean "not told"; nothing is made up.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace inventory::raid {

enum class Role : std::uint8_t {
    kUnknown, // the tool does not tell, or what it told could not be read
    kMember,
    kSpare,
    kUnassigned,
    kForeign, // carries another controller's configuration
    kJbod,    // handed through to the kernel as it is
    kFailed,  // out of use, belongs to nothing any more
    kMissing, // a logical drive misses it; there is no drive
};
const char *name_of(Role role);

// Which part of a tool's answer could not be read. Never fatal for anything but that part.
struct Doubt {
    std::string tool;  // "arcconf GETCONFIG 1 AL"
    std::size_t line;  // from 1; 0 where the answer has no lines
    std::string where; // "" or the thing: "c1/e0/s3"
    std::string words; // "no serial number", ...
};

struct PhysicalDrive {
    std::string enclosure; // "" when directly attached or not told
    std::string slot;
    std::string device_id; // the tool's own number of the drive
    std::string channel;   // "0,8": arcconf's Reported Channel,Device; or port of others
    std::string serial;    // trimmed, never shortened, never made of other fields
    std::string vendor;
    std::string model;
    std::string firmware;
    std::string wwn;           // lower-case hex without 0x, as told
    std::string state;         // the tool's own word
    std::string media;         // hdd, ssd, "" unknown
    std::string interface;     // sas, sata, nvme, ""
    std::string kernel_device; // "/dev/sdb" in the tool's own word
    Role role = Role::kUnknown;
    bool predictive_failure = false;
    std::optional<std::uint64_t> bytes;
    std::optional<std::uint64_t> sector_bytes;
    std::optional<std::uint64_t> media_errors;
    std::optional<std::uint64_t> other_errors;
    std::optional<std::uint64_t> predictive_failures;
    std::optional<std::int64_t> celsius;
    std::optional<unsigned> scsi_channel; // the address below the controller's host, where the tool's numbers tell it
    std::optional<unsigned> scsi_target;
};

struct LogicalDrive {
    std::string number;
    std::string label;
    std::string level;         // "0", "1", "1e", "5", "6", "10", "50", "60", "00", "jbod" (concatenated)
    std::string state;         // the tool's own word
    std::string naa;           // lower-case hex, for /sys .../wwid
    std::string serial;        // that the kernel's device of it answers with, where the tool tells that
    std::string kernel_device; // "/dev/sda" in the tool's own word
    std::optional<std::uint64_t> bytes;
    bool bytes_exact = false; // from block counts, not from a rounded text
    std::optional<unsigned> scsi_channel;
    std::optional<unsigned> scsi_target;
    bool members_known = false; // the tool told which drives belong to it
    bool hidden = false;        // a cache or a volume that is not shown to the system
    // Places in Controller::drives. A drive may be in several logical drives.
    std::vector<std::size_t> members;
    std::vector<std::size_t> spares;
};

struct Controller {
    std::string tool;   // the binary that told: "storcli64"
    std::string maker;  // "LSI", "Adaptec", "HP", "Marvell"
    std::string number; // as the tool counts: "0", "0b"
    std::string model;
    std::string serial;
    std::string firmware;
    std::string driver;
    std::string pci; // "0000:65:00.0" as scan.h's pci_address() spells it, "" when not told
    std::string state;
    std::optional<std::int64_t> celsius;
    bool drives_told = true; // false: the tool's list of drives could not be read
    std::vector<LogicalDrive> logical;
    std::vector<PhysicalDrive> drives;
};

// One run of a tool. Its text is bytes: not always UTF-8, not always whole.
struct Reply {
    std::string text;
    int status = 0;      // the tool's exit status
    std::string trouble; // why there is no whole text: "no answer within 60 s", "more than 64 MiB of output", ...
};
using Runner = std::function<Reply(const std::vector<std::string> &arguments)>;

struct Survey {
    std::vector<Controller> controllers;
    std::vector<Doubt> doubts;
    std::string trouble; // the tool as a whole failed
};

// One vendor tool, or a family with the same language.
struct Tool {
    const char *name;                   // "storcli"
    const char *maker;                  //
    std::vector<const char *> binaries; // newest and best first
    std::vector<const char *> folders;  // besides PATH
    std::vector<const char *> drivers;  // kernel drivers of the controllers that it tells about
    bool machine_readable;              // wins over tools that print for people
    Survey (*survey)(const Runner &run, const std::string &binary);
};

} // namespace inventory::raid
