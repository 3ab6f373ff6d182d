// Runs in the machine `raid`: real adapter, driver, lspci and /sys; only megacli is made up, from what the kernel's
// own tools show there.
#include "readers.h"
#include "torvane.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using truth::node_of;
using truth::output_of;

struct Unit {
    unsigned channel = 0;
    unsigned target = 0;
    std::string node;
};

std::vector<Unit> scsi_units() {
    std::istringstream lines(output_of("lsscsi --generic"));
    std::vector<Unit> units;
    for (std::string line; std::getline(lines, line);) {
        Unit unit;
        if (std::sscanf(line.c_str(), "[%*u:%u:%u:", &unit.channel, &unit.target) != 2) continue;
        std::istringstream words(line);
        std::string generic;
        for (std::string word; words >> word; generic = word) unit.node = generic;
        units.push_back(unit);
    }
    return units;
}

std::string generic_of(const std::string &serial) { return truth::generic_of(node_of(serial)); }

std::string logical(unsigned target, const std::string &name) {
    const std::string number = std::to_string(target);
    return "Virtual Drive: " + number + " (Target Id: " + number + ")\nName                :" + name +
           "\nRAID Level          : Primary-0, Secondary-0, RAID Level Qualifier-0\nSize                : 64.0 MB\n" +
           "State               : Optimal\nNumber Of Drives    : 1\n\n";
}

std::string physical(int slot, const std::string &serial, int group) {
    std::string text = "Enclosure Device ID: 252\nSlot Number: " + std::to_string(slot) + "\n";
    if (group >= 0) text += "Drive's position: DiskGroup: " + std::to_string(group) + ", Span: 0, Arm: 0\n";
    return text + "Enclosure position: 1\nNon Coerced Size: 65.0 MB [0x20800 Sectors]\n" +
           "Coerced Size: 64.0 MB [0x20000 Sectors]\nInquiry Data: ACME PLAIN " + serial + " \n\n";
}

class RaidMachine : public testing::Test {
  protected:
    void SetUp() override {
        for (const Unit &unit : scsi_units()) {
            if (unit.channel == RAID_TYPE_LSI) volumes[unit.target] = unit.node;
        }
        ASSERT_EQ(volumes.size(), 3U) << output_of("lsscsi --generic");
        std::string groups = "Adapter 0 -- Virtual Drive Information:\n";
        for (const auto &[target, node] : volumes) groups += logical(target, "VD_" + std::to_string(target));
        groups += logical(9, "DIS"); // on no target; the SATA disk's model ends so, cut to the 16 bytes of INQUIRY
        const std::string drives = "Adapter #0\n\n" + physical(4, "PLAIN1", 0) + physical(5, "PLAIN2", 1) +
                                   physical(6, "NOWHERE", 2) + physical(7, "GONE", 3) + physical(8, "SATA0001", -1);
        const std::string folder = "/tmp/raid-tools";
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/logical") << groups;
        std::ofstream(folder + "/physical") << drives;
        std::ofstream(folder + "/megacli") << "#!/bin/sh\ncase $1 in\n-ldinfo) cat " + folder +
                                                  "/logical;;\n-pdlist) cat " + folder + "/physical;;\nesac\n";
        std::filesystem::permissions(folder + "/megacli", std::filesystem::perms::owner_all);
        setenv("PATH", (folder + ":" + std::getenv("PATH")).c_str(), 1);
    }

    std::map<unsigned, std::string> volumes; // nodes by target
};

TEST_F(RaidMachine, LogicalAndPhysicalDrivesGetTheKernelsNames) {
    RaidController *list = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(get_raids(&list, &count), 0) << get_error_str(TORVANE_ERROR_RAID);
    ASSERT_EQ(count, 1U) << get_error_str(TORVANE_ERROR_RAID);
    ASSERT_EQ(list[0].group_count, 4U);
    for (uint32_t i = 0; i < 3; ++i) {
        const RaidDriveGroup &group = list[0].groups[i];
        EXPECT_EQ(group.device, volumes[static_cast<unsigned>(group.logical_number)]);
        EXPECT_EQ(group.device, node_of("VOLUME" + std::to_string(group.logical_number)));
    }
    EXPECT_EQ(list[0].groups[3].device, node_of("SATA0001"));
    EXPECT_EQ(list[0].groups[0].drives[0].device, generic_of("PLAIN1"));
    EXPECT_EQ(list[0].groups[1].drives[0].device, generic_of("PLAIN2"));
    EXPECT_STREQ(list[0].groups[2].drives[0].device, "/dev/sg_raid_2_0_6");
    ASSERT_EQ(list[0].drive_count, 1U);
    EXPECT_EQ(list[0].drives[0].device, generic_of("SATA0001"));
    destroy_raids(list, static_cast<int>(count));
}

TEST_F(RaidMachine, MembersAreListedInsteadOfTheirLogicalDrives) {
    std::multiset<std::string> expected = {generic_of("PLAIN1"), generic_of("PLAIN2"), "/dev/sg_raid_2_0_6",
                                           "/dev/sg_raid_2_0_7", generic_of("SATA0001")};
    std::istringstream nodes(output_of("lsblk --nodeps --noheadings --paths --output NAME"));
    for (std::string node; nodes >> node;) expected.insert(node);
    for (const auto &[target, node] : volumes) ASSERT_EQ(expected.erase(node), 1U);
    ASSERT_EQ(expected.erase(node_of("SATA0001")), 1U);

    DriveList list = {};
    ASSERT_EQ(get_drives(&list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_RAID, nullptr, 0), 0)
        << get_error_str(TORVANE_ERROR_DRIVE_LIST);
    std::multiset<std::string> found;
    for (uint32_t i = 0; i < list.count; ++i) {
        const DriveRecord &drive = *list.drives[i];
        const bool member = drive.drive_type == DRIVE_TYPE_RAID_MEMBER;
        found.insert(drive.name);
        EXPECT_EQ(member, std::string(drive.name).starts_with("/dev/sg")) << drive.name;
        if (!member || std::string(drive.serial) != "PLAIN2") continue;
        EXPECT_STREQ(drive.location, "(0, 5)");
        EXPECT_EQ(drive.raid_device, volumes[1]);
    }
    EXPECT_EQ(found, expected);
    release_drives(&list);
}

} // namespace
