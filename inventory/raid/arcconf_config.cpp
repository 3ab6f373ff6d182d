// GETCONFIG. Headings decide where a key belongs: rules, columns and indentation differ between versions and get lost
// on the way through mails and consoles.
#include "inventory/raid/arcconf.h"

#include <algorithm>
#include <array>

namespace inventory::raid::arcconf {
namespace {

enum class Section : std::uint8_t { kTop, kController, kVolume, kDrive, kOther };

// What stands below a heading within a section.
enum class Part : std::uint8_t { kOwn, kCounters, kForeign };

struct Reading {
    Page &page;
    Config &config;
    Section section = Section::kTop;
    Part part = Part::kOwn;
    bool in_thing = false; // a logical drive or drive has begun in this section
};

// --- controller

void read_pci(Controller &controller, const Line &line, Page &page) {
    if (is_nothing(line.value)) return;
    controller.pci = pci_address(line.value);
    if (controller.pci.empty()) page.doubt(line, "\"" + told(line.value) + "\" is no PCI address");
}

void read_controller_serial(Controller &controller, const Line &line, Page &) {
    if (controller.serial.empty() && !is_no_serial(line.value)) controller.serial = told(line.value);
}

constexpr std::array<KeyRule<Controller>, 7> kControllerRules{{
    {"controller status", read_text<&Controller::state>},
    {"controller model", read_text<&Controller::model>},
    {"controller serial number", read_controller_serial},
    {"firmware", read_text<&Controller::firmware>},
    {"driver name", read_text<&Controller::driver>},
    {"temperature", read_celsius<&Controller::celsius>},
    {"pci address*", read_pci},
}};

// --- logical drives, caches, arrays

void read_spare(Volume &volume, const Line &line, Page &page) {
    if (is_nothing(line.value) || volume.spare_lines.size() >= kMostDrives) return;
    Segment spare;
    spare.line = line.number;
    spare.place = place_of(line.value);
    if (spare.place.kind == Place::Kind::kNone) page.doubt(line, "\"" + told(line.value) + "\" names no spare");
    volume.spare_lines.push_back(spare);
}

// "0,0 0,1": all members in one line.
void read_members(Volume &volume, const Line &line, Page &page) {
    std::string_view rest = line.value;
    while (!rest.empty() && volume.segments.size() < kMostDrives) {
        const std::size_t end = std::min(rest.find_first_of(" \t"), rest.size());
        Segment segment;
        segment.line = line.number;
        std::string_view pair = rest.substr(0, end);
        if (pair.starts_with('(') && pair.ends_with(')')) pair = pair.substr(1, pair.size() - 2);
        segment.place = place_of(pair);
        rest = trimmed(rest.substr(end));
        if (segment.place.kind == Place::Kind::kNone) {
            page.doubt(line, "a member that names no channel and device");
        } else {
            volume.segments.push_back(segment);
        }
    }
}

constexpr std::array<KeyRule<Volume>, 15> kVolumeRules{{
    {"logical device name", read_text<&Volume::label>},
    {"logical drive name", read_text<&Volume::label>},
    {"maxcache device name", read_text<&Volume::label>},
    {"maxcache logical device name", read_text<&Volume::label>},
    {"raid level", read_level<&Volume::level>},
    {"status of *", read_text<&Volume::state>},
    {"size", read_size<&Volume::bytes, 1024>},
    {"array", read_text<&Volume::array>},
    {"disk name", read_device<&Volume::kernel_device>},
    {"volume unique identifier", read_wwn<&Volume::naa>},
    {"unique identifier", read_text<&Volume::serial>},
    {"global hot-spare*", read_spare},
    {"dedicated hot-spare*", read_spare},
    {"drive(s)*", read_members},
    {"stripe order*", read_members},
}};

// "Segment 0", "Group 1, Segment 0", "Device 12"; the legend "Device ID" has no number.
bool is_segment_key(std::string_view key) {
    const std::size_t comma = key.rfind(',');
    const std::string_view last = comma == std::string_view::npos ? key : trimmed(key.substr(comma + 1));
    return number_after(last, "segment").has_value() || number_after(last, "device").has_value();
}

void read_segment_line(Volume &volume, const Line &line, Page &page) {
    Segment segment;
    segment.line = line.number;
    segment.name = told(line.key);
    if (!line.whole) {
        page.doubt(line, "the output ends in the middle of a line");
    } else if (is_nothing(line.value) || !read_segment(line.value, segment)) {
        page.doubt(line, segment.name + ": \"" + told(line.value) + "\" names no drive");
    } else if (volume.segments.size() < kMostDrives) {
        volume.segments.push_back(std::move(segment));
    }
}

// --- drives

// More arrays or logical drives than one drive serves.
constexpr std::size_t kMostLists = 256;

void read_channel(Drive &drive, const Line &line, Page &page) {
    if (drive.channel_place.kind != Place::Kind::kNone || is_nothing(line.value)) return;
    drive.channel_place = place_of(line.value);
    if (drive.channel_place.kind == Place::Kind::kNone) page.doubt(line, "no channel and device");
}

void read_location(Drive &drive, const Line &line, Page &page) {
    if (drive.location.kind != Place::Kind::kNone || is_nothing(line.value)) return;
    drive.location = place_of(line.value);
    if (drive.location.kind == Place::Kind::kNone) page.doubt(line, "\"" + told(line.value) + "\" is no location");
}

void read_enclosure_and_slot(Drive &drive, const Line &line, Page &page) {
    const Place pair = place_of(line.value);
    if (drive.location.kind != Place::Kind::kNone || is_nothing(line.value)) return;
    if (pair.kind != Place::Kind::kChannel) return page.doubt(line, "no enclosure and slot");
    drive.location = {Place::Kind::kEnclosure, pair.first, pair.second, {}};
}

void read_ssd(Drive &drive, const Line &line, Page &) {
    if (same_word(line.value, "yes")) drive.media = "ssd";
    if (same_word(line.value, "no")) drive.media = "hdd";
}

void read_interface(Drive &drive, const Line &line, Page &) {
    if (drive.interface.empty()) drive.interface = interface_of(line.value);
}

void read_warnings(Drive &drive, const Line &line, Page &page) {
    drive.predictive_failures = count_of(line, page);
    drive.predictive_failure = drive.predictive_failure || drive.predictive_failures.value_or(0) > 0;
}

void read_predicted(Drive &drive, const Line &line, Page &) {
    drive.predictive_failure = drive.predictive_failure || same_word(line.value, "yes");
}

// "0", or several.
void read_arrays(Drive &drive, const Line &line, Page &) {
    std::string_view rest = line.value;
    while (!rest.empty() && drive.arrays.size() < kMostLists) {
        const std::size_t end = std::min(rest.find_first_of(", \t"), rest.size());
        if (whole_number(rest.substr(0, end))) drive.arrays.emplace_back(rest.substr(0, end));
        rest = trimmed(rest.substr(std::min(end + 1, rest.size())));
    }
}

// "logical device 0", or several numbers.
void read_spare_for(Drive &drive, const Line &line, Page &) {
    std::string_view rest = line.value;
    while (drive.spare_for.size() < kMostLists) {
        rest.remove_prefix(std::min(rest.find_first_of("0123456789"), rest.size()));
        if (rest.empty()) break;
        const std::size_t end = std::min(rest.find_first_not_of("0123456789"), rest.size());
        drive.spare_for.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end);
    }
}

constexpr std::array<KeyRule<Drive>, 22> kDriveRules{{
    {"state", read_text<&Drive::state>},
    {"reported channel,device*", read_channel},
    {"reported location", read_location},
    {"reported enclosure,slot*", read_enclosure_and_slot},
    {"vendor", read_text<&Drive::vendor>},
    {"model", read_text<&Drive::model>},
    {"firmware", read_text<&Drive::firmware>},
    {"serial number", read_text<&Drive::serial>},
    {"world-wide name", read_wwn<&Drive::wwn>},
    {"total size", read_size<&Drive::bytes, 1024>},
    {"size", read_size<&Drive::size, 1024>},
    {"block size", read_size<&Drive::sector_bytes, 1024>},
    {"ssd", read_ssd},
    {"temperature", read_celsius<&Drive::celsius>},
    {"current temperature", read_celsius<&Drive::celsius>},
    {"transfer speed", read_interface},
    {"drive configuration type", read_text<&Drive::configuration>},
    {"array", read_arrays},
    {"disk name", read_device<&Drive::kernel_device>},
    {"dedicated spare for", read_spare_for},
    {"s.m.a.r.t. warnings", read_warnings},
    {"pfa", read_predicted},
}};
constexpr std::array<KeyRule<Drive>, 2> kCounterRules{{
    {"medium error count", read_count<&Drive::media_errors>},
    {"hard read errors", read_count<&Drive::media_errors>},
}};

// --- headings

void open_section(Reading &reading, Section section) {
    reading.section = section;
    reading.part = Part::kOwn;
    reading.in_thing = false;
    reading.page.where.clear();
    if (section == Section::kController) reading.config.controller_told = true;
    if (section == Section::kDrive) reading.config.drives_told = true;
}

struct Heading {
    std::string_view text;
    Section section;
};
constexpr std::array<Heading, 6> kHeadings{{
    {"controller information", Section::kController},
    {"array information", Section::kVolume},
    {"logical drive information", Section::kVolume},
    {"logical device information", Section::kVolume},
    {"physical device information", Section::kDrive},
    {"connector information", Section::kOther},
}};

bool read_heading(Reading &reading, const Line &line) {
    if (begins_with(line.text, "maxcache") && line.text.size() > 11 &&
        same_word(line.text.substr(line.text.size() - 11), "information")) {
        open_section(reading, Section::kVolume);
        return true;
    }
    const auto *const heading = std::find_if(kHeadings.begin(), kHeadings.end(),
                                             [&](const Heading &known) { return key_fits(known.text, line.text); });
    if (heading == kHeadings.end()) return false;
    open_section(reading, heading->section);
    if (begins_with(heading->text, "logical")) reading.config.volumes_told = true;
    return true;
}

void name_thing(Reading &reading, const Line &line) {
    const std::string_view text = line.text.ends_with(':') ? line.text.substr(0, line.text.size() - 1) : line.text;
    reading.page.where = told(text);
    reading.part = Part::kOwn;
    reading.in_thing = true;
}

void open_volume(Reading &reading, const Line &line, const std::string &number, bool is_cache, bool is_array) {
    reading.section = Section::kOther;
    if (reading.config.volumes.size() >= kMostLogicalDrives) return reading.page.doubt(line, "too many of them");
    Volume volume;
    volume.number = number;
    volume.line = line.number;
    volume.is_cache = volume.hidden = is_cache;
    volume.is_array = is_array;
    reading.config.volumes.push_back(std::move(volume));
    reading.section = Section::kVolume;
    name_thing(reading, line);
}

void open_logical(Reading &reading, const Line &line, const std::string &number) {
    reading.config.volumes_told = true;
    open_volume(reading, line, number, false, false);
}
void open_cache(Reading &reading, const Line &line, const std::string &number) {
    open_volume(reading, line, number, true, false);
}
void open_array(Reading &reading, const Line &line, const std::string &number) {
    open_volume(reading, line, number, false, true);
}

void open_drive(Reading &reading, const Line &line, const std::string &number) {
    reading.section = Section::kOther;
    reading.config.drives_told = true;
    if (reading.config.drives.size() >= kMostDrives) return reading.page.doubt(line, "too many of them");
    Drive drive;
    drive.line = line.number;
    drive.device_id = number;
    reading.config.drives.push_back(std::move(drive));
    reading.section = Section::kDrive;
    name_thing(reading, line);
}

// What follows speaks of no drive until the next one begins.
void open_channel(Reading &reading, const Line &, const std::string &) { open_section(reading, Section::kDrive); }

struct Opening {
    std::string_view beginning;
    void (*open)(Reading &reading, const Line &line, const std::string &number);
};
constexpr std::array<Opening, 8> kOpenings{{
    {"logical device number", open_logical},
    {"logical drive number", open_logical},
    {"maxcache device number", open_cache},
    {"maxcache logical device number", open_cache},
    {"maxcache array number", open_array},
    {"array number", open_array},
    {"device #", open_drive},
    {"channel #", open_channel},
}};

bool open_thing(Reading &reading, const Line &line) {
    for (const Opening &opening : kOpenings) {
        const std::optional<std::string> number = number_after(line.text, opening.beginning);
        const bool unreadable = !number && begins_with(line.text, opening.beginning) && line.value.empty();
        if (!number && !unreadable) continue;
        if (number) opening.open(reading, line, *number);
        if (unreadable) reading.page.doubt(line, "\"" + told(line.text) + "\" has no number");
        reading.in_thing = reading.in_thing && number.has_value();
        return true;
    }
    return false;
}

// A heading within a section, known or not: its keys are not those of the thing around it.
void open_part(Reading &reading, const Line &line) {
    const bool looks_so = holds(line.text, " information") || holds(line.text, " counters");
    const bool between_rules = line.under_rule && line.above_rule && !begins_with(line.text, "no ");
    if (!looks_so && !between_rules) return;
    const bool own =
        (reading.section == Section::kController && begins_with(line.text, "controller version")) ||
        (reading.section == Section::kVolume && (holds(line.text, "segment") || holds(line.text, "physical device")));
    reading.part = own ? Part::kOwn : holds(line.text, "error counters") ? Part::kCounters : Part::kForeign;
}

void read_kind(Reading &reading, const Line &line) {
    Drive &drive = reading.config.drives.back();
    const bool is_disk =
        key_fits("device is a hard d*", line.text) || holds(line.text, "solid state") || holds(line.text, " ssd");
    drive.what = is_disk ? Drive::What::kDisk : Drive::What::kOther;
}

void read_bare(Reading &reading, const Line &line) {
    if (begins_with(line.text, "command completed") || begins_with(line.text, "command aborted")) {
        reading.config.complete = true;
    } else if (!line.whole) {
        reading.page.doubt(line, "the output ends in the middle of a line");
    } else if (reading.section == Section::kDrive && reading.in_thing && begins_with(line.text, "device is a")) {
        read_kind(reading, line);
    } else if (!read_heading(reading, line)) {
        open_part(reading, line);
    }
}

void read_volume_key(Reading &reading, const Line &line) {
    Volume &volume = reading.config.volumes.back();
    if (is_segment_key(line.key)) return read_segment_line(volume, line, reading.page);
    if (reading.part != Part::kOwn) return;
    read_by<Volume>(kVolumeRules, volume, line, reading.page);
}

void read_drive_key(Reading &reading, const Line &line) {
    if (reading.part == Part::kForeign) return;
    Drive &drive = reading.config.drives.back();
    if (drive.what == Drive::What::kOther) return;
    if (read_by<Drive>(kCounterRules, drive, line, reading.page)) return;
    if (reading.part == Part::kOwn) read_by<Drive>(kDriveRules, drive, line, reading.page);
}

void read_key(Reading &reading, const Line &line) {
    switch (reading.section) {
    case Section::kTop: // an arcconf too old for the controller prints its state and no heading
    case Section::kController:
        if (reading.part == Part::kOwn) {
            read_by<Controller>(kControllerRules, reading.config.controller, line, reading.page);
        }
        break;
    case Section::kVolume:
        if (reading.in_thing) read_volume_key(reading, line);
        break;
    case Section::kDrive:
        if (reading.in_thing) read_drive_key(reading, line);
        break;
    case Section::kOther: break;
    }
}

} // namespace

void read_config(Page &page, Config &config) {
    Reading reading{page, config};
    Line line;
    while (page.next(line)) {
        if (line.whole && open_thing(reading, line)) continue;
        if (line.is_bare()) {
            read_bare(reading, line);
        } else {
            read_key(reading, line);
        }
    }
    page.where.clear();
    config.cut_in_a_volume = !config.complete && reading.section == Section::kVolume;
}

} // namespace inventory::raid::arcconf
