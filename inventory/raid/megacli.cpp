// megacli and its renamed builds: the MegaRAID family's tool before JSON.
#include "inventory/raid/megacli_text.h"
#include "inventory/raid/scan.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace inventory::raid {
namespace {

// The driver gives logical drives channels from 2 on and 128 targets each; drives that it hands through lie below.
constexpr unsigned kTargetsPerChannel = 128;
constexpr unsigned kFirstLogicalChannel = 2;
constexpr std::uint64_t kMostTargets = 1024;

void give_address(std::optional<unsigned> &channel, std::optional<unsigned> &target, const std::string &number,
                  unsigned first_channel) {
    const auto id = whole_number(number);
    if (!id || *id >= kMostTargets) return;
    channel = first_channel + static_cast<unsigned>(*id) / kTargetsPerChannel;
    target = static_cast<unsigned>(*id) % kTargetsPerChannel;
}

std::string disk_group(const std::string &position) {
    const std::size_t begin = lower(position).find("diskgroup:");
    const auto number = begin == std::string::npos ? std::nullopt : leading_number(position.substr(begin + 10));
    return number ? std::to_string(*number) : std::string();
}

// Enclosure and slot, or the controller's own number of the drive.
std::string place_of(const MegaDrive &drive) {
    const std::string enclosure = told(drive.enclosure);
    const std::string slot = told(drive.slot);
    if (!slot.empty()) return enclosure + ":" + slot;
    const std::string id = told(drive.device_id);
    return id.empty() ? id : "id " + id;
}

struct StateRole {
    std::string_view beginning;
    Role role;
};
constexpr std::array<StateRole, 5> kRoles{{{"Hotspare", Role::kSpare},
                                           {"JBOD", Role::kJbod},
                                           {"Unconfigured", Role::kUnassigned},
                                           {"Failed", Role::kFailed},
                                           {"Missing", Role::kMissing}}};

Role role_of(const MegaDrive &drive, bool is_member) {
    if (begins_with(drive.foreign, "Foreign")) return Role::kForeign;
    if (is_member) return begins_with(drive.state, "Missing") ? Role::kMissing : Role::kMember;
    const auto row = std::find_if(kRoles.begin(), kRoles.end(),
                                  [&](const StateRole &known) { return begins_with(drive.state, known.beginning); });
    return row == kRoles.end() ? Role::kUnknown : row->role;
}

std::string medium_of(const std::string &words) {
    if (holds(words, "Solid State")) return "ssd";
    return holds(words, "Hard Disk") ? "hdd" : std::string();
}

// "0C (32.00 F)" stands for a drive that does not tell.
std::optional<std::int64_t> celsius_of(const std::string &words) {
    const auto celsius = leading_integer(words);
    return celsius == 0 ? std::nullopt : celsius;
}

// Primary 1, 5, 6 in spans are 10, 50, 60; a mirror of more than two drives in one span is a 10 too.
std::string level_of(const MegaLogical &logical, std::size_t drives) {
    const auto number = [&](std::string_view word) {
        const std::size_t begin = lower(logical.level).find(lower(word));
        return begin == std::string::npos ? std::nullopt : leading_number(logical.level.substr(begin + word.size()));
    };
    const auto primary = number("Primary-");
    if (!primary) return {};
    const bool spans = whole_number(logical.span_depth).value_or(1) > 1 || number("Secondary-") == 3U;
    const bool is_wide_mirror = *primary == 1 && drives > 2;
    return std::to_string(*primary) + (spans || is_wide_mirror ? "0" : "");
}

// One controller from what all commands told of it.
class MegaController {
  public:
    explicit MegaController(std::string number) { told_.number = std::move(number); }

    void read_adapter(const MegaAdapter &adapter) {
        const auto fill = [](std::string &into, const std::string &value) {
            if (into.empty()) into = raid::told(value);
        };
        fill(told_.model, adapter.product);
        fill(told_.serial, adapter.serial);
        fill(told_.firmware, adapter.package);
        fill(told_.firmware, adapter.firmware);
        if (told_.pci.empty() && !adapter.bus.empty()) {
            told_.pci = pci_address("0:" + adapter.bus + ":" + adapter.device + ":" + adapter.function);
        }
        if (!told_.celsius) told_.celsius = celsius_of(adapter.temperature);
    }

    void read_logical(const MegaAdapter &adapter, bool with_members) {
        for (const MegaLogical &logical : adapter.logical) {
            const auto known = std::find_if(logical_.begin(), logical_.end(),
                                            [&](const MegaLogical &other) { return other.number == logical.number; });
            if (known == logical_.end()) {
                logical_.push_back(logical);
            } else if (with_members && known->members.empty()) {
                known->members = logical.members;
            }
        }
    }

    void read_drives(const MegaAdapter &adapter) {
        for (const MegaDrive &drive : adapter.drives) drive_at(drive);
    }

    Controller finish(Survey &survey, const std::string &command, bool knows_members) {
        for (const MegaLogical &logical : logical_) finish_logical(logical, knows_members);
        for (std::size_t i = 0; i < raw_.size(); ++i) finish_drive(i, survey, command);
        for (const auto &spare : spares_of_groups_) {
            const auto is_of_group = [&](std::size_t member) {
                return disk_group(raw_[member].position) == spare.second;
            };
            for (LogicalDrive &logical : told_.logical) {
                if (std::any_of(logical.members.begin(), logical.members.end(), is_of_group)) {
                    logical.spares.push_back(spare.first);
                }
            }
        }
        return std::move(told_);
    }

  private:
    static constexpr std::size_t kNowhere = ~std::size_t{0};

    // The drive's place in the list; it is printed by several commands, and below each of its logical drives.
    std::size_t drive_at(const MegaDrive &drive) {
        const std::string place = place_of(drive);
        const auto known = places_.find(place);
        if (known != places_.end() && !place.empty()) return known->second;
        if (raw_.size() >= kMostDrives) return kNowhere;
        places_[place] = raw_.size();
        raw_.push_back(drive);
        return raw_.size() - 1;
    }

    void finish_logical(const MegaLogical &logical, bool knows_members) {
        LogicalDrive drive;
        drive.number = logical.number;
        drive.label = raid::told(logical.name);
        drive.state = raid::told(logical.state);
        drive.bytes = bytes_of(logical.size);
        drive.hidden = logical.is_cache;
        for (const MegaDrive &member : logical.members) {
            const std::size_t place = drive_at(member);
            if (place == kNowhere) continue;
            members_.insert(place);
            drive.members.push_back(place);
        }
        drive.members_known = knows_members && !drive.members.empty();
        add_missing(logical, drive, knows_members);
        drive.level = level_of(logical, drive.members.size());
        if (!logical.is_cache) {
            const std::string target = logical.target.empty() ? logical.number : logical.target;
            give_address(drive.scsi_channel, drive.scsi_target, target, kFirstLogicalChannel);
        }
        told_.logical.push_back(std::move(drive));
    }

    // Drives that a logical drive counts and that are not printed below it are gone.
    void add_missing(const MegaLogical &logical, LogicalDrive &drive, bool knows_members) {
        const std::uint64_t spans = std::max<std::uint64_t>(whole_number(logical.span_depth).value_or(1), 1);
        const auto per_span = whole_number(logical.drives_per_span);
        const auto counted = per_span ? std::optional(*per_span * spans) : whole_number(logical.drives);
        const bool is_whole = begins_with(logical.state, "Optimal") || drive.members.empty();
        if (!knows_members || is_whole || !counted || *counted > kMostDrives) return;
        for (std::size_t listed = drive.members.size(); listed < *counted && raw_.size() < kMostDrives; ++listed) {
            MegaDrive missing;
            missing.line = logical.line;
            missing.state = "Missing";
            raw_.push_back(missing);
            members_.insert(raw_.size() - 1);
            drive.members.push_back(raw_.size() - 1);
        }
    }

    void finish_drive(std::size_t place, Survey &survey, const std::string &command) {
        const MegaDrive &raw = raw_[place];
        PhysicalDrive drive;
        drive.enclosure = raid::told(raw.enclosure);
        drive.slot = raid::told(raw.slot);
        drive.device_id = raid::told(raw.device_id);
        drive.state = raid::told(raw.state);
        drive.wwn = world_wide_name(raw.wwn);
        drive.interface = lower(raid::told(raw.type));
        drive.media = medium_of(raw.media);
        drive.role = role_of(raw, members_.contains(place));
        drive.media_errors = whole_number(raw.media_errors);
        drive.other_errors = whole_number(raw.other_errors);
        drive.predictive_failures = whole_number(raw.predictive_failures);
        drive.predictive_failure = drive.predictive_failures.value_or(0) > 0 || begins_with(raw.alert, "Yes");
        drive.celsius = celsius_of(raw.temperature);
        finish_size(raw, drive);
        if (drive.role == Role::kJbod) give_address(drive.scsi_channel, drive.scsi_target, raw.device_id, 0);
        if (drive.role != Role::kMissing) finish_identity(raw, drive, survey, command);
        if (drive.role == Role::kSpare && begins_with(raw.spare_type, "Dedicated") && !raw.spare_array.empty()) {
            spares_of_groups_.emplace(place, raid::told(raw.spare_array));
        }
        told_.drives.push_back(std::move(drive));
    }

    static void finish_size(const MegaDrive &raw, PhysicalDrive &drive) {
        const auto sector = bytes_of(raw.sector_size);
        if (sector && *sector > 0) drive.sector_bytes = sector;
        const auto sectors = sectors_in(raw.raw_size);
        drive.bytes =
            sectors ? std::optional(bytes_of_sectors(*sectors, sector, raw.raw_size)) : bytes_of(raw.raw_size);
    }

    void finish_identity(const MegaDrive &raw, PhysicalDrive &drive, Survey &survey, const std::string &command) const {
        const MegaIdentity identity = read_inquiry(raw.inquiry, same_word(raw.type, "SATA"), !raw.type.empty());
        drive.vendor = identity.vendor;
        drive.model = identity.model;
        drive.firmware = identity.firmware;
        drive.serial = identity.serial;
        const std::string id =
            "c" + told_.number + (drive.enclosure.empty() ? "" : "/e" + drive.enclosure) + "/s" + drive.slot;
        if (identity.serial.empty()) {
            doubt(survey, command, raw.line, id,
                  "no serial number" + (identity.fault.empty() ? "" : ": " + identity.fault));
        }
        if (drive.role == Role::kUnknown) {
            const std::string state = drive.state.empty() ? "not told" : "'" + drive.state + "'";
            doubt(survey, command, raw.line, id, "its logical drive is not told; its state is " + state);
        }
    }

    Controller told_;
    std::vector<MegaLogical> logical_;
    std::vector<MegaDrive> raw_;
    std::map<std::string, std::size_t> places_;
    std::set<std::size_t> members_;
    std::map<std::size_t, std::string> spares_of_groups_;
};

class Reading {
  public:
    Reading(const Runner &run, std::string binary) : run_(run), binary_(std::move(binary)) {}

    Survey survey() {
        const MegaText count = ask({"-adpCount", "-NoLog"}, false);
        const auto controllers = leading_number(count.count);
        if (stopped_ || controllers == 0U) return std::move(survey_);
        for (const char *command : {"-AdpAllInfo", "-AdpGetPciInfo"}) {
            for (const MegaAdapter &adapter : ask({command, "-aALL", "-NoLog"}).adapters) {
                if (MegaController *known = controller(adapter.number)) known->read_adapter(adapter);
            }
        }
        const MegaText logical = ask({"-LDInfo", "-Lall", "-aALL", "-NoLog"});
        const MegaText members = ask({"-LdPdInfo", "-aALL", "-NoLog"});
        const bool knows_members = !stopped_ && members.cut_off == 0;
        const MegaText drives = ask({"-PDList", "-aALL", "-NoLog"});
        // Each list has the controllers without any, too; the one with drives says most about what is there.
        for (const MegaAdapter &adapter : logical.adapters) read(adapter, &MegaController::read_logical, false);
        for (const MegaAdapter &adapter : members.adapters) read(adapter, &MegaController::read_logical, true);
        for (const MegaAdapter &adapter : drives.adapters) {
            if (MegaController *known = controller(adapter.number)) known->read_drives(adapter);
        }
        finish(knows_members, command_line({"-PDList", "-aALL", "-NoLog"}));
        if (saw_exit_code_) {
            for (const std::string &cut : without_exit_code_)
                doubt(survey_, cut, 0, "", "the output ends before its end");
        }
        if (controllers && survey_.controllers.size() < *controllers) {
            doubt(survey_, binary_, 0, "",
                  "it counts " + std::to_string(*controllers) + " controllers and tells of " +
                      std::to_string(survey_.controllers.size()));
        }
        return std::move(survey_);
    }

  private:
    void read(const MegaAdapter &adapter, void (MegaController::*into)(const MegaAdapter &, bool), bool with_members) {
        MegaController *known = controller(adapter.number);
        if (known != nullptr) (known->*into)(adapter, with_members);
    }

    void finish(bool knows_members, const std::string &command) {
        for (auto &[number, known] : controllers_) {
            Controller told = known.finish(survey_, command, knows_members);
            told.tool = binary_;
            told.maker = "LSI";
            survey_.controllers.push_back(std::move(told));
        }
    }

    MegaController *controller(const std::string &number) {
        for (auto &[other, known] : controllers_) {
            if (other == number) return &known;
        }
        if (controllers_.size() >= kMostControllers) return nullptr;
        return &controllers_.emplace_back(number, MegaController(number)).second;
    }

    std::string command_line(const std::vector<std::string> &arguments) const {
        std::string command = binary_;
        for (const std::string &argument : arguments) command += " " + argument;
        return command;
    }

    MegaText ask(const std::vector<std::string> &arguments, bool needed = true) {
        if (stopped_) return {};
        const std::string command = command_line(arguments);
        const Reply reply = run_(arguments);
        if (!reply.trouble.empty()) {
            doubt(survey_, command, 0, "", reply.trouble);
            survey_.trouble = survey_.trouble.empty() ? reply.trouble : survey_.trouble;
            stopped_ = true; // what hangs once hangs again
        }
        MegaText read = read_megacli(reply.text);
        saw_exit_code_ = saw_exit_code_ || read.has_exit_code;
        if (read.cut_off > 0 && reply.trouble.empty()) {
            doubt(survey_, command, read.cut_off, "", "the output breaks off here");
        } else if (!read.has_exit_code && reply.trouble.empty() && !trimmed(reply.text).empty() &&
                   !read.adapters.empty()) {
            without_exit_code_.push_back(command);
        } else if (needed && reply.trouble.empty() && read.adapters.empty() && !read.has_exit_code) {
            const std::string_view words = trimmed(std::string_view(reply.text).substr(0, 200));
            doubt(survey_, command, 0, "",
                  words.empty() ? "the tool printed nothing" : "unexpected answer: " + told(words));
        }
        return read;
    }

    const Runner &run_;
    std::string binary_;
    Survey survey_;
    std::vector<std::pair<std::string, MegaController>> controllers_;
    // Some versions print no "Exit Code" line at all; where one reply has it, one without it is cut off.
    bool saw_exit_code_ = false;
    std::vector<std::string> without_exit_code_;
    bool stopped_ = false;
};

Survey survey_with(const Runner &run, const std::string &binary) { return Reading(run, binary).survey(); }

} // namespace

const Tool kMegacli{"megacli",
                    "LSI",
                    {"MegaCli64", "MegaCli", "megacli", "CmdTool2"},
                    {"/opt/MegaRAID/MegaCli", "/usr/sbin", "/opt/sbin"},
                    {"megaraid_sas"},
                    false,
                    survey_with};

} // namespace inventory::raid
