// One block device while it is read, and what all of them share meanwhile.
#pragma once

#include "inventory/kernel/database.h"
#include "inventory/kernel/folder.h"
#include "inventory/kernel/kernel.h"
#include "inventory/kernel/place.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace inventory {

// The facts that somebody asked for, and those that they are concluded from.
class Wanted {
  public:
    explicit Wanted(const std::vector<std::string> &keys);
    [[nodiscard]] bool has(std::string_view key) const { return all_ || asked_[index_of(key)]; }
    [[nodiscard]] bool database() const { return database_; }
    // Whether any of these was asked for.
    [[nodiscard]] bool any(std::initializer_list<std::string_view> keys) const;
    [[nodiscard]] bool uses() const { return has("used_by") || has("verdict") || has("mount_points"); }

  private:
    void add(std::string_view key);

    bool all_;
    bool database_;
    std::vector<bool> asked_; // by place in the table of facts
};

// What names tell.
struct NameRow {
    std::string_view pattern; // a beginning; 'a' stands for a letter and 'd' for a digit at its end
    ThingKind kind;
    const char *type;
    const char *tran;  // "" when the name does not tell
    const char *media; // ""
};
const NameRow &row_of_name(std::string_view name);

// "mmcblk0boot1" -> "boot", "mmcblk0rpmb" -> "rpmb": areas of an MMC that are no partitions; "" for others.
const char *mmc_area(std::string_view name);

struct Block {
    std::string name; // as in /dev
    Folder folder;
    Folder unit; // of the SCSI device, NVMe controller or MMC card below it; not open where there is none
    Place place;
    const NameRow *row = nullptr;
    Thing *thing = nullptr;
};

enum class Reading : std::uint8_t { kText, kNumber, kFlag, kSectors, kNode };

struct AttributeRow {
    const char *key;
    const char *attribute; // below the device's folder
    Reading reading = Reading::kText;
    Source source = Source::kKernel;
};

// Tells what the attributes say, those of facts that are wanted and that this kind of thing has.
void tell_attributes(Thing &thing, const Folder &folder, std::span<const AttributeRow> rows, const Wanted &wanted);

// What the kernel kept of a SCSI device's answers, whether or not it has a node.
void tell_scsi_unit(Thing &thing, const Folder &unit, const Wanted &wanted);

// The transport that a SCSI device hangs on, by its place and its host's driver.
std::string scsi_transport(const Place &place, std::string_view driver);
// Where it is plugged in.
std::string port_of(const Place &place);

// SCSI hosts carry many disks each.
class Hosts {
  public:
    explicit Hosts(ReadFailures *failures) : failures_(failures) {}
    // Name of the host's driver: "ahci", "usb-storage"; "" when it does not tell.
    const std::string &driver(const std::string &host);

  private:
    ReadFailures *failures_;
    std::unordered_map<std::string, std::string> drivers_;
};

// Where a drive is and on what transport: read off its path.
void tell_place(const Block &block, Hosts &hosts, const Wanted &wanted);
// Who it is.
void tell_hardware(const Block &block, const Wanted &wanted);
// After the database has spoken: what the medium is, and why a fact is missing.
void conclude_hardware(const Block &block, const Wanted &wanted);

// Level, state and members of md arrays; kind and name of mapped devices.
void tell_array(const Block &block, const Wanted &wanted);
void tell_mapped(const Block &block, const Wanted &wanted);

} // namespace inventory
