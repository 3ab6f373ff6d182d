#include "inventory/kernel/block.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace inventory {
namespace {

// Facts that are concluded from others.
struct Premise {
    std::string_view key;
    std::vector<std::string_view> from;
};

const std::vector<Premise> &premises() {
    static const std::vector<Premise> list{
        {"used_by", {"fs_type", "holders", "mount_points", "dm_name"}},
        {"verdict", {"used_by", "fs_type", "pt_type", "holders", "mount_points", "dm_name", "paths"}},
        {"paths", {"wwn", "serial", "model"}},
        {"duplicate_serial", {"wwn", "serial", "model"}},
        {"media", {"rpm", "removable", "rotational", "tran"}},
        {"rpm", {"rotational"}},
        {"blocks", {"size", "sector"}},
        {"type", {"tran"}},
    };
    return list;
}

// The first that fits decides.
constexpr NameRow kNames[] = {
    {"sda", ThingKind::kDrive, "disk", "", ""},
    {"srd", ThingKind::kOptical, "optical", "", "optical"},
    {"scdd", ThingKind::kOptical, "optical", "", "optical"},
    {"hda", ThingKind::kDrive, "disk", "ide", ""},
    {"vda", ThingKind::kDrive, "disk", "virtio", "virtual"},
    {"xvda", ThingKind::kDrive, "disk", "xen", "virtual"},
    {"nvmed", ThingKind::kDrive, "disk", "nvme", "ssd"},
    {"mmcblkd", ThingKind::kDrive, "disk", "mmc", "flash"},
    {"dasda", ThingKind::kDrive, "disk", "", ""},
    {"pmemd", ThingKind::kDrive, "pmem", "pmem", ""},
    {"mdd", ThingKind::kArray, "softraid", "", ""},
    {"md_", ThingKind::kArray, "softraid", "", ""},
    {"dm-d", ThingKind::kMapped, "dm", "", ""},
    {"loopd", ThingKind::kVirtual, "loop", "", "virtual"},
    {"zramd", ThingKind::kVirtual, "zram", "", "virtual"},
    {"ramd", ThingKind::kVirtual, "ram", "", "virtual"},
    {"nbdd", ThingKind::kVirtual, "nbd", "", "virtual"},
};
constexpr NameRow kOther{"", ThingKind::kDrive, "disk", "", ""};

bool begins(std::string_view name, std::string_view pattern) {
    const std::string_view fixed = pattern.substr(0, pattern.size() - 1);
    if (!name.starts_with(fixed) || name.size() == fixed.size()) return false;
    const auto next = static_cast<unsigned char>(name[fixed.size()]);
    switch (pattern.back()) {
    case 'a': return std::isalpha(next) != 0;
    case 'd': return std::isdigit(next) != 0;
    default: return next == static_cast<unsigned char>(pattern.back());
    }
}

Value value_of(const std::string &text, Reading reading) {
    constexpr std::uint64_t kSector = 512; // unit of sizes in /sys, whatever the device's own is
    if (reading == Reading::kText) return text;
    if (reading == Reading::kNode) return text.empty() ? Value() : "/dev/" + last_part(text);
    const auto number = parse_number(text);
    if (!number) return {};
    if (reading == Reading::kFlag) return *number != 0;
    return reading == Reading::kSectors ? *number * kSector : *number;
}

} // namespace

Wanted::Wanted(const std::vector<std::string> &keys)
    : all_(keys.empty()), database_(keys.empty()), asked_(all_facts().size()) {
    for (const std::string &key : keys) add(key);
}

void Wanted::add(std::string_view key) {
    if (asked_[index_of(key)]) return;
    asked_[index_of(key)] = true;
    database_ = database_ || is_in_database(key);
    for (const Premise &premise : premises()) {
        if (premise.key != key) continue;
        for (const std::string_view other : premise.from) add(other);
    }
}

bool Wanted::any(std::initializer_list<std::string_view> keys) const {
    return std::any_of(keys.begin(), keys.end(), [this](std::string_view key) { return has(key); });
}

const NameRow &row_of_name(std::string_view name) {
    const auto *found = std::find_if(std::begin(kNames), std::end(kNames),
                                     [name](const NameRow &row) { return begins(name, row.pattern); });
    return found == std::end(kNames) ? kOther : *found;
}

const char *mmc_area(std::string_view name) {
    if (!name.starts_with("mmcblk")) return "";
    if (name.ends_with("rpmb")) return "rpmb";
    return name.find("boot") != std::string_view::npos ? "boot" : "";
}

void tell_attributes(Thing &thing, const Folder &folder, std::span<const AttributeRow> rows, const Wanted &wanted) {
    for (const AttributeRow &row : rows) {
        const bool has_fact = (all_facts()[index_of(row.key)].of & bit(thing.kind())) != 0;
        if (!has_fact || !wanted.has(row.key)) continue;
        const std::string text =
            row.reading == Reading::kNode ? folder.link(row.attribute) : folder.text(row.attribute);
        thing.tell(row.key, value_of(text, row.reading), row.source, row.attribute);
    }
}

} // namespace inventory
