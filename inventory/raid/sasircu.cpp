// sas2ircu and sas3ircu: the integrated mirrors and stripes of SAS2 and SAS3 HBAs.
#include "inventory/raid/lines.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>
#include <map>

namespace inventory::raid {
namespace {

struct Drive : PhysicalDrive {
    std::size_t line = 0;
    std::string serial_may_be_cut; // "Serial No", which newer versions add the full one to
    std::string letters;           // of the state: "RDY"
    bool cut = false;              // the reply ends within its block
};

struct Volume : LogicalDrive {
    std::size_t line = 0;
    std::vector<std::pair<std::string, std::size_t>> places; // "1:0" and the line that says it
};

// PCI address in the four decimal numbers that DISPLAY prints.
struct Address {
    std::optional<std::uint64_t> segment;
    std::optional<std::uint64_t> bus;
    std::optional<std::uint64_t> device;
    std::optional<std::uint64_t> function;
};

struct Adapter : Controller, Address {
    std::vector<Volume> volumes;
    std::vector<Drive> disks;
    std::string raid_support;
    bool section_told = false; // the heading of the drives was there
    bool complete = false;
};

constexpr std::array<KeyRule<Adapter>, 7> kAdapterRules{{
    {"controller type", read_text<&Adapter::model>},
    {"firmware version", read_text<&Adapter::firmware>},
    {"segment", read_count<&Adapter::segment>},
    {"bus", read_count<&Adapter::bus>},
    {"device", read_count<&Adapter::device>},
    {"function", read_count<&Adapter::function>},
    {"raid support", read_text<&Adapter::raid_support>},
}};

// "Okay (OKY)": the letters say the same once more.
struct State {
    std::string word;
    std::string letters;
};
State state_of(std::string_view value) {
    const std::size_t open = std::min(value.find('('), value.size());
    std::string_view letters = value.substr(std::min(open + 1, value.size()));
    letters = letters.substr(0, letters.find(')'));
    return {told(value.substr(0, open)), told(letters)};
}

void read_volume_state(Volume &volume, const Line &line, Page &) {
    if (volume.state.empty()) volume.state = state_of(line.value).word;
}

void read_megabytes(Volume &volume, const Line &line, Page &page) {
    const std::optional<std::uint64_t> count = count_of(line, page);
    if (count.value_or(0) > 0 && *count < (1ULL << 43)) volume.bytes = *count << 20;
}

// "PHY[0] Enclosure#/Slot# : 1:0".
void read_place(Volume &volume, const Line &line, Page &page) {
    const std::size_t colon = line.value.find(':');
    const bool is_place = colon != std::string_view::npos && whole_number(line.value.substr(0, colon)) &&
                          whole_number(line.value.substr(colon + 1));
    if (!is_place) return page.doubt(line, "\"" + told(line.value) + "\" names no enclosure and slot");
    if (volume.places.size() >= kMostDrives) return;
    volume.places.emplace_back(std::to_string(*whole_number(line.value.substr(0, colon))) + ":" +
                                   std::to_string(*whole_number(line.value.substr(colon + 1))),
                               line.number);
}

constexpr std::array<KeyRule<Volume>, 6> kVolumeRules{{
    {"status of volume", read_volume_state},
    {"volume name", read_text<&Volume::label>},
    {"volume wwid", read_wwn<&Volume::naa>},
    {"raid level", read_level<&Volume::level>},
    {"size (in mb)*", read_megabytes},
    {"phy[*", read_place},
}};

void read_drive_state(Drive &drive, const Line &line, Page &) {
    if (!drive.state.empty()) return;
    const State state = state_of(line.value);
    drive.state = state.word;
    drive.letters = state.letters;
}

// "476940/976773167": the second number is that of the last sector of 512 bytes.
void read_sectors(Drive &drive, const Line &line, Page &page) {
    if (is_nothing(line.value)) return;
    const std::size_t slash = std::min(line.value.find('/'), line.value.size());
    const auto megabytes = whole_number(line.value.substr(0, slash));
    const auto last = whole_number(line.value.substr(std::min(slash + 1, line.value.size())));
    const bool fits = megabytes.value_or(0) < (1ULL << 43) && last.value_or(0) < (1ULL << 54);
    if ((!megabytes && !last) || !fits) return page.doubt(line, "\"" + told(line.value) + "\" is no size");
    if (last.value_or(0) > 0) {
        drive.bytes = (*last + 1) * 512;
    } else if (megabytes.value_or(0) > 0) {
        drive.bytes = *megabytes << 20;
    }
}

void read_type(Drive &drive, const Line &line, Page &) {
    drive.media = media_of(line.value);
    if (drive.interface.empty()) drive.interface = interface_of(line.value);
}

void read_protocol(Drive &drive, const Line &line, Page &) {
    if (drive.interface.empty()) drive.interface = interface_of(line.value);
}

constexpr std::array<KeyRule<Drive>, 12> kDriveRules{{
    {"enclosure #", read_text<&Drive::enclosure>},
    {"slot #", read_text<&Drive::slot>},
    {"state", read_drive_state},
    {"size (in mb)/(in sectors)", read_sectors},
    {"manufacturer", read_text<&Drive::vendor>},
    {"model number", read_text<&Drive::model>},
    {"firmware revision", read_text<&Drive::firmware>},
    {"serial no", read_text<&Drive::serial_may_be_cut>},
    {"unit serial no*", read_text<&Drive::serial>},
    {"guid", read_wwn<&Drive::wwn>},
    {"drive type", read_type},
    {"protocol", read_protocol},
}};

// --- DISPLAY

enum class Block : std::uint8_t { kNone, kAdapter, kVolume, kDrive };

struct Reading {
    Page &page;
    Adapter &adapter;
    Block block = Block::kNone;
};

void open_volume(Reading &reading, const Line &line, const std::string &number) {
    reading.block = Block::kNone;
    if (reading.adapter.volumes.size() >= kMostLogicalDrives) return;
    Volume volume;
    volume.number = number;
    volume.line = line.number;
    reading.adapter.volumes.push_back(std::move(volume));
    reading.block = Block::kVolume;
    reading.page.where = "c" + reading.adapter.number + "/v" + number;
}

void open_drive(Reading &reading, const Line &line) {
    // Enclosures say "Device is a Enclosure services device".
    const bool is_disk = key_fits("device is a hard d*", line.text);
    reading.block = Block::kNone;
    if (!is_disk || reading.adapter.disks.size() >= kMostDrives) return;
    Drive drive;
    drive.line = line.number;
    reading.adapter.disks.push_back(std::move(drive));
    reading.adapter.section_told = true;
    reading.block = Block::kDrive;
    reading.page.where = told(line.text);
}

struct Heading {
    std::string_view beginning;
    Block block;
};
constexpr std::array<Heading, 5> kHeadings{{
    {"controller information", Block::kAdapter},
    {"ir volume information", Block::kNone},
    {"physical device information", Block::kNone},
    {"enclosure information", Block::kNone},
    {"initiator at id", Block::kNone},
}};

bool open_block(Reading &reading, const Line &line) {
    for (const Heading &heading : kHeadings) {
        if (!key_fits(std::string(heading.beginning) + "*", line.text)) continue;
        reading.block = heading.block;
        if (begins_with(heading.beginning, "physical")) reading.adapter.section_told = true;
        return true;
    }
    if (const auto number = number_after(line.text, "ir volume")) {
        open_volume(reading, line, *number);
    } else if (begins_with(line.text, "device is a")) {
        open_drive(reading, line);
    } else {
        return false;
    }
    return true;
}

void read_line(Reading &reading, const Line &line) {
    if (holds(line.text, "completed successfully")) {
        reading.adapter.complete = true;
        return;
    }
    if (line.is_bare() && !line.whole) return reading.page.doubt(line, "the output ends in the middle of a line");
    if (line.whole && open_block(reading, line)) return;
    switch (reading.block) {
    case Block::kAdapter: read_by<Adapter>(kAdapterRules, reading.adapter, line, reading.page); break;
    case Block::kVolume: read_by<Volume>(kVolumeRules, reading.adapter.volumes.back(), line, reading.page); break;
    case Block::kDrive: read_by<Drive>(kDriveRules, reading.adapter.disks.back(), line, reading.page); break;
    case Block::kNone: break;
    }
}

// --- roles and members

struct LetterRole {
    std::string_view letters;
    std::string_view word;
    Role role;
};
// Available means neither in use nor fit for use, so it stays unknown; so does Optimal without a volume.
constexpr std::array<LetterRole, 4> kLetterRoles{{
    {"HSP", "hot spare", Role::kSpare},
    {"RDY", "ready", Role::kUnassigned},
    {"FLD", "failed", Role::kFailed},
    {"MIS", "missing", Role::kMissing},
}};

Role own_role(const Adapter &adapter, const Drive &drive) {
    for (const LetterRole &known : kLetterRoles) {
        const bool fits = same_word(drive.letters, known.letters) || begins_with(drive.state, known.word);
        if (!fits) continue;
        // Firmware without RAID hands every drive to the kernel: Ready says nothing more there.
        const bool handed_through = known.role == Role::kUnassigned && same_word(adapter.raid_support, "no");
        return handed_through ? Role::kJbod : known.role;
    }
    return Role::kUnknown;
}

// A member that no block tells about.
std::size_t add_member(Page &page, Adapter &adapter, const std::string &place, std::size_t line) {
    Drive drive;
    drive.line = line;
    drive.enclosure = place.substr(0, place.find(':'));
    drive.slot = place.substr(place.find(':') + 1);
    const bool is_told = adapter.section_told && adapter.complete;
    if (is_told) drive.state = "Missing";
    drive.role = is_told ? Role::kMissing : Role::kMember;
    page.note(line, "the list of drives does not have the drive at " + place);
    adapter.disks.push_back(std::move(drive));
    return adapter.disks.size() - 1;
}

void tie_volume(Page &page, Adapter &adapter, Volume &volume, std::multimap<std::string, std::size_t> &by_place) {
    page.where = "c" + adapter.number + "/v" + volume.number;
    for (const auto &[place, line] : volume.places) {
        const auto [first, last] = by_place.equal_range(place);
        if (first != last && std::next(first) != last) {
            page.note(line, "several drives are at " + place);
            continue;
        }
        if (first == last && adapter.disks.size() >= 2 * kMostDrives) continue;
        const std::size_t drive = first != last ? first->second : add_member(page, adapter, place, line);
        if (first == last) by_place.emplace(place, drive);
        if (adapter.disks[drive].role != Role::kMissing) adapter.disks[drive].role = Role::kMember;
        volume.members.push_back(drive);
    }
    volume.members_known = !volume.members.empty();
    if (!volume.members_known) page.note(volume.line, "which drives belong to it is not told");
}

void finish_drive(Page &page, const Adapter &adapter, Drive &drive) {
    // The full one would follow.
    if (drive.serial.empty() && !drive.cut) drive.serial = drive.serial_may_be_cut;
    page.where = drive_name(adapter, drive);
    if (drive.serial.empty() && drive.role != Role::kMissing) page.note(drive.line, "no serial number");
}

void finish(Page &page, Adapter &adapter, bool cut_in_a_volume) {
    std::multimap<std::string, std::size_t> by_place;
    for (std::size_t i = 0; i < adapter.disks.size(); ++i) {
        Drive &drive = adapter.disks[i];
        drive.role = own_role(adapter, drive);
        by_place.emplace(drive.enclosure + ":" + drive.slot, i);
    }
    for (Volume &volume : adapter.volumes) tie_volume(page, adapter, volume, by_place);
    if (cut_in_a_volume) adapter.volumes.back().members_known = false;
    for (Drive &drive : adapter.disks) finish_drive(page, adapter, drive);
    adapter.logical.assign(adapter.volumes.begin(), adapter.volumes.end());
    adapter.drives.assign(adapter.disks.begin(), adapter.disks.end());
    page.where = "c" + adapter.number;
    adapter.drives_told = adapter.section_told;
    if (!adapter.section_told) page.note(0, "the list of drives is not told");
}

std::string spell(const Address &address) {
    if (!address.bus || !address.device || !address.function) return {};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%llx:%llx:%llx:%llx",
                  static_cast<unsigned long long>(address.segment.value_or(0)),
                  static_cast<unsigned long long>(*address.bus), static_cast<unsigned long long>(*address.device),
                  static_cast<unsigned long long>(*address.function));
    return pci_address(text.data());
}

using Arguments = std::vector<std::string>;

void read_adapter(const Runner &run, const std::string &binary, const Controller &known, Survey &survey) {
    const Arguments arguments{known.number, "DISPLAY"};
    const Reply reply = run(arguments);
    Page page(survey, command_of(binary, arguments), reply);
    Adapter adapter;
    adapter.number = known.number;
    Reading reading{page, adapter};
    Line line;
    while (page.next(line)) read_line(reading, line);
    page.where = "c" + known.number;
    if (!adapter.complete && reply.trouble.empty()) page.note(0, "the output has no end, it may be cut off");
    if (!adapter.complete && reading.block == Block::kDrive) adapter.disks.back().cut = true;
    finish(page, adapter, !adapter.complete && reading.block == Block::kVolume);
    if (adapter.model.empty()) adapter.model = known.model;
    // LIST has it in hex, DISPLAY in decimal.
    adapter.pci = known.pci.empty() ? spell(adapter) : known.pci;
    adapter.tool = name_of_binary(binary);
    adapter.maker = "LSI";
    survey.controllers.push_back(std::move(adapter));
}

// --- LIST

// "00h:05h:00h:00h".
std::string list_address(std::string_view word) {
    std::string digits;
    for (const char c : word) {
        if (c != 'h' && c != 'H') digits += c;
    }
    return std::count(digits.begin(), digits.end(), ':') == 3 ? pci_address(digits) : std::string();
}

// "0     SAS2008     1000h    72h   00h:05h:00h:00h      1000h   3020h", however wide the columns are.
std::optional<Controller> read_row(std::string_view row) {
    Controller controller;
    for (std::size_t column = 0; !row.empty() && column < 16; ++column) {
        const std::size_t end = std::min(row.find_first_of(" \t"), row.size());
        const std::string_view word = row.substr(0, end);
        row = trimmed(row.substr(end));
        if (column == 0 && !(whole_number(word) && word.size() < 4)) return std::nullopt;
        if (column == 0) controller.number = std::to_string(*whole_number(word));
        if (column == 1) controller.model = told(word);
        if (controller.pci.empty()) controller.pci = list_address(word);
    }
    if (controller.model.empty()) return std::nullopt;
    return controller;
}

Survey survey_sasircu(const Runner &run, const std::string &binary) {
    Survey survey;
    const Reply reply = run({"LIST"});
    Page page(survey, command_of(binary, {"LIST"}), reply);
    std::vector<Controller> found;
    bool none = false;
    bool complete = false;
    Line line;
    while (page.next(line)) {
        none = none || holds(line.text, "MPTLib2 Error 1");
        complete = complete || holds(line.text, "completed successfully");
        if (found.size() >= kMostControllers) break;
        const auto controller = line.whole ? read_row(line.text) : std::nullopt;
        const bool again = controller && std::any_of(found.begin(), found.end(), [&](const Controller &other) {
                               return other.number == controller->number;
                           });
        if (controller && !again) found.push_back(*controller);
    }
    if (!complete && !none && reply.trouble.empty() && !found.empty()) {
        page.note(0, "the output has no end, it may be cut off");
    }
    if (found.empty() && !none) {
        survey.trouble = reply.trouble.empty() ? "it does not say which controllers there are" : reply.trouble;
    }
    for (const Controller &controller : found) read_adapter(run, binary, controller, survey);
    return survey;
}

} // namespace

const Tool kSas3ircu{
    "sas3ircu", "LSI", {"sas3ircu"}, {"/usr/sbin", "/opt/lsi/sas3ircu"}, {"mpt3sas"}, false, survey_sasircu,
};
const Tool kSas2ircu{
    "sas2ircu", "LSI", {"sas2ircu"}, {"/usr/sbin", "/opt/lsi/sas2ircu"}, {"mpt2sas", "mpt3sas"}, false, survey_sasircu,
};

} // namespace inventory::raid
