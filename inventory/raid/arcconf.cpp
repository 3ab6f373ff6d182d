// arcconf: aacraid and smartpqi controllers. Its words and layout changed with nearly every version.
#include "inventory/raid/arcconf.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <array>
#include <map>

namespace inventory::raid {
namespace {

using arcconf::Config;
using arcconf::Drive;
using arcconf::is_no_serial;
using arcconf::Place;
using arcconf::Volume;

using Arguments = std::vector<std::string>;

// --- which controllers there are

// What LIST and GETVERSION tell of a controller that GETCONFIG may not.
struct Listed {
    std::string state;
    std::string model;
    std::string serial;
    std::string firmware;
};

struct Listing {
    std::map<std::uint64_t, Listed> controllers;
    std::optional<std::uint64_t> count;
};

// The names of LIST's columns; its legend line may name others.
std::vector<std::string> split_columns(std::string_view text) {
    std::vector<std::string> columns;
    while (columns.size() < 32) {
        const std::size_t comma = std::min(text.find(','), text.size());
        columns.push_back(told(text.substr(0, comma)));
        if (comma == text.size()) break;
        text.remove_prefix(comma + 1);
    }
    return columns;
}

struct Column {
    std::string_view name;
    std::string Listed::*member;
};
constexpr std::array<Column, 3> kColumns{
    {{"status", &Listed::state}, {"name", &Listed::model}, {"serialnumber", &Listed::serial}}};

void read_columns(const std::vector<std::string> &legend, const Line &line, Listed &listed, Page &page) {
    std::string_view value = line.value;
    if (value.starts_with(':')) value.remove_prefix(1);
    const std::vector<std::string> columns = split_columns(value);
    if (columns.size() != legend.size()) return page.doubt(line, "not as many columns as the legend names");
    for (const Column &column : kColumns) {
        const auto place = std::find_if(legend.begin(), legend.end(),
                                        [&](const std::string &name) { return same_word(name, column.name); });
        if (place == legend.end()) continue;
        listed.*column.member = columns[static_cast<std::size_t>(place - legend.begin())];
    }
    if (is_no_serial(listed.serial)) listed.serial.clear();
}

void read_list(Page &page, Listing &listing) {
    std::vector<std::string> legend = split_columns("Status, Slot, Mode, Name, SerialNumber, WWN");
    Listed *current = nullptr;
    Line line;
    while (page.next(line)) {
        if (!line.whole) continue;
        if (key_fits("controllers found", line.key)) listing.count = whole_number(line.value);
        if (key_fits("controller id", line.key)) legend = split_columns(line.value);
        if (current && key_fits("firmware", line.key)) current->firmware = told(line.value);
        // "Controller #1" in GETVERSION, "Controller 1:   : Optimal, ..." in LIST.
        const bool has_columns = !line.is_bare() && !line.value.empty();
        const auto heading = number_after(line.text, "controller #");
        const auto number = heading ? heading : number_after(line.key, "controller");
        if (!number || listing.controllers.size() >= kMostControllers) continue;
        current = &listing.controllers[*whole_number(*number)];
        if (has_columns && !heading) read_columns(legend, line, *current, page);
    }
}

// --- one controller

struct Run {
    const Runner &run;
    std::string binary;
    Survey &survey;

    [[nodiscard]] Reply operator()(const Arguments &arguments) const { return run(arguments); }
};

Listing list_controllers(const Run &run) {
    Listing listing;
    // LIST is unknown to old versions, which print their usage then; GETVERSION is known to all.
    const std::array<Arguments, 3> commands{{{"LIST"}, {"GETVERSION"}, {"GETCONFIG", "1", "AL"}}};
    for (const Arguments &command : commands) {
        const Reply reply = run(command);
        Survey aside;
        Page page(aside, command_of(run.binary, command), reply);
        read_list(page, listing);
        if (!reply.trouble.empty() || !listing.controllers.empty()) {
            for (Doubt &doubt : aside.doubts) run.survey.doubts.push_back(std::move(doubt));
        }
        if (!listing.controllers.empty() || listing.count == 0U) break;
    }
    const std::uint64_t count = std::min<std::uint64_t>(listing.count.value_or(0), kMostControllers);
    for (std::uint64_t i = 1; listing.controllers.size() < count; ++i) listing.controllers.try_emplace(i);
    return listing;
}

// Which of the ways to name a place are slots here.
struct Slots {
    bool connectors = false; // aacraid; on smartpqi drives have slots, and connectors are something else
    bool channels = false;   // SCSI: no drive has a location
};

// The place in the words of the model. Drives that no enclosure holds are told apart by connector or channel.
void place_drive(Drive &drive, const Slots &slots) {
    const auto is = [](const Place &place, Place::Kind kind) { return place.kind == kind; };
    const Place &channel = drive.channel_place;
    const Place &location = drive.location;
    if (!is(channel, Place::Kind::kNone)) drive.channel = channel.first + "," + channel.second;
    if (is(location, Place::Kind::kEnclosure)) {
        drive.enclosure = location.first;
        drive.slot = location.second;
    } else if (is(location, Place::Kind::kConnector) && (slots.connectors || !drive.only_in_a_segment)) {
        drive.slot = location.first + ":" + location.second;
    } else if (slots.channels && !drive.channel.empty()) {
        drive.slot = channel.first + ":" + channel.second;
    }
}

bool is_disk(const Drive &drive) {
    if (drive.what != Drive::What::kNotTold) return drive.what == Drive::What::kDisk;
    return !drive.state.empty() || !drive.serial.empty() || drive.bytes || drive.size;
}

// A reply with arrays, PCI address or volume ids is of a smartpqi controller.
bool looks_like_aacraid(const Config &config) {
    if (!config.controller.pci.empty() || same_word(config.controller.driver, "smartpqi")) return false;
    return std::none_of(config.volumes.begin(), config.volumes.end(),
                        [](const Volume &volume) { return volume.is_array || !volume.naa.empty(); });
}

std::vector<std::size_t> moved(const std::vector<std::size_t> &places, const std::vector<std::size_t> &to) {
    std::vector<std::size_t> result;
    std::vector<bool> seen(to.size(), false);
    for (const std::size_t place : places) {
        const bool kept = to[place] != SIZE_MAX && !seen[place];
        if (kept) result.push_back(to[place]);
        seen[place] = true;
    }
    return result;
}

void finish_drive(Page &page, const Controller &controller, Drive &drive, const Slots &slots) {
    place_drive(drive, slots);
    if (!drive.bytes) drive.bytes = drive.size;
    if (drive.is_gone()) drive.vendor.clear();
    page.where = drive_name(controller, drive);
    if (drive.serial.empty() && drive.role != Role::kMissing) page.note(drive.line, "no serial number");
}

void finish_volume(Page &page, const Controller &controller, Volume &volume, const std::vector<std::size_t> &to) {
    volume.members = moved(volume.members, to);
    volume.spares = moved(volume.spares, to);
    page.where = "c" + controller.number + "/v" + volume.number;
    if (!volume.members_known) page.note(volume.line, "which drives belong to it is not told");
}

void finish(Page &page, Config &config) {
    Controller &controller = config.controller;
    std::vector<std::size_t> to(config.drives.size(), SIZE_MAX);
    const bool is_aacraid = looks_like_aacraid(config);
    const bool has_locations = std::any_of(config.drives.begin(), config.drives.end(), [](const Drive &drive) {
        return drive.location.kind != Place::Kind::kNone;
    });
    const Slots slots{is_aacraid, config.complete && !has_locations};
    for (std::size_t i = 0; i < config.drives.size(); ++i) {
        if (!is_disk(config.drives[i])) continue;
        finish_drive(page, controller, config.drives[i], slots);
        to[i] = controller.drives.size();
        controller.drives.push_back(config.drives[i]);
    }
    for (Volume &volume : config.volumes) {
        if (volume.is_array) continue;
        finish_volume(page, controller, volume, to);
        const auto number = whole_number(volume.number);
        // aacraid shows its logical drive n to the kernel as host:0:n:0.
        if (is_aacraid && !volume.is_cache && number) {
            volume.scsi_channel = 0;
            volume.scsi_target = static_cast<unsigned>(*number);
        }
        controller.logical.push_back(volume);
    }
    page.where = "c" + controller.number;
    controller.drives_told = config.drives_told;
    if (!config.drives_told) page.note(0, "the list of drives is not told");
}

// Sections that the whole configuration lacks are asked for alone: some controllers refuse the whole.
constexpr std::array<std::pair<const char *, bool Config::*>, 3> kSections{
    {{"AD", &Config::controller_told}, {"LD", &Config::volumes_told}, {"PD", &Config::drives_told}}};

void read_missing_sections(const Run &run, Config &config) {
    const bool complete = config.complete;
    const bool cut = config.cut_in_a_volume;
    for (const auto &[section, told] : kSections) {
        if (config.*told) continue;
        const Arguments arguments{"GETCONFIG", config.controller.number, section};
        const Reply reply = run(arguments);
        Page page(run.survey, command_of(run.binary, arguments), reply);
        arcconf::read_config(page, config);
    }
    config.complete = complete;
    config.cut_in_a_volume = cut || config.cut_in_a_volume;
}

void fill(std::string &text, const std::string &other) {
    if (text.empty()) text = other;
}

void read_controller(const Run &run, const std::string &number, const Listed &listed) {
    Config config;
    Controller &controller = config.controller;
    controller.tool = name_of_binary(run.binary);
    controller.maker = "Adaptec";
    controller.number = number;
    const Arguments whole{"GETCONFIG", number, "AL"};
    const Reply reply = run(whole);
    Page page(run.survey, command_of(run.binary, whole), reply);
    arcconf::read_config(page, config);
    page.where = "c" + number;
    if (reply.trouble.empty()) {
        if (!config.complete) page.note(0, "the output has no end, it may be cut off");
        read_missing_sections(run, config);
    }
    arcconf::tie_drives(page, config);
    finish(page, config);
    fill(controller.state, listed.state);
    fill(controller.model, listed.model);
    fill(controller.serial, listed.serial);
    fill(controller.firmware, listed.firmware);
    run.survey.controllers.push_back(std::move(controller));
}

Survey survey_arcconf(const Runner &runner, const std::string &binary) {
    Survey survey;
    const Run run{runner, binary, survey};
    const Listing listing = list_controllers(run);
    if (listing.controllers.empty() && !listing.count) {
        survey.trouble = "it does not say which controllers there are";
    }
    for (const auto &[number, listed] : listing.controllers) read_controller(run, std::to_string(number), listed);
    return survey;
}

} // namespace

const Tool kArcconf{
    "arcconf",
    "Adaptec",
    {"arcconf", "arcconf64"},
    {"/usr/Arcconf", "/usr/StorMan", "/opt/adaptec", "/usr/sbin", "/sbin", "/usr/local/bin"},
    {"aacraid", "smartpqi"},
    false,
    survey_arcconf,
};

} // namespace inventory::raid
