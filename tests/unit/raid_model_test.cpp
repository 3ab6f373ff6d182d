#include "torvane.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>

namespace {

std::string text(const char *string) { return string == nullptr ? "(null)" : string; }

// A controller with one group of one drive and one drive outside it, all on the stack.
struct Machine {
    RaidDrive member = {};
    RaidDrive single = {};
    RaidDriveGroup group = {};
    RaidController controller = {};

    explicit Machine(uint32_t type = RAID_TYPE_LSI, uint32_t number = 0) {
        for (RaidDrive *drive : {&member, &single}) {
            drive->size = 1;
            drive->serial = duplicate_str("00000001000000000000");
            drive->model = duplicate_str("SEAGATE ST1");
        }
        member.number = 5;
        group.size = 1;
        group.controller_number = static_cast<int32_t>(number);
        group.logical_number = 1;
        group.drive_count = 1;
        group.drives = &member;
        controller = {type, number, 1, &group, 1, &single};
    }
    ~Machine() {
        destroy_drive(&member);
        destroy_drive(&single);
        free(group.name);
        free(group.device);
    }
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;
};

InfoMapEntry entry(const char *device, const char *info) {
    return {const_cast<char *>(device), const_cast<char *>(info)};
}

TEST(RaidModel, IncompleteRecordsFailTheCheck) {
    Machine good;
    EXPECT_EQ(check_raids(&good.controller, 1), 0);
    EXPECT_STREQ(good.member.serial, "00000001");
    EXPECT_STREQ(good.single.serial, "00000001");
    EXPECT_EQ(check_raids(nullptr, 0), 0);
    EXPECT_EQ(check_raids(nullptr, 1), -1);
    const auto broken = [](auto &&breaks) {
        Machine machine;
        breaks(machine);
        return check_raids(&machine.controller, 1);
    };
    EXPECT_EQ(broken([](Machine &machine) { machine.group.size = 0; }), -1);
    EXPECT_EQ(broken([](Machine &machine) { machine.member.size = 0; }), -1);
    EXPECT_EQ(broken([](Machine &machine) { machine.single.size = 0; }), -1);
    EXPECT_EQ(broken([](Machine &machine) { free(std::exchange(machine.member.serial, nullptr)); }), -1);
    EXPECT_EQ(broken([](Machine &machine) { free(std::exchange(machine.single.model, nullptr)); }), -1);
}

TEST(RaidModel, DrivesAreNamedByTheirSerialNumber) {
    std::array serials = {entry("/dev/sg0", nullptr), entry("/dev/sg1", "00000001"),
                          entry("/dev/sg2", "00000001000000000000"), entry("/dev/sg3", "00000001000000000000")};
    Machine machine(RAID_TYPE_ADAPTEC, 1);
    EXPECT_EQ(assign_names_to_raids(&machine.controller, 1, nullptr, 0, serials.data(), serials.size(), nullptr, 0), 0);
    EXPECT_EQ(text(machine.group.device), "/dev/raid_0_1_1");
    EXPECT_EQ(text(machine.member.device), "/dev/sg2");
    EXPECT_EQ(text(machine.single.device), "/dev/sg2");
    EXPECT_EQ(assign_names_to_raids(&machine.controller, 1, nullptr, 0, serials.data(), 1, nullptr, 0), 0);
    EXPECT_EQ(text(machine.member.device), "/dev/sg_raid_0_1_5");
    EXPECT_EQ(assign_names_to_raids(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(assign_names_to_raids(nullptr, 1, nullptr, 0, nullptr, 0, nullptr, 0), -1);
}

TEST(RaidModel, MapsArePrintedAndNullIsReleased) {
    const std::array map = {entry("/dev/sda", "Model"), entry("/dev/sdb", nullptr)};
    testing::internal::CaptureStdout();
    const int printed = print_name_map(map.data(), 2);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "map (2)\nmap[0]: (/dev/sda, Model)\nmap[1]: (/dev/sdb, (null))\n");
    EXPECT_EQ(printed, 27);
    destroy_drive(nullptr);
    destroy_drive_group(nullptr);
    destroy_controller(nullptr);
    destroy_raids(nullptr, 3);
    release_info_map(nullptr, 3);
    release_pci_info(nullptr, 3);
}

} // namespace
