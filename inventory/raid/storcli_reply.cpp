#include "inventory/raid/storcli_reply.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>

namespace inventory::raid {
namespace {

bool is_number(std::string_view text) { return whole_number(text).has_value(); }

// "252:2", " :4" (no enclosure); "" for "-" and what is no place.
std::string place_of(std::string_view text) {
    const KeyValue parts = split_at_colon(text);
    if (!is_number(parts.value) || text.find(':') == std::string_view::npos) return {};
    if (!is_nothing(parts.key) && !is_number(parts.key)) return {};
    return (is_nothing(parts.key) ? std::string() : std::string(parts.key)) + ":" + std::string(parts.value);
}

// The number right after a word in a section's name: "VD239 Properties", "PDs for VD 239".
std::string number_after(std::string_view text, std::string_view word) {
    if (!begins_with(text, word)) return {};
    const auto number = leading_number(text.substr(word.size()));
    return number ? std::to_string(*number) : std::string();
}

// A key somewhere below: versions differ in the section that a value stands in.
std::string deep(const Json &object, std::string_view key) {
    std::string value = object.told(key);
    for (const Json &inner : object.items) {
        if (!value.empty()) break;
        if (inner.kind == Json::Kind::kObject) value = deep(inner, key);
    }
    return value;
}

std::string deep(const Json &object, std::initializer_list<std::string_view> keys) {
    for (const std::string_view key : keys) {
        std::string value = deep(object, key);
        if (!value.empty()) return value;
    }
    return {};
}

void take(std::string &into, std::string value) {
    if (!value.empty()) into = std::move(value);
}
template <class T> void take(std::optional<T> &into, std::optional<T> value) {
    if (value) into = value;
}

std::string medium_of(const std::string &word) {
    return same_word(word, "SSD") ? "ssd" : same_word(word, "HDD") ? "hdd" : std::string();
}

// "0, 1"
std::set<std::string> numbers_in(std::string_view list) {
    std::set<std::string> numbers;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        const auto number = whole_number(list.substr(0, end));
        if (number) numbers.insert(std::to_string(*number));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return numbers;
}

struct StateRole {
    std::string_view state; // begins so
    Role role;
};
// First match wins. Shielded, degraded and sanitizing drives keep the beginning of their word.
constexpr std::array<StateRole, 20> kGroupedRoles{{
    {"GHS", Role::kSpare},      {"DHS", Role::kSpare},     {"HSP", Role::kSpare},        {"JBOD", Role::kJbod},
    {"Shld", Role::kJbod},      {"Msng", Role::kMissing},  {"UGood", Role::kUnassigned}, {"UBad", Role::kUnassigned},
    {"UG", Role::kUnassigned},  {"UB", Role::kUnassigned}, {"UConf", Role::kUnassigned}, {"Unusbl", Role::kUnassigned},
    {"Failed", Role::kFailed},  {"Onln", Role::kUnknown},  {"Offln", Role::kUnknown},    {"Rbld", Role::kUnknown},
    {"Cpybck", Role::kUnknown}, {"Conf", Role::kUnknown},  {"CF", Role::kUnknown},       {"CB", Role::kUnknown},
}};

Role role_of(const std::string &state, const std::string &group, const std::string &type) {
    if (same_word(group, "F")) return Role::kForeign;
    const auto rule = std::find_if(kGroupedRoles.begin(), kGroupedRoles.end(),
                                   [&](const StateRole &row) { return begins_with(state, row.state); });
    const Role role = holds(state, "Missing")       ? Role::kMissing
                      : rule == kGroupedRoles.end() ? Role::kUnknown
                                                    : rule->role;
    if (role == Role::kSpare || role == Role::kMissing || role == Role::kJbod) return role;
    if (is_number(group)) return Role::kMember;
    if (role == Role::kUnknown && same_word(type, "JBOD")) return Role::kJbod;
    return role;
}

// "RAID10" is "10"; CacheCade volumes are "Cac0", "Cac1".
std::string level_of(std::string_view type) {
    for (const std::string_view prefix : {"RAID", "Cac"}) {
        if (begins_with(type, prefix)) return lower(trimmed(type.substr(prefix.size())));
    }
    return lower(type);
}

std::string pci_of(const Json &object) {
    std::string spelt = pci_address(deep(object, "PCI Address"));
    if (!spelt.empty()) return spelt;
    // The same in decimal.
    const auto bus = whole_number(deep(object, "Bus Number"));
    const auto device = whole_number(deep(object, "Device Number"));
    const auto function = whole_number(deep(object, "Function Number"));
    const auto domain = whole_number(deep(object, "Domain ID"));
    if (!bus || !device || !function || *bus > 0xff || *device > 0x1f || *function > 7) return {};
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto hex = [&](std::uint64_t number) {
        return std::string{kDigits[number >> 4U & 15U], kDigits[number & 15U]};
    };
    return pci_address(hex(domain.value_or(0) & 0xffU) + ":" + hex(*bus) + ":" + hex(*device) + ":" + hex(*function));
}

// The driver gives logical drives channels from 2 on and 128 targets each.
constexpr unsigned kTargetsPerChannel = 128;
constexpr unsigned kFirstLogicalChannel = 2;
constexpr std::uint64_t kMostTargets = 1024;

} // namespace

std::string place_in_path(std::string_view text) {
    const std::size_t begin = text.find("/c");
    if (begin == std::string_view::npos) return {};
    std::string enclosure;
    std::string_view rest = text.substr(begin + 2);
    for (std::size_t slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
        rest.remove_prefix(slash + 1);
        const auto number = rest.empty() ? std::nullopt : leading_number(rest.substr(1));
        if (!number) return {};
        if (rest[0] == 'e') enclosure = std::to_string(*number);
        if (rest[0] == 's') return enclosure + ":" + std::to_string(*number);
    }
    return {};
}

StorcliController::Drive *StorcliController::drive_at(const std::string &place) {
    const auto known = drive_places_.find(place);
    if (known != drive_places_.end()) return &drives_[known->second];
    if (place.empty() || drives_.size() >= kMostDrives) return nullptr;
    drive_places_[place] = drives_.size();
    Drive &drive = drives_.emplace_back();
    const KeyValue parts = split_at_colon(place);
    drive.told.enclosure = parts.key;
    drive.told.slot = parts.value;
    return &drive;
}

StorcliController::Logical *StorcliController::logical_at(const std::string &number) {
    const auto known = logical_places_.find(number);
    if (known != logical_places_.end()) return &logical_[known->second];
    if (number.empty() || logical_.size() >= kMostLogicalDrives) return nullptr;
    logical_places_[number] = logical_.size();
    Logical &logical = logical_.emplace_back();
    logical.told.number = number;
    return &logical;
}

void StorcliController::read(const Json &response) {
    read_controller(response);
    for (std::size_t i = 0; i < response.keys.size(); ++i) read_section(response.keys[i], response.items[i]);
}

void StorcliController::read_overview(const Json &row) {
    if (told_.model.empty()) told_.model = row.told({"Model", "Product Name"});
    if (told_.state.empty()) told_.state = row.told({"Hlth", "Status"});
    if (told_.pci.empty()) told_.pci = pci_address(row.told("PCI Address"));
}

void StorcliController::read_section(const std::string &name, const Json &value) {
    if (value.kind == Json::Kind::kText) return read_counts(name, value);
    const std::string members_of = number_after(name, "PDs for VD");
    if (!members_of.empty()) return read_members(members_of, value);
    if (value.kind == Json::Kind::kList) {
        for (const Json &row : value.items) read_row(row);
        return;
    }
    const std::string properties_of = number_after(name, "VD");
    const std::string place = place_in_path(name);
    if (!properties_of.empty() && holds(name, "Properties")) {
        if (Logical *logical = logical_at(properties_of)) read_properties(*logical, value);
    } else if (!place.empty()) {
        read_drive_details(place, value);
    } else if (same_word(name, "Physical Device Information")) {
        read(value); // an HBA's drives stand inside
    } else {
        read_row(value);
    }
}

// What a row is, its keys say.
void StorcliController::read_row(const Json &row) {
    if (const Json *info = row.at("VD Info")) {
        Logical *logical = read_logical_row(*info);
        const Json *properties = row.at("VD Properties");
        const Json *members = row.at("PDs");
        if (logical != nullptr && properties != nullptr) read_properties(*logical, *properties);
        if (logical != nullptr && members != nullptr) read_members(logical->told.number, *members);
    } else if (const Json *drive = row.at("Drive Information")) {
        const std::string place = place_of(drive->told("EID:Slt"));
        read_drive_row(*drive);
        const Json *details = row.at("Drive Detailed Information");
        if (details != nullptr) read_drive_details(place, *details);
    } else if (row.at("DG/VD") != nullptr) {
        read_logical_row(row);
    } else if (row.at("EID:Slt") != nullptr) {
        read_drive_row(row);
    } else if (row.at("EID:Slot") != nullptr) {
        read_topology_row(row);
    }
}

void StorcliController::read_counts(const std::string &name, const Json &value) {
    const auto count = whole_number(value.text);
    if (same_word(name, "Physical Drives")) take(drive_count_, count);
    if (same_word(name, "Virtual Drives")) take(logical_count_, count);
}

void StorcliController::read_controller(const Json &section) {
    const Json nothing;
    const auto part = [&](std::string_view name) -> const Json & {
        const Json *inner = section.at(name);
        return inner == nullptr ? nothing : *inner;
    };
    const Json &basics = part("Basics");
    const Json &version = part("Version");
    take(told_.model, section.told({"Product Name", "Model"}));
    take(told_.model, basics.told({"Model", "Product Name"}));
    take(told_.serial, section.told("Serial Number"));
    take(told_.serial, basics.told("Serial Number"));
    take(told_.firmware, section.told({"FW Version", "Firmware Version", "FW Package Build"}));
    take(told_.firmware, version.told({"Firmware Version", "FW Version", "Firmware Package Build"}));
    take(told_.driver, section.told("Driver Name"));
    take(told_.driver, version.told("Driver Name"));
    take(told_.state, section.told("Controller Status"));
    take(told_.state, part("Status").told("Controller Status"));
    for (const std::string_view name : {"Basics", "HostInterface", "Bus", "PCI Version"}) {
        if (told_.pci.empty()) told_.pci = pci_of(part(name));
    }
    if (told_.pci.empty()) told_.pci = pci_address(section.told("PCI Address"));
    const auto celsius = part("HwCfg").told({"ROC temperature(Degree Celsius)", "Chip temperature(C)",
                                             "ROC temperature", "Ctrl temperature(Degree Celsius)"});
    take(told_.celsius, leading_integer(celsius));
}

StorcliController::Drive *StorcliController::read_drive_row(const Json &row) {
    const std::string id = row.told({"DID", "PID"});
    std::string place = place_of(row.told("EID:Slt"));
    if (place.empty() && !id.empty()) place = "id " + id;
    Drive *drive = drive_at(place);
    if (drive == nullptr) return nullptr;
    take(drive->told.device_id, id);
    take(drive->told.state, row.told("State"));
    const std::string status = row.told("Status");
    if (!status.empty()) drive->told.state = drive->told.state + " " + status;
    take(drive->told.model, row.told("Model"));
    take(drive->told.media, medium_of(row.told("Med")));
    take(drive->told.interface, lower(row.told("Intf")));
    take(drive->told.sector_bytes, bytes_of(row.told("SeSz")));
    if (!drive->told.bytes) drive->told.bytes = bytes_of(row.told("Size"));
    const Json *group = row.at("DG");
    if (group != nullptr) drive->group = trimmed(group->text);
    take(drive->type, row.told("Type"));
    take(drive->jbod_id, row.told("ID"));
    return drive;
}

void StorcliController::read_drive_details(const std::string &place, const Json &details) {
    Drive *drive = drive_at(place);
    if (drive == nullptr) return;
    PhysicalDrive &told = drive->told;
    const std::set<std::string> groups = numbers_in(deep(details, "Dedicated Array(s)"));
    dedicated_[place].insert(groups.begin(), groups.end());
    const std::string serial = deep(details, {"SN", "Serial Number"});
    drive->has_details = drive->has_details || !serial.empty();
    take(told.serial, serial);
    take(told.vendor, deep(details, {"Manufacturer Id", "Vendor"}));
    take(told.model, deep(details, {"Model Number", "Model"}));
    take(told.firmware, deep(details, {"Firmware Revision", "Firmware Revision Level"}));
    take(told.wwn, world_wide_name(deep(details, "WWN")));
    take(told.kernel_device, deep(details, "OS Drive Name"));
    take(told.sector_bytes, bytes_of(deep(details, {"Logical Sector Size", "Sector Size"})));
    take(drive->raw_size, deep(details, "Raw size"));
    take(told.media_errors, whole_number(deep(details, "Media Error Count")));
    take(told.other_errors, whole_number(deep(details, "Other Error Count")));
    take(told.predictive_failures, whole_number(deep(details, "Predictive Failure Count")));
    take(told.celsius, leading_integer(deep(details, {"Drive Temperature", "Temperature(C)"})));
    told.predictive_failure = told.predictive_failure || told.predictive_failures.value_or(0) > 0 ||
                              same_word(deep(details, "S.M.A.R.T alert flagged by drive"), "Yes");
}

StorcliController::Logical *StorcliController::read_logical_row(const Json &row) {
    const std::string both = row.told("DG/VD");
    const std::size_t slash = both.find('/');
    if (slash == std::string::npos) return nullptr;
    Logical *logical = logical_at(std::string(trimmed(std::string_view(both).substr(slash + 1))));
    if (logical == nullptr) return nullptr;
    logical->group = trimmed(std::string_view(both).substr(0, slash));
    const std::string type = row.told("TYPE");
    take(logical->told.level, level_of(type));
    logical->told.hidden = logical->told.hidden || begins_with(type, "Cac");
    take(logical->told.state, row.told("State"));
    take(logical->told.label, row.told("Name"));
    take(logical->size, row.told("Size"));
    return logical;
}

void StorcliController::read_properties(Logical &logical, const Json &properties) {
    logical.blocks = whole_number(properties.told("Number of Blocks")).value_or(logical.blocks);
    logical.block_size = bytes_of(properties.told("Block Size")).value_or(logical.block_size);
    take(logical.told.naa, world_wide_name(properties.told("SCSI NAA Id")));
    take(logical.told.kernel_device, properties.told("OS Drive Name"));
    logical.told.hidden = logical.told.hidden || same_word(properties.told("Exposed to OS"), "No");
}

void StorcliController::read_members(const std::string &number, const Json &rows) {
    Logical *logical = logical_at(number);
    if (logical == nullptr) return;
    logical->has_places = true;
    for (const Json &row : rows.items) {
        if (read_drive_row(row) != nullptr) logical->places.push_back(place_of(row.told("EID:Slt")));
    }
}

void StorcliController::read_topology_row(const Json &row) {
    const std::string group = row.told("DG");
    const std::string state = row.told("State");
    const std::string place = place_of(row.told("EID:Slot"));
    if (!is_number(group)) return;
    if (place.empty() && begins_with(state, "Msng")) {
        // One row for each lost member; nobody knows where it was.
        const std::string row_place = "missing " + group + " " + row.told({"Arr", "Span"}) + " " + row.told("Row");
        Drive *missing = drive_at(row_place);
        if (missing == nullptr) return;
        missing->told.enclosure.clear();
        missing->told.slot.clear();
        missing->told.state = state;
        missing->group = group;
    } else if (!place.empty() && (begins_with(state, "DHS") || begins_with(state, "GHS"))) {
        if (begins_with(state, "DHS")) dedicated_[place].insert(group);
    } else if (Drive *drive = drive_at(place)) {
        if (drive->group.empty()) drive->group = group;
        if (drive->told.state.empty()) drive->told.state = state;
    }
}

bool StorcliController::is_hba() const { return begins_with(told_.driver, "mpt"); }
bool StorcliController::is_megaraid() const { return told_.driver.empty() || same_word(told_.driver, "megaraid_sas"); }

std::string StorcliController::id_of(const PhysicalDrive &drive) const {
    return "c" + told_.number + (drive.enclosure.empty() ? "" : "/e" + drive.enclosure) + "/s" + drive.slot;
}

void StorcliController::finish_drive(Drive &drive) const {
    PhysicalDrive &told = drive.told;
    if (begins_with(told.enclosure, "id ") || begins_with(told.slot, "id ")) told.enclosure = told.slot = "";
    told.role = role_of(told.state, drive.group, drive.type);
    if (const auto sectors = sectors_in(drive.raw_size)) {
        // HBAs print the last sector's number as the count.
        told.bytes = bytes_of_sectors(*sectors + (is_hba() ? 1 : 0), told.sector_bytes, drive.raw_size);
    } else if (!drive.raw_size.empty()) {
        take(told.bytes, bytes_of(drive.raw_size));
    }
    if (told.role != Role::kJbod || !is_megaraid()) return;
    const bool is_new = !drive.jbod_id.empty();
    const auto id = whole_number(is_new ? drive.jbod_id : told.device_id);
    if (!id || *id >= kMostTargets) return;
    told.scsi_channel = static_cast<unsigned>(*id) / kTargetsPerChannel + (is_new ? kFirstLogicalChannel : 0);
    told.scsi_target = static_cast<unsigned>(*id) % kTargetsPerChannel;
}

void StorcliController::finish_logical(Logical &logical) {
    LogicalDrive &told = logical.told;
    for (const std::string &place : logical.places) {
        const auto known = drive_places_.find(place);
        if (known == drive_places_.end()) continue;
        told.members.push_back(known->second);
        PhysicalDrive &drive = drives_[known->second].told;
        if (drive.role == Role::kUnknown || drive.role == Role::kUnassigned) drive.role = Role::kMember;
    }
    for (std::size_t i = 0; i < drives_.size(); ++i) {
        const bool belongs = is_number(logical.group) && drives_[i].group == logical.group;
        const bool listed = std::find(told.members.begin(), told.members.end(), i) != told.members.end();
        const Role role = drives_[i].told.role;
        if (belongs && !listed && (role == Role::kMissing || (role == Role::kMember && !logical.has_places))) {
            told.members.push_back(i);
        }
    }
    told.members_known = logical.has_places || !told.members.empty();
    for (const auto &[place, groups] : dedicated_) {
        const auto known = drive_places_.find(place);
        if (known != drive_places_.end() && groups.contains(logical.group)) told.spares.push_back(known->second);
    }
    if (logical.blocks > 0) {
        told.bytes = logical.block_size > 0 ? logical.blocks * logical.block_size
                                            : bytes_of_sectors(logical.blocks, std::nullopt, logical.size);
        told.bytes_exact = true;
    } else {
        told.bytes = bytes_of(logical.size);
    }
    const auto target = whole_number(told.number);
    if (!target || *target >= kMostTargets || !is_megaraid() || told.hidden) return;
    told.scsi_channel = static_cast<unsigned>(*target) / kTargetsPerChannel + kFirstLogicalChannel;
    told.scsi_target = static_cast<unsigned>(*target) % kTargetsPerChannel;
}

void StorcliController::check(Survey &survey, const std::string &tool) const {
    const std::string id = "c" + told_.number;
    std::size_t present = 0;
    for (const Drive &drive : drives_) {
        if (drive.told.role == Role::kMissing) continue;
        ++present;
        if (drive.told.serial.empty()) doubt(survey, tool, 0, id_of(drive.told), "no serial number");
        if (drive.told.role == Role::kUnknown) {
            doubt(survey, tool, 0, id_of(drive.told),
                  "its role cannot be told from the state '" + drive.told.state + "'");
        }
    }
    if (drive_count_ && present < *drive_count_) {
        doubt(survey, tool, 0, id,
              "it counts " + std::to_string(*drive_count_) + " drives and names " + std::to_string(present));
    }
    if (logical_count_ && logical_.size() < *logical_count_) {
        doubt(survey, tool, 0, id,
              "it counts " + std::to_string(*logical_count_) + " logical drives and names " +
                  std::to_string(logical_.size()));
    }
}

Controller StorcliController::finish(Survey &survey, const std::string &tool) {
    for (Drive &drive : drives_) finish_drive(drive);
    for (Logical &logical : logical_) finish_logical(logical);
    // A dedicated spare may name its group in its own row alone.
    for (std::size_t i = 0; i < drives_.size(); ++i) {
        for (Logical &logical : logical_) {
            auto &spares = logical.told.spares;
            const bool is_spare = drives_[i].told.role == Role::kSpare && is_number(drives_[i].group);
            if (is_spare && drives_[i].group == logical.group &&
                std::find(spares.begin(), spares.end(), i) == spares.end()) {
                spares.push_back(i);
            }
        }
    }
    check(survey, tool);
    for (Drive &drive : drives_) told_.drives.push_back(std::move(drive.told));
    for (Logical &logical : logical_) told_.logical.push_back(std::move(logical.told));
    return std::move(told_);
}

} // namespace inventory::raid
