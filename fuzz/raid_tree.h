// What every tree of controllers must hold, whatever was parsed; and its release.
#ifndef TORVANE_FUZZ_RAID_TREE_H
#define TORVANE_FUZZ_RAID_TREE_H

#include "raid/model.h"
#include "stream.h"

#include <span>

namespace torvane::fuzz {

inline void require_links(const RaidController &controller) noexcept {
    for (const RaidDriveGroup &group : std::span(controller.groups, controller.group_count)) {
        require(group.controller == &controller);
        for (const RaidDrive &drive : std::span(group.drives, group.drive_count)) {
            require(drive.controller == &controller && (drive.group == nullptr || drive.group == &group));
        }
    }
    for (const RaidDrive &drive : std::span(controller.drives, controller.drive_count)) {
        require(drive.controller == &controller && drive.group == nullptr);
    }
}

// Controllers that a fuzzer fills, named without any look-up and destroyed at the end.
struct RaidTree {
    RaidController *list = nullptr;
    uint32_t count = 0;

    RaidTree() = default;
    RaidTree(const RaidTree &) = delete;
    RaidTree &operator=(const RaidTree &) = delete;
    ~RaidTree() {
        const auto controllers = static_cast<int>(count);
        for (const RaidController &controller : std::span(list, count)) require_links(controller);
        (void)check_raids(list, controllers);
        require(assign_names_to_raids(list, controllers, nullptr, 0, nullptr, 0, nullptr, 0) == 0);
        destroy_raids(list, controllers);
    }
};

} // namespace torvane::fuzz

#endif
