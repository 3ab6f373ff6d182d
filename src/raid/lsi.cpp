// LSI adapters and their logical drives, which megacli calls virtual drives.
#include "raid/lsi.h"

#include "raid/model.h"

#include <cerrno>
#include <cstdlib>
#include <span>

using namespace torvane;

namespace {

// The time-out is part of the command: megacli hangs on an adapter whose firmware does.
constexpr const char *kListLogicalDrives = "timeout 20 megacli -ldinfo -lAll -aAll";
constexpr const char *kListPhysicalDrives = "timeout 20 megacli -pdlist -aAll";

struct LogicalDriveState {
    RaidController **list = nullptr;
    uint32_t *count = nullptr;
    RaidController *controller = nullptr;
    RaidDriveGroup *group = nullptr;
};

int start_controller(LogicalDriveState &state, const char *line) noexcept {
    state.controller = create_new_controller(line, state.list, state.count);
    return state.controller == nullptr ? -1 : 0;
}

// A line that is no plain virtual drive leaves no current group; the fields that follow then fail.
int start_group(LogicalDriveState &state, const char *line) noexcept {
    state.group = create_new_drive_group(line, state.controller);
    return state.controller == nullptr ? -1 : 0;
}

int read_name(LogicalDriveState &state, const char *line) noexcept {
    return state.group == nullptr ? -1 : set_group_name(line, &state.group->name);
}

int read_size(LogicalDriveState &state, const char *line) noexcept { return set_group_size(line, state.group); }

constexpr LineRule<LogicalDriveState> kLogicalDriveRules[] = {
    {"-- Virtual Drive Information:", start_controller},
    {"Virtual Drive:", start_group},
    {"Name                :", read_name},
    {"Size                :", read_size},
};

int list_physical_drives(RaidController *first, uint32_t count) noexcept {
    return run_megacli(kListPhysicalDrives, [&](FILE *output) noexcept { return read_pdlist(output, first, count); });
}

} // namespace

const RaidControllerOps lsiOperations = {supports_lsi, get_raids_lsi, RAID_TYPE_LSI, "LSI"};

int supports_lsi(void) noexcept { return std::system("which megacli &> /dev/null") == 0 ? 1 : 0; }

int get_raids_lsi(RaidController **list, uint32_t *count) noexcept {
    if (list == nullptr || count == nullptr) return -1;
    const uint32_t before = *count;
    if (get_ldinfo(list, count) != 0) return -1;
    const uint32_t added = *count - before;
    return list_physical_drives(added == 0 ? nullptr : *list + before, added);
}

int get_ldinfo(RaidController **list, uint32_t *count) noexcept {
    if (list == nullptr || count == nullptr) return -1;
    return run_megacli(kListLogicalDrives,
                       [&](FILE *output) noexcept { return parse_ldinfo_output(output, list, count); });
}

int get_pdlist(RaidController *first) noexcept {
    return first == nullptr ? -1 : list_physical_drives(first, kUnknownCount);
}

int parse_ldinfo_output(FILE *stream, RaidController **list, uint32_t *count) noexcept {
    if (stream == nullptr || list == nullptr || count == nullptr) return -1;
    LogicalDriveState state;
    state.list = list;
    state.count = count;
    return parse_megacli(stream, kLogicalDriveRules, state);
}

int parse_pdlist_output(FILE *stream, RaidController *first) noexcept {
    return stream == nullptr || first == nullptr ? -1 : read_pdlist(stream, first, kUnknownCount);
}

RaidController *create_new_controller(const char *line, RaidController **list, uint32_t *count) noexcept {
    if (line == nullptr || list == nullptr || count == nullptr) return nullptr;
    int32_t number = -1;
    if (std::sscanf(line, "Adapter %d -- Virtual Drive Information:", &number) != 1) return nullptr;
    return add_controllers(list, count, 1, RAID_TYPE_LSI, static_cast<uint32_t>(number));
}

RaidDriveGroup *create_new_drive_group(const char *line, RaidController *controller) noexcept {
    if (line == nullptr || controller == nullptr) return nullptr;
    int32_t number = 0;
    if (std::sscanf(line, "Virtual Drive: %d (Target Id: %*d)", &number) != 1) return nullptr;
    return add_group(*controller, number);
}

int set_group_name(const char *line, char **name) noexcept {
    if (line == nullptr || name == nullptr) return -1;
    char *word = nullptr;
    errno = 0;
    const int fields = std::sscanf(line, "Name                :%ms", &word);
    if (fields != 1 && errno == ENOMEM) return -1;
    CString text(word);
    if (fields != 1) text.reset(duplicate_str(""));
    if (!text) return -1;
    replace(*name, std::move(text));
    return 0;
}

int set_group_size(const char *line, RaidDriveGroup *group) noexcept {
    if (line == nullptr || group == nullptr) return -1;
    char text[112];
    if (std::sscanf(line, "Size                : %111[ A-Z0-9.]", text) != 1) return -1;
    group->size = get_bytes_from_str(text);
    return 0;
}

int set_group_drives(const char *line, RaidDriveGroup *group) noexcept {
    if (line == nullptr || group == nullptr) return -1;
    uint32_t count = 0;
    if (std::sscanf(line, "Number Of Drives    : %u", &count) != 1) return -1;
    auto *drives = count == 0 ? nullptr : static_cast<RaidDrive *>(std::calloc(count, sizeof(RaidDrive)));
    if (count != 0 && drives == nullptr) return -1;
    for (RaidDrive &drive : std::span(group->drives, group->drive_count)) destroy_drive(&drive);
    std::free(group->drives);
    group->drives = drives;
    group->drive_count = count;
    return 0;
}
