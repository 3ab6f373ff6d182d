// torvane.hpp over the shipped library on the fixture machine.
#include "raid_tools.h"
#include "torvane.hpp"
#include "usb.h"

#include <string>

using namespace torvane::world;

namespace {

using Wrappers = WorldTest;
using RaidWrappers = RaidTest;
using UsbWrappers = UsbTest;

TEST_F(Wrappers, DrivesAsARange) {
    world.disk({.name = "sda", .serial = "S-0001", .partitions = {{.size = 1 << 20}, {.size = 2 << 20}}});
    world.disk({.name = "sdb", .minor = 16, .serial = "X-0002", .address = "1:0:0:0"});
    auto drives = torvane::drives();
    ASSERT_TRUE(drives) << drives.error().text;
    std::string told;
    for (const DriveRecord &drive : *drives) {
        told += std::string(torvane::text(drive.name)) + "=" + std::string(torvane::text(drive.serial));
        for (const PartitionRecord &partition : torvane::partitions(drive))
            told += " " + std::to_string(partition.size);
        told += "\n";
        EXPECT_FALSE(torvane::failed(drive.geometry_result, TORVANE_GEOMETRY_START));
    }
    EXPECT_EQ(told, "/dev/sda=S-0001 1048576 2097152\n/dev/sdb=X-0002\n");

    resize_list(drives->list(), 1); // an empty slot
    EXPECT_EQ(drives->size(), 2U);
    const torvane::Drives moved = std::move(*drives);
    EXPECT_TRUE(drives->empty());
    EXPECT_EQ(moved.size(), 2U);
    EXPECT_EQ(torvane::drives_by_serial("X-")->size(), 1U);
    EXPECT_TRUE(torvane::drives_by_serial("none")->empty());

    const auto absent = torvane::drives(DRIVE_OPTION_GEOMETRY, {"/dev/gone"});
    EXPECT_TRUE(torvane::failed(absent->begin()->geometry_result, TORVANE_GEOMETRY_ROTATION)) << "nothing was read";
    const auto none = torvane::drives(DRIVE_OPTION_GEOMETRY);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().category, torvane::Category::drive_list);
    EXPECT_EQ(none.error().text, "no drive names specified");
}

TEST_F(RaidWrappers, ControllersAsRanges) {
    megacli(kSmallLogical, kSmallPhysical);
    lspci("");
    const auto raids = torvane::raids();
    ASSERT_TRUE(raids) << raids.error().text;
    std::string told;
    for (const RaidController &controller : *raids)
        for (const RaidDriveGroup &group : torvane::groups(controller))
            for (const RaidDrive &drive : torvane::drives(group)) told += torvane::text(drive.serial);
    EXPECT_EQ(told, "LS0");
}

TEST_F(UsbWrappers, AMountEndsWithItsOwner) {
    plug_in({});
    const auto interfaces = torvane::usb_storage();
    ASSERT_TRUE(interfaces && interfaces->size() == 1);
    EXPECT_EQ(torvane::devices(*interfaces->begin()).size(), 1U);
    {
        const auto mounted = torvane::mount("USB");
        ASSERT_TRUE(mounted) << mounted.error().text;
        EXPECT_EQ(names_in(std::string(mounted->directory())), (std::vector<std::string>{"sdb", "sdb_mount"}));
    }
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());
    EXPECT_EQ(torvane::mount("none").error().category, torvane::Category::mount);
}

} // namespace
