// The physical drives behind LSI adapters.
#include "raid/lsi.h"

#include "raid/model.h"

#include <utility>

using namespace torvane;

namespace {

struct PhysicalDriveState {
    RaidController *first;
    uint32_t count;
    RaidController *controller = nullptr;
    RaidDrive *drive = nullptr;
    uint32_t slot = 0;
};

int select_adapter(PhysicalDriveState &state, const char *line) noexcept {
    int32_t number = -1;
    if (std::sscanf(line, "Adapter #%d", &number) != 1) return -1;
    if (number < 0 || static_cast<uint32_t>(number) >= state.count) return -1;
    state.controller = state.first + number;
    return 0;
}

int start_drive(PhysicalDriveState &state, const char * /*line*/) noexcept {
    state.slot = 0;
    state.drive = nullptr;
    return 0;
}

// A drive of a disk group is made by the line that names the group.
int read_disk_group(PhysicalDriveState &state, const char *line) noexcept {
    int32_t number = -1;
    if (std::sscanf(line, "%*[^:]: DiskGroup: %d, Span: %*d, Arm: %*d", &number) != 1) return 0;
    if (state.controller == nullptr || number < 0) return -1;
    if (static_cast<uint32_t>(number) >= state.controller->group_count) return -1;
    RaidDriveGroup &group = state.controller->groups[number];
    state.drive = add_raid_drive(group.drives, group.drive_count, *state.controller);
    if (state.drive == nullptr) return -1;
    state.drive->number = state.slot;
    state.drive->group = &group;
    return 0;
}

int read_slot(PhysicalDriveState &state, const char *line) noexcept {
    return std::sscanf(line, "Slot Number: %u", &state.slot) == 1 ? 0 : -1;
}

// A drive outside every group is made by the line that places it.
int read_position(PhysicalDriveState &state, const char * /*line*/) noexcept {
    RaidController *controller = state.controller;
    if (controller == nullptr) return -1;
    if (state.drive == nullptr) {
        state.drive = add_raid_drive(controller->drives, controller->drive_count, *controller);
        if (state.drive == nullptr) return -1;
        state.drive->number = state.slot;
    }
    CString location = format_raid_location(controller->number, state.slot);
    if (!location) return -1;
    replace(state.drive->location, std::move(location));
    return 0;
}

int skip_line(PhysicalDriveState & /*state*/, const char * /*line*/) noexcept { return 0; }

int read_size(PhysicalDriveState &state, const char *line) noexcept {
    char text[112];
    if (state.drive == nullptr || std::sscanf(line, "Coerced Size: %111[^[]", text) != 1) return -1;
    state.drive->size = get_bytes_from_str(text);
    return 0;
}

int read_inquiry(PhysicalDriveState &state, const char *line) noexcept {
    if (state.drive == nullptr) return -1;
    char *words[3] = {};
    const int fields = std::sscanf(line, "Inquiry Data: %ms %ms %ms ", &words[0], &words[1], &words[2]);
    const CString first(words[0]);
    const CString second(words[1]);
    CString serial(words[2]);
    if (fields != 3) return -1;
    CString model = make_text("%s %s", first.get(), second.get());
    if (!model) return -1;
    replace(state.drive->serial, std::move(serial));
    replace(state.drive->model, std::move(model));
    return 0;
}

// "Non Coerced Size:" contains the text of the size that counts, so it goes first.
constexpr LineRule<PhysicalDriveState> kPhysicalDriveRules[] = {
    {"Adapter #", select_adapter}, {"Enclosure Device ID:", start_drive},  {"DiskGroup:", read_disk_group},
    {"Slot Number:", read_slot},   {"Enclosure position:", read_position}, {"Non Coerced Size:", skip_line},
    {"Coerced Size:", read_size},  {"Inquiry Data:", read_inquiry},
};

} // namespace

namespace torvane {

int read_pdlist(FILE *stream, RaidController *first, uint32_t count) noexcept {
    PhysicalDriveState state{first, count};
    return parse_megacli(stream, kPhysicalDriveRules, state);
}

} // namespace torvane
