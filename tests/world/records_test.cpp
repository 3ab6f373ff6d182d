#include "world.h"

#include "torvane.h"

#include <string>

using namespace torvane::world;

namespace {

class Records : public WorldTest {
  protected:
    DriveList list_ = {};

    void TearDown() override {
        release_drives(&list_);
        WorldTest::TearDown();
    }

    Records() { category = TORVANE_ERROR_DRIVE_LIST; }

    // The list's names, "-" for a record without one and "0" for an empty slot.
    std::string names() const {
        std::string text;
        for (uint32_t i = 0; i < list_.count; ++i) {
            const DriveRecord *drive = list_.drives[i];
            text += (text.empty() ? "" : " ") + std::string(drive == nullptr         ? "0"
                                                            : drive->name == nullptr ? "-"
                                                                                     : drive->name);
        }
        return text;
    }
};

// A writable text for the fields of input records, which are never written.
char *text(const char *words) { return const_cast<char *>(words); }

TEST_F(Records, MoveToAnotherListWithAllTheyOwn) {
    EXPECT_EQ(create_drive(&list_, "/dev/none", 0), 0);
    DriveRecord *source = list_.drives[0];
    source->model = strdup("model");
    source->location = strdup("(0, 1)");
    source->raid_device = strdup("/dev/sdx");
    source->block_size = 512;
    add_partition("none1", 5, &source->partitions, &source->partitions.entries);
    DriveList other = {};
    EXPECT_EQ(move_drive_to_list(&other, source), 0);
    EXPECT_STREQ(other.drives[0]->model, "model");
    EXPECT_STREQ(other.drives[0]->partitions.entries[0].name, "/dev/none1");
    EXPECT_EQ(other.drives[0]->partitions.entries[0].size, 5120U);
    EXPECT_STREQ(other.drives[0]->location, "(0, 1)");
    EXPECT_STREQ(other.drives[0]->raid_device, "/dev/sdx");
    for (const char *text : {source->name, source->model, source->location, source->raid_device}) {
        EXPECT_EQ(text, nullptr) << "shared";
    }
    EXPECT_EQ(source->partitions.count, 0U);
    EXPECT_EQ(source->block_size, 512U) << "numbers stay";
    EXPECT_EQ(drive_in_list(&other, "/dev/none"), 1);
    EXPECT_EQ(drive_in_list(&other, "/dev/non"), 0);
    EXPECT_EQ(said(move_drive_to_list(&other, nullptr)), "-1 failed to move drive (NULL)");
    release_drives(&other);
    EXPECT_EQ(other.drives, nullptr);
    EXPECT_EQ(other.count, 1U) << "the count tells how many there were";
    EXPECT_EQ(release_drives(nullptr) + release_drive(nullptr), 0);
}

TEST_F(Records, OfRaidMembersNeedEveryText) {
    RaidDriveGroup group = {};
    group.device = text("/dev/sdx");
    RaidDrive member = {};
    member.device = text("/dev/sg4");
    member.model = text("model");
    member.serial = text("serial");
    member.location = text("(0, 3)");
    member.size = 1025;
    member.group = &group;
    EXPECT_EQ(add_raid_drive_to_list(&list_, &member), 1);
    const DriveRecord *drive = list_.drives[0];
    EXPECT_EQ(drive->drive_type, static_cast<DriveType>(DRIVE_TYPE_RAID_MEMBER));
    EXPECT_STREQ(drive->raid_device, "/dev/sdx");
    EXPECT_STREQ(drive->location, "(0, 3)");
    EXPECT_EQ(drive->block_count, 2U);
    EXPECT_EQ(drive->status, -1);
    EXPECT_EQ(said(create_raid_drive(&list_, &member, 1)), "-1 invalid drive index '1'");
    for (char *RaidDrive::*field : {&RaidDrive::device, &RaidDrive::model, &RaidDrive::serial, &RaidDrive::location}) {
        RaidDrive lacking = member;
        lacking.*field = nullptr;
        EXPECT_EQ(said(add_raid_drive_to_list(&list_, &lacking)), "-1 failed to allocate raid drive");
    }
    EXPECT_EQ(names(), "/dev/sg4 0 0 0 0") << "failed ones leave an empty slot";

    RaidDrive pair[] = {member, member};
    pair[0].device = text("/dev/sg5");
    pair[1].device = text("/dev/sg6");
    group.drives = pair;
    group.drive_count = 2;
    RaidController controller = {};
    controller.groups = &group;
    controller.group_count = 1;
    controller.drives = &member;
    controller.drive_count = 1;
    EXPECT_EQ(resolve_to_raid("/dev/sdy", &list_, &controller, 1), 0);
    EXPECT_EQ(resolve_to_raid("/dev/sg6", &list_, &controller, 1), 1);
    EXPECT_EQ(add_all_raid_drives(&list_, &controller, 1), 0);
    EXPECT_EQ(resolve_to_raid("/dev/sdx", &list_, &controller, 1), 2);
    EXPECT_EQ(names(), "/dev/sg4 0 0 0 0 /dev/sg6 /dev/sg5 /dev/sg5 /dev/sg6");
    group.drive_count = 0;
    EXPECT_EQ(resolve_to_raid("/dev/sdx", &list_, &controller, 1), 0);
    group.drive_count = UINT32_MAX;
    EXPECT_EQ(said(add_group_to_list(&list_, &group)), "-1 failed to resize drive array");
    DriveList full = {.count = UINT32_MAX, .drives = nullptr};
    EXPECT_EQ(said(add_raid_drive_to_list(&full, &member)), "-1 failed to resize drive array");
    // The group's device is no part of what makes a record whole.
    int without_group_device = 0;
    DriveList one = {};
    without_each_allocation([&] { add_raid_drive_to_list(&(one = {}), &member); },
                            [&](const Trial &) {
                                const bool is_made = one.count == 1 && one.drives[0] != nullptr;
                                without_group_device += is_made && one.drives[0]->raid_device == nullptr ? 1 : 0;
                                release_drives(&one);
                            });
    EXPECT_EQ(without_group_device, 1);
}

TEST_F(Records, OfUsbDevices) {
    ScsiDeviceInfo unit = {};
    unit.name = text("sdb");
    unit.state = STATE_BOUND;
    unit.model = text("USB model");
    unit.serial = text("USB serial");
    unit.size = 100;
    MediaRecord media = {};
    media.model = text("Maker Product");
    media.serial = text("77");
    media.devices = {&unit, 1};
    EXPECT_EQ(add_removable_drive_to_list(&media, &list_), 0);
    EXPECT_EQ(list_.drives[0]->drive_type, static_cast<DriveType>(DRIVE_TYPE_REMOVABLE));
    EXPECT_EQ(list_.drives[0]->status, STATE_BOUND);
    EXPECT_EQ(list_.drives[0]->block_size, 512U);
    media.serial = nullptr;
    EXPECT_EQ(said(add_removable_drive_to_list(&media, &list_)), "-1 failed to copy drive model and serial number");
    EXPECT_EQ(names(), "- 0");

    create_drive(&list_, "/dev/sda", 0);
    EXPECT_EQ(matches_drive(&unit, &list_, 0), 0);
    create_drive(&list_, "/dev/sdb1", 0); // a beginning is enough
    DriveRecord *drive = list_.drives[3];
    drive->serial = strdup("own");
    drive->model = strdup("own");
    EXPECT_EQ(matches_drive(&unit, &list_, 0), 1);
    EXPECT_EQ(std::string(drive->model) + drive->serial, "ownown");
    EXPECT_EQ(drive->block_count * drive->block_size, 51200U);
    EXPECT_EQ(drive->status, STATE_BOUND);
    unit.size = 200;
    char *dropped = drive->serial;
    EXPECT_EQ(matches_drive(&unit, &list_, 1), 1);
    EXPECT_STREQ(drive->serial, "USB serial");
    EXPECT_EQ(drive->block_count, 100U) << "a known size is kept";
    EXPECT_STREQ(dropped, "own") << "the old serial is the caller's now";
    free(dropped);
    unit.name = nullptr;
    EXPECT_EQ(matches_drive(&unit, &list_, 0), 0);
}

} // namespace
