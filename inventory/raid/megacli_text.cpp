#include "inventory/raid/megacli_text.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace inventory::raid {
namespace {

template <class Block> struct Field {
    std::string_view key;
    std::string Block::*value;
};

// Old and new spellings side by side.
constexpr Field<MegaDrive> kDriveFields[] = {
    {"Slot Number", &MegaDrive::slot},
    {"Device Id", &MegaDrive::device_id},
    {"Drive's position", &MegaDrive::position},
    {"Drive's postion", &MegaDrive::position},
    {"WWN", &MegaDrive::wwn},
    {"PD Type", &MegaDrive::type},
    {"Raw Size", &MegaDrive::raw_size},
    {"Logical Sector Size", &MegaDrive::sector_size},
    {"Firmware state", &MegaDrive::state},
    {"Foreign State", &MegaDrive::foreign},
    {"Media Type", &MegaDrive::media},
    {"Drive Temperature", &MegaDrive::temperature},
    {"Drive has flagged a S.M.A.R.T alert", &MegaDrive::alert},
    {"Media Error Count", &MegaDrive::media_errors},
    {"Other Error Count", &MegaDrive::other_errors},
    {"Predictive Failure Count", &MegaDrive::predictive_failures},
    {"Type", &MegaDrive::spare_type},
    {"Array #", &MegaDrive::spare_array},
};
constexpr Field<MegaLogical> kLogicalFields[] = {
    {"Name", &MegaLogical::name},
    {"RAID Level", &MegaLogical::level},
    {"Size", &MegaLogical::size},
    {"State", &MegaLogical::state},
    {"Number Of Drives", &MegaLogical::drives},
    {"Number Of Drives per span", &MegaLogical::drives_per_span},
    {"Span Depth", &MegaLogical::span_depth},
};
constexpr Field<MegaAdapter> kAdapterFields[] = {
    {"Product Name", &MegaAdapter::product},        {"Serial No", &MegaAdapter::serial},
    {"FW Package Build", &MegaAdapter::package},    {"FW Version", &MegaAdapter::firmware},
    {"ROC temperature", &MegaAdapter::temperature}, {"Bus Number", &MegaAdapter::bus},
    {"Device Number", &MegaAdapter::device},        {"Function Number", &MegaAdapter::function},
};

template <class Block, std::size_t Size>
bool read_field(Block &block, const Field<Block> (&fields)[Size], const KeyValue &line) {
    for (const Field<Block> &field : fields) {
        if (!same_word(field.key, line.key)) continue;
        if ((block.*field.value).empty()) block.*field.value = line.value;
        return true;
    }
    return false;
}

// The heading's number: each command has a heading of its own for what follows.
std::optional<std::string> adapter_in(std::string_view line) {
    for (const std::string_view heading : {"Adapter #", "PCI information for Controller ", "Adapter "}) {
        const auto number = begins_with(line, heading) ? leading_number(line.substr(heading.size())) : std::nullopt;
        if (number) return std::to_string(*number);
    }
    return std::nullopt;
}

bool is_logical_heading(std::string_view key) {
    return same_word(key, "Virtual Drive") || same_word(key, "Virtual Disk") ||
           same_word(key, "CacheCade Virtual Drive");
}

class MegaReader {
  public:
    MegaText read(std::string_view text) {
        Lines lines(text);
        for (std::string_view line; lines.next(line);) {
            // The last line without its end may be the half of one.
            const bool whole = line.data() + line.size() < text.data() + text.size();
            const bool is_end = begins_with(trimmed(line), "Exit Code");
            if (!whole && !is_end && line.find(':') != std::string_view::npos) {
                result_.cut_off = lines.number();
                break;
            }
            result_.has_exit_code = result_.has_exit_code || is_end;
            read_line(line, lines.number());
        }
        return std::move(result_);
    }

  private:
    void read_line(std::string_view line, std::size_t number) {
        const std::string_view text = trimmed(line);
        if (const auto adapter = adapter_in(text)) return start_adapter(*adapter);
        const KeyValue pair = split_at_colon(text);
        if (same_word(pair.key, "Controller Count")) result_.count = pair.value;
        if (adapter_ == nullptr || pair.key.empty()) return;
        if (is_logical_heading(pair.key) && whole_number(pair.value.substr(0, pair.value.find_first_of(" ("))))
            return start_logical(pair, number);
        if (same_word(pair.key, "Enclosure Device ID")) return start_drive(pair.value, number);
        if (same_word(pair.key, "PD") || same_word(pair.key, "Span")) {
            drive_ = nullptr;
        } else if (same_word(pair.key, "Inquiry Data")) {
            if (drive_ != nullptr) drive_->inquiry = after_colon(line);
        } else if (drive_ != nullptr) {
            read_field(*drive_, kDriveFields, pair);
        } else if (logical_ != nullptr) {
            if (same_word(pair.key, "Virtual Drive Type") && holds(pair.value, "CacheCade")) logical_->is_cache = true;
            read_field(*logical_, kLogicalFields, pair);
        } else {
            read_field(*adapter_, kAdapterFields, pair);
        }
    }

    // Exactly one blank stands between colon and data.
    static std::string after_colon(std::string_view line) {
        std::string_view value = line.substr(line.find(':') + 1);
        if (value.starts_with(' ')) value.remove_prefix(1);
        return std::string(value);
    }

    void start_adapter(const std::string &number) {
        logical_ = nullptr;
        drive_ = nullptr;
        for (MegaAdapter &adapter : result_.adapters) {
            if (adapter.number == number) adapter_ = &adapter;
        }
        if (adapter_ != nullptr && adapter_->number == number) return;
        adapter_ = nullptr;
        if (result_.adapters.size() >= kMostControllers) return;
        adapter_ = &result_.adapters.emplace_back();
        adapter_->number = number;
    }

    void start_logical(const KeyValue &heading, std::size_t line) {
        drive_ = nullptr;
        logical_ = nullptr;
        if (adapter_->logical.size() >= kMostLogicalDrives) return;
        logical_ = &adapter_->logical.emplace_back();
        logical_->line = line;
        logical_->number = std::to_string(leading_number(heading.value).value_or(0));
        logical_->is_cache = begins_with(heading.key, "CacheCade");
        const std::string value = lower(heading.value);
        const std::size_t target = value.find("target id:");
        if (target != std::string::npos) {
            const auto id = leading_number(std::string_view(value).substr(target + 10));
            if (id) logical_->target = std::to_string(*id);
        }
    }

    void start_drive(std::string_view enclosure, std::size_t line) {
        std::vector<MegaDrive> &drives = logical_ != nullptr ? logical_->members : adapter_->drives;
        drive_ = nullptr;
        if (++drives_ > kMostDrives) return;
        drive_ = &drives.emplace_back();
        drive_->line = line;
        drive_->enclosure = enclosure;
    }

    MegaText result_;
    MegaAdapter *adapter_ = nullptr; // where the lines belong; what grows, ends what was open
    MegaLogical *logical_ = nullptr;
    MegaDrive *drive_ = nullptr;
    std::size_t drives_ = 0;
};

bool has_inner_blank(std::string_view text) { return trimmed(text).find(' ') != std::string_view::npos; }

// SPC-4, 6.6.2: vendor 8, product 16, revision 4, vendor specific 20.
constexpr std::size_t kScsiSize = 48;
// As the firmware joins the ATA identity: serial 20, model 40, firmware 8.
constexpr std::size_t kAtaSize = 68;

std::string column(std::string_view text, std::size_t begin, std::size_t size) {
    return begin >= text.size() ? std::string() : told(text.substr(begin, size));
}

MegaIdentity ata_identity(std::string_view text) {
    // Firmware of one character at least ends it; what is shorter has lost blanks, and with them its columns.
    if (text.size() <= 60 || text.size() > kAtaSize || has_inner_blank(text.substr(0, 20)))
        return {"", "", "", "", "Inquiry Data without its columns"};
    return {"", column(text, 20, 40), column(text, 60, 8), column(text, 0, 20), ""};
}

MegaIdentity scsi_identity(std::string_view text) {
    const bool is_cut = text.size() < kScsiSize;
    const std::string_view product = text.substr(std::min<std::size_t>(8, text.size()), 16);
    const std::string_view serial = text.substr(std::min<std::size_t>(28, text.size()));
    // Blanks at the end may be gone. Blanks that are gone elsewhere put words over the columns' borders.
    const bool is_shifted = is_cut && (has_inner_blank(text.substr(0, 8)) || has_inner_blank(product) ||
                                       product.starts_with(' ') || serial.starts_with(' '));
    if (trimmed(serial).empty() || is_shifted || has_inner_blank(serial))
        return {"", "", "", "", "Inquiry Data without its columns"};
    return {column(text, 0, 8), column(text, 8, 16), column(text, 24, 4), told(serial), ""};
}

} // namespace

MegaText read_megacli(std::string_view text) { return MegaReader().read(text); }

MegaIdentity read_inquiry(std::string_view inquiry, bool is_sata, bool type_is_told) {
    while (inquiry.ends_with(' ') || inquiry.ends_with('\r')) inquiry.remove_suffix(1);
    if (trimmed(inquiry).empty()) return {"", "", "", "", "no Inquiry Data"};
    const bool is_scsi_form = begins_with(inquiry, "ATA     ") && inquiry.size() <= kScsiSize;
    const bool is_ata = (is_sata || (!type_is_told && inquiry.size() > kScsiSize)) && !is_scsi_form;
    return is_ata ? ata_identity(inquiry) : scsi_identity(inquiry);
}

} // namespace inventory::raid
