#include "inventory/raid/ssacli.h"

#include <algorithm>
#include <array>

namespace inventory::raid::ssacli {
namespace {

// --- keys

void read_pci(Controller &controller, const Line &line, Page &page) {
    if (!controller.pci.empty() || is_nothing(line.value)) return;
    controller.pci = pci_address(line.value);
    if (controller.pci.empty()) page.doubt(line, "\"" + told(line.value) + "\" is no PCI address");
}

constexpr std::array<KeyRule<Controller>, 6> kControllerRules{{
    {"serial number", read_text<&Controller::serial>},
    {"controller status", read_text<&Controller::state>},
    {"firmware version", read_text<&Controller::firmware>},
    {"controller temperature*", read_celsius<&Controller::celsius>},
    {"driver name", read_text<&Controller::driver>},
    {"pci address*", read_pci},
}};

constexpr std::array<KeyRule<Logical>, 6> kLogicalRules{{
    {"size", read_size<&Logical::bytes, 1024>},
    {"fault tolerance", read_level<&Logical::level>},
    {"status", read_text<&Logical::state>},
    {"unique identifier", read_wwn<&Logical::naa>},
    {"disk name", read_device<&Logical::kernel_device>},
    {"logical drive label", read_text<&Logical::label>},
}};

// "HPD5 (FW update is recommended to minimum version: HPDA)".
void read_firmware(Drive &drive, const Line &line, Page &) {
    if (drive.firmware.empty()) drive.firmware = told(line.value.substr(0, line.value.find(" (")));
}

// "512/4096": what a command counts in, then what the medium is written in.
void read_sector(Drive &drive, const Line &line, Page &page) {
    if (!drive.sector_bytes) drive.sector_bytes = count_of(line, page);
}

void read_interface(Drive &drive, const Line &line, Page &) {
    drive.interface = interface_of(line.value);
    if (drive.media.empty()) drive.media = media_of(line.value);
}

void read_rotation(Drive &drive, const Line &line, Page &) {
    if (drive.media.empty() && leading_number(line.value).value_or(0) > 1) drive.media = "hdd";
}

// SCSI INQUIRY: vendor, padded to 8 characters, then product.
void read_model(Drive &drive, const Line &line, Page &) {
    if (!drive.model.empty() || is_nothing(line.value)) return;
    const std::size_t blank = line.value.find(' ');
    if (blank != std::string_view::npos) drive.vendor = told(line.value.substr(0, blank));
    drive.model = told(line.value.substr(blank == std::string_view::npos ? 0 : blank));
}

constexpr std::array<KeyRule<Drive>, 13> kDriveRules{{
    {"status", read_text<&Drive::state>},
    {"drive type", read_text<&Drive::type>},
    {"interface type", read_interface},
    {"size", read_size<&Drive::bytes, 1000>},
    {"logical/physical block size", read_sector},
    {"native block size", read_sector},
    {"rotational speed", read_rotation},
    {"firmware revision", read_firmware},
    {"serial number", read_text<&Drive::serial>},
    {"wwid", read_wwn<&Drive::wwn>},
    {"model", read_model},
    {"current temperature*", read_celsius<&Drive::celsius>},
    {"disk name", read_device<&Drive::kernel_device>},
}};

// --- headings

// "(sn: PZZZZ)" among the brackets after the slot.
std::string serial_in(std::string_view brackets) {
    const std::size_t start = brackets.find("(sn:");
    if (start == std::string_view::npos) return {};
    brackets.remove_prefix(start + 4);
    return told(brackets.substr(0, brackets.find(')')));
}

// "Smart Array P420 in Slot 2 (Embedded) (sn: ...)", "MSA1500 CS in NAME"; a sentence goes on after the slot.
std::optional<Title> title_of(std::string_view text) {
    const std::size_t slot = text.find(" in Slot ");
    const bool external = slot == std::string_view::npos && begins_with(text, "msa");
    const std::size_t in = external ? text.find(" in ") : slot;
    if (in == std::string_view::npos || in == 0) return std::nullopt;
    const std::string_view model = text.substr(0, in);
    if (model.find(':') != std::string_view::npos) return std::nullopt;
    const std::string_view rest = trimmed(text.substr(in + (external ? 4 : 9)));
    const std::string_view number = rest.substr(0, rest.find_first_of(" \t("));
    const std::string_view after = trimmed(rest.substr(number.size()));
    if (number.empty() || (!after.empty() && !after.starts_with('('))) return std::nullopt;
    return Title{told(model), std::string(number), serial_in(after)};
}

constexpr std::string_view kUnknownSlot = "ATTR_VALUE_SLOT_UNKNOWN";

void add_controller(Reading &reading, const Line &line, const Title &title) {
    reading.block = Block::kNone;
    reading.nesting = Drive::Nesting::kNone;
    if (reading.boxes.size() >= kMostControllers) return reading.page.doubt(line, "too many controllers");
    Box fresh;
    fresh.controller.model = title.model;
    fresh.controller.number = title.slot;
    if (title.slot == kUnknownSlot) {
        fresh.controller.number = "unknown";
        if (!reading.boxes.empty()) fresh.controller.number += "-" + std::to_string(reading.boxes.size() + 1);
    }
    fresh.controller.serial = title.serial;
    reading.box = reading.boxes.size();
    reading.boxes.push_back(std::move(fresh));
    reading.block = Block::kController;
    reading.page.where = "c" + reading.current().controller.number;
}

void return_to(Reading &reading, std::size_t box) {
    // Some versions repeat the line before each line of a list: that ends nothing.
    if (box == reading.box) return;
    reading.box = box;
    reading.block = Block::kOther;
    reading.nesting = Drive::Nesting::kNone;
}

void open_controller(Reading &reading, const Line &line, const Title &title) {
    const bool has_slot = title.slot != kUnknownSlot;
    for (std::size_t i = 0; i < reading.boxes.size(); ++i) {
        const Controller &seen = reading.boxes[i].controller;
        const bool same = has_slot ? seen.number == title.slot : !title.serial.empty() && seen.serial == title.serial;
        if (same) return return_to(reading, i);
    }
    const bool again = !reading.boxes.empty() && begins_with(reading.current().controller.number, "unknown");
    if (has_slot || !title.serial.empty() || !again) return add_controller(reading, line, title);
    reading.unknown = title;
}

// Port, box and bay of "1I:1:4"; channel and target of "2:3".
void place_drive(Drive &drive, const std::string &id) {
    drive.device_id = id;
    const std::size_t last = id.rfind(':');
    drive.slot = last == std::string::npos ? id : id.substr(last + 1);
    drive.enclosure = last == std::string::npos ? "" : id.substr(0, last);
    drive.channel = id.substr(0, id.find(':'));
}

// The drive of that name, made if it is new.
Drive *find_drive(Reading &reading, const Line &line, std::string_view id) {
    Box &box = reading.current();
    const auto known = box.drive_by_id.find(id);
    if (known != box.drive_by_id.end()) {
        reading.drive = known->second;
        return &box.drives[known->second];
    }
    if (box.drives.size() >= kMostDrives) {
        reading.page.doubt(line, "too many drives");
        return nullptr;
    }
    reading.drive = box.drives.size();
    box.drive_by_id.emplace(id, reading.drive);
    Drive drive;
    drive.line = line.number;
    place_drive(drive, told(id));
    box.drives.push_back(std::move(drive));
    return &box.drives.back();
}

void nest(const Reading &reading, Drive &drive) {
    if (reading.nesting == Drive::Nesting::kNone) return;
    drive.nesting = reading.nesting;
    const bool again = !drive.arrays.empty() && drive.arrays.back() == reading.arrays;
    if (reading.nesting == Drive::Nesting::kArray && !again) drive.arrays.push_back(reading.arrays);
}

// "port 1I:box 1:bay 2, SAS HDD, 600 GB, OK, spare": what each part is shows in the part.
void read_reference(Drive &drive, std::string_view parts) {
    while (!parts.empty()) {
        const std::size_t comma = std::min(parts.find(','), parts.size());
        const std::string_view part = trimmed(parts.substr(0, comma));
        parts.remove_prefix(std::min(comma + 1, parts.size()));
        if (begins_with(part, "port ") || begins_with(part, "box ")) continue;
        if (begins_with(part, "spare") || begins_with(part, "active spare")) {
            drive.spare_in_lists = true;
            drive.active_spare = begins_with(part, "active");
        } else if (const auto bytes = bytes_of(part, 1000); bytes) {
            drive.listed_bytes = bytes;
        } else if (!interface_of(part).empty() || !media_of(part).empty()) {
            if (drive.interface.empty()) drive.interface = interface_of(part);
            if (drive.media.empty()) drive.media = media_of(part);
        } else if (drive.listed_bytes && drive.listed_state.empty()) { // the status follows the size
            drive.listed_state = told(part);
        }
    }
}

// A block of the drive's own, or a line of a list that refers to it.
void open_drive(Reading &reading, const Line &line, std::string_view name) {
    const std::size_t bracket = std::min(name.find('('), name.size());
    const std::string_view id = trimmed(name.substr(0, bracket));
    if (reading.boxes.empty() || id.empty() || id.find(' ') != std::string_view::npos) return;
    const std::size_t before = reading.drive;
    Drive *drive = find_drive(reading, line, id);
    if (!drive) {
        reading.block = Block::kOther;
        return;
    }
    nest(reading, *drive);
    if (bracket < name.size()) {
        reading.drive = before;
        return read_reference(*drive, name.substr(bracket + 1, name.rfind(')') - bracket - 1));
    }
    if (!drive->detailed) drive->line = line.number;
    drive->detailed = true;
    reading.block = Block::kDrive;
    reading.page.where = drive_name(reading.current().controller, *drive);
}

void open_array(Reading &reading, const Line &, std::string_view) {
    ++reading.arrays;
    reading.nesting = Drive::Nesting::kArray;
    reading.block = Block::kArray;
}

void open_logical(Reading &reading, const Line &line, std::string_view number) {
    reading.block = Block::kOther;
    if (reading.boxes.empty()) return;
    Box &box = reading.current();
    if (box.logical.size() >= kMostLogicalDrives) return reading.page.doubt(line, "too many logical drives");
    Logical logical;
    logical.line = line.number;
    logical.number = told(number);
    logical.array = reading.nesting == Drive::Nesting::kArray ? reading.arrays : 0;
    box.logical.push_back(std::move(logical));
    reading.block = Block::kLogical;
    reading.page.where = "c" + box.controller.number + "/v" + box.logical.back().number;
}

void end_array(Reading &reading, Drive::Nesting nesting) {
    reading.nesting = nesting;
    reading.block = Block::kOther;
}
void open_unassigned(Reading &reading, const Line &, std::string_view) {
    end_array(reading, Drive::Nesting::kUnassigned);
}
void open_hba(Reading &reading, const Line &, std::string_view) { end_array(reading, Drive::Nesting::kHba); }

// Cages, expanders, services: they have serial numbers and models of their own.
void open_other(Reading &reading, const Line &, std::string_view) {
    if (reading.nesting == Drive::Nesting::kArray) reading.nesting = Drive::Nesting::kNone;
    reading.block = Block::kOther;
}

// Lists of references within a block, which goes on after them.
void pass_over(Reading &, const Line &, std::string_view) {}

// The controller's first keys: whatever paragraphs stand before them.
void reopen_controller(Reading &reading, const Line &line, std::string_view) {
    if (reading.unknown) add_controller(reading, line, *reading.unknown);
    reading.unknown.reset();
    if (!reading.boxes.empty()) reading.block = Block::kController;
}

enum class Form : std::uint8_t {
    kAny,
    kWhole, // nothing follows but a colon or a bracket
    kBare,  // no value follows: with one it is a key
    kLetter // the short name of an array follows
};
struct Heading {
    std::string_view beginning;
    void (*open)(Reading &reading, const Line &line, std::string_view rest);
    Form form;
};
constexpr std::array<Heading, 21> kHeadings{{
    {"physicaldrive ", open_drive, Form::kAny},
    {"array:", open_array, Form::kAny},
    {"array ", open_array, Form::kLetter},
    {"logical drive:", open_logical, Form::kAny},
    {"unassigned", open_unassigned, Form::kWhole},
    {"hba drives", open_hba, Form::kWhole},
    {"physical drives", open_other, Form::kWhole},
    {"mirror group", pass_over, Form::kBare},
    {"parity group", pass_over, Form::kBare},
    {"logicaldrive ", pass_over, Form::kAny},
    {"bus interface:", reopen_controller, Form::kAny},
    {"slot:", reopen_controller, Form::kAny},
    {"internal drive cage", open_other, Form::kBare},
    {"external drive cage", open_other, Form::kBare},
    {"port name:", open_other, Form::kAny},
    {"expander ", open_other, Form::kBare},
    {"enclosure ", open_other, Form::kBare},
    {"sep ", open_other, Form::kBare},
    {"warning:", pass_over, Form::kAny},
    {"note:", pass_over, Form::kAny},
    {"error:", pass_over, Form::kAny},
}};

bool has_form(Form form, const Line &line, std::string_view rest) {
    switch (form) {
    case Form::kWhole: return rest.empty() || rest[0] == ':' || rest[0] == '(';
    case Form::kBare: return line.value.empty();
    case Form::kLetter: return line.is_bare() && std::min(rest.find_first_of(" ("), rest.size()) <= 2;
    case Form::kAny: break;
    }
    return true;
}

bool open_heading(Reading &reading, const Line &line) {
    for (const Heading &heading : kHeadings) {
        if (!begins_with(line.text, heading.beginning)) continue;
        const std::string_view rest = trimmed(line.text.substr(heading.beginning.size()));
        if (!has_form(heading.form, line, rest)) continue;
        heading.open(reading, line, rest);
        return true;
    }
    return false;
}

// --- lines

void read_key(Reading &reading, const Line &line) {
    if (reading.boxes.empty()) return;
    Box &box = reading.current();
    switch (reading.block) {
    case Block::kController: read_by<Controller>(kControllerRules, box.controller, line, reading.page); break;
    case Block::kLogical: read_by<Logical>(kLogicalRules, box.logical.back(), line, reading.page); break;
    case Block::kDrive: read_by<Drive>(kDriveRules, box.drives[reading.drive], line, reading.page); break;
    default: break;
    }
}

// Two keys can share a line: "Array Type: Data       HPE SSD Smart Path: disable".
std::optional<Line> take_second_key(Line &line) {
    constexpr std::string_view kGap = "   ";
    const std::size_t gap = line.value.find(kGap);
    if (gap == std::string_view::npos || key_fits("logical drive label", line.key)) return std::nullopt;
    Line second = line;
    second.text = trimmed(line.value.substr(gap));
    const auto [key, value] = split_at_colon_blank(second.text);
    if (key.empty()) return std::nullopt;
    second.key = key;
    second.value = value;
    line.value = trimmed(line.value.substr(0, gap));
    return second;
}

// A block that is not known yet; but what stands at the left edge of an indented text is a paragraph for people.
void read_bare(Reading &reading, const Line &line) {
    const bool sentence = line.text.ends_with('.') || std::count(line.text.begin(), line.text.end(), ' ') > 7;
    if (sentence || (reading.indented && line.indent == 0)) return;
    reading.block = Block::kOther;
}

// A last line without line end may lack its end: names in it are not to be trusted, and no value is.
void read_cut_line(Reading &reading, const Line &line) {
    const bool is_reference = begins_with(line.text, "physicaldrive") || begins_with(line.text, "logical");
    if (line.is_bare() || is_reference || begins_with(line.text, "array:")) {
        reading.page.doubt(line, "the output ends in the middle of a line");
    } else {
        read_key(reading, line);
    }
}

void read_line(Reading &reading, Line line) {
    if (!line.whole) return read_cut_line(reading, line);
    if (begins_with(line.text, "error:") && reading.trouble.empty()) reading.trouble = told(line.text);
    if (const auto title = title_of(line.text)) return open_controller(reading, line, *title);
    const bool first_keys = begins_with(line.text, "slot") || begins_with(line.text, "bus ");
    if (open_heading(reading, line) && !first_keys) return;
    if (line.is_bare() && line.text.find(':') == std::string_view::npos) return read_bare(reading, line);
    const std::optional<Line> second = take_second_key(line);
    read_key(reading, line);
    if (second) read_key(reading, *second);
}

bool is_indented(const Reply &reply) {
    Survey aside;
    Page page(aside, "", reply);
    Line line;
    while (page.next(line)) {
        if (line.indent > 0) return true;
    }
    return false;
}

} // namespace

void read_reply(Reading &reading, const Reply &reply) {
    reading.indented = is_indented(reply);
    Line line;
    while (reading.page.next(line)) read_line(reading, line);
    reading.page.where.clear();
}

} // namespace inventory::raid::ssacli
