#include "raid/adaptec.h"

#include "raid/model.h"
#include "raid/tool.h"

#include <cstdlib>
#include <utility>

using namespace torvane;

namespace {

// arcconf's keys with their padding: the colon is the 43rd character for logical drives, the 37th for physical
// ones, which is what tells " Size" of the one from " Total Size" of the other. Macros, because each key is a
// text to look for and the beginning of a scan format.
#define KEY_NAME " Logical device name                      :"
#define KEY_SIZE " Size                                     :"
#define KEY_LOCATION " Reported Location                  :"
#define KEY_VENDOR " Vendor                             :"
#define KEY_MODEL " Model                              :"
#define KEY_SERIAL " Serial number                      :"
#define KEY_TOTAL_SIZE " Total Size                         :"
static_assert(sizeof KEY_NAME == 44 && sizeof KEY_SIZE == 44);
static_assert(sizeof KEY_LOCATION == 38 && sizeof KEY_VENDOR == 38 && sizeof KEY_MODEL == 38);
static_assert(sizeof KEY_SERIAL == 38 && sizeof KEY_TOTAL_SIZE == 38);

// Every function of every device on one PCI segment (256 buses of 32 devices of 8 functions): no machine holds
// more controllers, whatever a tool prints.
constexpr uint64_t kMostControllers = 65'536;

// Where the current drive is. Not a pointer: drives found earlier move when their array grows.
struct DrivePlace {
    bool known = false;
    bool in_group = false;
    uint32_t group = 0; // index, when in a group
    uint32_t drive = 0; // index
};

struct ConfigState {
    RaidController *controller;
    RaidDriveGroup *group = nullptr; // of the last "Logical device number" line
    DrivePlace place = {};
    bool is_hard_drive = false;
    int32_t device_number = -1;
    char vendor[112] = ""; // kept for drives whose section names none
};

struct Location {
    uint32_t first = 0;  // enclosure or connector
    uint32_t second = 0; // slot or device
};

RaidDrive *current_drive(const ConfigState &state) noexcept {
    const DrivePlace &place = state.place;
    if (!place.known) return nullptr;
    const RaidController &controller = *state.controller;
    return (place.in_group ? controller.groups[place.group].drives : controller.drives) + place.drive;
}

int start_group(ConfigState &state, const char *line) noexcept {
    int32_t number = 0;
    state.group = nullptr;
    if (std::sscanf(line, "Logical device number %d", &number) != 1) return -1;
    state.group = add_group(*state.controller, number);
    return state.group == nullptr ? -1 : 0;
}

int read_group_name(ConfigState &state, const char *line) noexcept {
    if (state.group == nullptr) return -1;
    char *word = nullptr;
    const int fields = std::sscanf(line, KEY_NAME " %ms", &word);
    CString name(word);
    if (fields != 1) return -1;
    replace(state.group->name, std::move(name));
    return 0;
}

// Kept: the text ends before a decimal point, so that a size of "1.5 GB" is read as 1 byte.
int read_group_size(ConfigState &state, const char *line) noexcept {
    char text[112];
    if (state.group == nullptr || std::sscanf(line, KEY_SIZE " %111[0-9A-Za-z ]", text) != 1) return -1;
    state.group->size = get_bytes_from_str(text);
    return 0;
}

bool scan_segment(const char *line, Location &location, char (&serial)[112]) noexcept {
    return std::sscanf(line, " Segment %*d : %*s (Controller:%*d,Enclosure:%u,Slot:%u) %111s", &location.first,
                       &location.second, serial) == 3 ||
           std::sscanf(line, " Segment %*d : %*s (Controller:%*d,Connector:%u,Device:%u) %111s", &location.first,
                       &location.second, serial) == 3;
}

// A member drive begins here, with its serial number and place; its own section adds the rest.
int add_segment(ConfigState &state, const char *line) noexcept {
    Location location;
    char text[112];
    if (contains(line, "Missing") || !scan_segment(line, location, text)) return 0;
    if (state.group == nullptr) return -1;
    CString serial(duplicate_str(text));
    CString place = format_raid_location(location.first, location.second);
    if (!serial || !place) return -1;
    RaidDrive *drive = add_raid_drive(state.group->drives, state.group->drive_count, *state.controller);
    if (drive == nullptr) return -1;
    drive->serial = serial.release();
    drive->location = place.release();
    return 0;
}

int read_device_number(ConfigState &state, const char *line) noexcept {
    return std::sscanf(line, " Device #%d", &state.device_number) == 1 ? 0 : -1;
}

int read_device_kind(ConfigState &state, const char *line) noexcept {
    state.is_hard_drive = contains(line, " Device is a Hard drive");
    return 0;
}

bool scan_location(const char *line, Location &location) noexcept {
    return std::sscanf(line, KEY_LOCATION " Enclosure %u, Slot %u", &location.first, &location.second) == 2 ||
           std::sscanf(line, KEY_LOCATION " Connector %u, Device %u", &location.first, &location.second) == 2;
}

bool is_at(const RaidDrive &drive, const char *location) noexcept {
    return drive.location != nullptr && equal(drive.location, location);
}

DrivePlace find_in_groups(const RaidController &controller, const char *location) noexcept {
    for (uint32_t g = 0; g < controller.group_count; ++g) {
        const RaidDriveGroup &group = controller.groups[g];
        for (uint32_t d = 0; d < group.drive_count; ++d) {
            if (is_at(group.drives[d], location)) return {true, true, g, d};
        }
    }
    return {};
}

// Chooses the drive that the rest of the section describes: a member by its place, else a new drive.
int select_drive(ConfigState &state, const char *location) noexcept {
    RaidController &controller = *state.controller;
    state.place = find_in_groups(controller, location);
    if (state.place.known) {
        current_drive(state)->group = &controller.groups[state.place.group];
        return 0;
    }
    if (add_raid_drive(controller.drives, controller.drive_count, controller) == nullptr) return -1;
    state.place = {true, false, 0, controller.drive_count - 1};
    return 0;
}

int read_location(ConfigState &state, const char *line) noexcept {
    if (!state.is_hard_drive) return 0;
    Location location;
    if (!scan_location(line, location)) return -1;
    state.place = {};
    CString text = format_raid_location(location.first, location.second);
    if (!text || select_drive(state, text.get()) != 0) return -1;
    RaidDrive *drive = current_drive(state);
    drive->number = static_cast<uint32_t>(state.device_number);
    if (drive->location == nullptr) replace(drive->location, std::move(text));
    return 0;
}

int read_vendor(ConfigState &state, const char *line) noexcept {
    if (!state.is_hard_drive) return 0;
    return std::sscanf(line, KEY_VENDOR " %111s", state.vendor) == 1 ? 0 : -1;
}

int read_model(ConfigState &state, const char *line) noexcept {
    if (!state.is_hard_drive) return 0;
    char text[112];
    RaidDrive *drive = current_drive(state);
    if (drive == nullptr || std::sscanf(line, KEY_MODEL " %111s", text) != 1) return -1;
    CString model = make_text("%s %s", state.vendor, text);
    if (!model) return -1;
    replace(drive->model, std::move(model));
    return 0;
}

int read_serial(ConfigState &state, const char *line) noexcept {
    if (!state.is_hard_drive) return 0;
    char text[112];
    RaidDrive *drive = current_drive(state);
    if (drive == nullptr || std::sscanf(line, KEY_SERIAL " %111s", text) != 1) return -1;
    if (drive->serial != nullptr) return equal(drive->serial, text) ? 0 : -1;
    drive->serial = duplicate_str(text);
    return drive->serial == nullptr ? -1 : 0;
}

int read_drive_size(ConfigState &state, const char *line) noexcept {
    if (!state.is_hard_drive) return 0;
    char text[112];
    RaidDrive *drive = current_drive(state);
    if (drive == nullptr || std::sscanf(line, KEY_TOTAL_SIZE " %111[0-9A-Za-z ]", text) != 1) return -1;
    drive->size = get_bytes_from_str(text);
    return 0;
}

constexpr LineRule<ConfigState> kConfigRules[] = {
    {"Logical device number", start_group},
    {KEY_NAME, read_group_name},
    {KEY_SIZE, read_group_size},
    {" Segment ", add_segment},
    {" Device #", read_device_number},
    {" Device is a", read_device_kind},
    {KEY_LOCATION, read_location},
    {KEY_VENDOR, read_vendor},
    {KEY_MODEL, read_model},
    {KEY_SERIAL, read_serial},
    {KEY_TOTAL_SIZE, read_drive_size},
};

struct VersionState {
    RaidController **list = nullptr;
    uint32_t *count = nullptr;
};

// The numbering starts at 1 again for every such line.
int add_found(VersionState &state, const char *line) noexcept {
    uint32_t found = 0;
    if (std::sscanf(line, "Controllers found: %u", &found) != 1) return -1;
    if (found == 0) return 0;
    if (uint64_t{*state.count} + found > kMostControllers) return -1;
    return add_controllers(state.list, state.count, found, RAID_TYPE_ADAPTEC, 1) == nullptr ? -1 : 0;
}

constexpr LineRule<VersionState> kVersionRules[] = {{"Controllers found:", add_found}};

constexpr Tool kGetVersion = {"arcconf getversion", "failed to read number of raid controllers with",
                              "failed to read number of raid controllers", false};

} // namespace

namespace torvane {

int parse_adaptec_version(FILE *stream, RaidController **list, uint32_t *count) noexcept {
    VersionState state;
    state.list = list;
    state.count = count;
    bool complete = false;
    return parse_lines(stream, kVersionRules, state, complete);
}

int parse_adaptec_config(FILE *stream, RaidController *controller) noexcept {
    ConfigState state{controller};
    bool complete = false;
    return parse_lines(stream, kConfigRules, state, complete);
}

int parse_adaptec_controller(RaidController *controller) noexcept {
    char command[100];
    (void)std::snprintf(command, sizeof command - 1, "arcconf getconfig %d AL",
                        static_cast<int32_t>(controller->number));
    const Tool tool = {command, "failed to read controller information with", "failed to read controller information",
                       false};
    return run_tool(tool, [controller](FILE *output) noexcept { return parse_adaptec_config(output, controller); });
}

} // namespace torvane

const RaidControllerOps adaptecOperations = {supports_adaptec, get_raids_adaptec, RAID_TYPE_ADAPTEC, "Adaptec"};

int supports_adaptec(void) noexcept { return std::system("which arcconf &> /dev/null") == 0 ? 1 : 0; }

int get_raids_adaptec(RaidController **list, uint32_t *count) noexcept {
    if (list == nullptr || count == nullptr) return -1;
    const uint32_t before = *count;
    const auto read = [&](FILE *output) noexcept { return parse_adaptec_version(output, list, count); };
    if (run_tool(kGetVersion, read) != 0) return -1;
    for (uint32_t i = before; i < *count; ++i) {
        if (parse_adaptec_controller(*list + i) != 0) return -1;
    }
    return 0;
}
