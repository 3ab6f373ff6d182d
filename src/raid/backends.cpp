#include "raid/model.h"
#include "raid/tool.h"
#include "torvane.h"

#include <span>

using namespace torvane;

namespace {

struct Backend {
    const RaidControllerOps *operations;
    const char *search; // shell command that tells whether the tool is on the PATH
};

constexpr Backend kLsi = {&lsiOperations, "command -v megacli"};
constexpr Backend kAdaptec = {&adaptecOperations, "command -v arcconf"};

void discard(RaidController **list, uint32_t *count) noexcept {
    destroy_raids(*list, static_cast<int>(*count));
    *list = nullptr;
    *count = 0;
}

// The presence test says yes on every machine whose /bin/sh takes "&>" for "in the background", so a tool
// that is not there at all fails only when it is run. That must not cost the other maker's controllers.
bool is_absent(const Backend &backend, uint32_t before, uint32_t count) noexcept {
    return before > 0 && count == before && !command_succeeds(backend.search);
}

int read_backend(const Backend &backend, RaidController **list, uint32_t *count) noexcept {
    const uint32_t before = *count;
    const int result = get_raids_from_card(list, count, backend.operations);
    if (result != 0 && !is_absent(backend, before, *count)) return -1;
    return check_raids(*list, static_cast<int>(*count));
}

// Shortens a usable drive's serial number to what its generic node reports.
int check_drives(std::span<RaidDrive> drives) noexcept {
    for (RaidDrive &drive : drives) {
        if (drive.size == 0 || drive.serial == nullptr || drive.model == nullptr) return -1;
        truncate_seagate_serial(drive.serial, drive.model);
    }
    return 0;
}

int check_controller(RaidController &controller) noexcept {
    for (RaidDriveGroup &group : std::span(controller.groups, controller.group_count)) {
        if (group.size == 0 || check_drives({group.drives, group.drive_count}) != 0) return -1;
    }
    return check_drives({controller.drives, controller.drive_count});
}

} // namespace

int get_raids(RaidController **list, uint32_t *count) noexcept {
    if (list == nullptr || count == nullptr) return -1;
    *count = 0;
    if (read_backend(kLsi, list, count) != 0) discard(list, count);
    if (read_backend(kAdaptec, list, count) != 0) discard(list, count);
    if (*count == 0) return 0;
    if (relate_drives_to_names(*list, *count) != 0) {
        discard(list, count);
        return -1;
    }
    relink(*list, *count);
    return 0;
}

int get_raids_from_card(RaidController **list, uint32_t *count, const RaidControllerOps *ops) noexcept {
    if (list == nullptr || count == nullptr || ops == nullptr) return -1;
    if (ops->supports == nullptr || ops->get_raids == nullptr) return -1;
    return ops->supports() == 0 ? 0 : ops->get_raids(list, count);
}

int check_raids(RaidController *list, int count) noexcept {
    if (count < 1) return 0;
    if (list == nullptr) return -1;
    for (int i = 0; i < count; ++i) {
        if (check_controller(list[i]) != 0) return -1;
    }
    return 0;
}
