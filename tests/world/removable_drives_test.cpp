#include "usb.h"

using namespace torvane::world;

namespace {

class RemovableDrives : public UsbTest {
  protected:
    ~RemovableDrives() override { release(); }

    void release() {
        release_drives(&list);
        list.count = 0;
    }

    // "name model serial type status blocks" of every drive, "-" for what is null.
    std::string drives() const {
        std::string text;
        for (uint32_t i = 0; i < list.count; ++i) {
            const DriveRecord *drive = list.drives[i];
            for (const char *field : {drive->name, drive->model, drive->serial}) {
                text += std::string(field == nullptr ? "-" : field) + "|";
            }
            text += std::to_string(drive->drive_type) + "|" + std::to_string(drive->status) + "|" +
                    std::to_string(drive->block_count) + "\n";
        }
        return text;
    }

    DriveList list = {};
};

TEST_F(RemovableDrives, CompleteListedDisksAndAddTheOthers) {
    world.disk({});
    plug_in({});
    EXPECT_EQ(get_drives(&list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_USB, nullptr, 0), 0);
    EXPECT_EQ(drives(), "/dev/sda|-|-|0|-1|0\n"
                        "/dev/sdb|Maker Flash|USB-0001|4|2|2097152\n");
    release();
    plug_in({.port = 2,
             .serial = "CARD",
             .product = "Reader",
             .units = {{.name = "sdc", .minor = 32, .size = 0}, {.name = "sdd", .minor = 48}}});
    plug_in({.port = 3, .serial = "IDLE", .units = {{.bound = false}}});
    EXPECT_EQ(get_drives(&list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_USB, nullptr, 0), 0);
    const std::string all = drives();
    EXPECT_EQ(list.count, 6U) << all;
    EXPECT_NE(all.find("\n-|Example Reader|CARD|6|2|"), std::string::npos) << all << "once, as an adapter";
    EXPECT_NE(all.find("\n-|Example Stick|IDLE|4|0|"), std::string::npos) << all;
    release();
    const char *names[] = {"/dev/sdb"};
    EXPECT_EQ(get_drives(&list, DRIVE_OPTION_USB, names, 1), 0);
    EXPECT_EQ(drives(), "/dev/sdb|Maker Flash|USB-0001|4|2|2097152\n") << "nothing is added to the caller's names";
    release();
    EXPECT_EQ(get_drives(&list, DRIVE_OPTION_USB, nullptr, 0), 0);
    EXPECT_EQ(list.count, 0U);
}

TEST_F(RemovableDrives, AnUnreadableInterfaceFailsDiscovery) {
    plug_in({});
    int result = 0;
    without_each_allocation([&] { result = add_removable_media(&(list = {}), 1); },
                            [&](const Trial &trial) {
                                EXPECT_TRUE(result != 0 || list.count == 0 || list.drives[0] != nullptr) << trial.at;
                                release();
                            });
    world.file("/sys/bus/scsi/devices/2:0:0:0/type", "3");
    EXPECT_EQ(get_drives(&list, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_USB, nullptr, 0), -1);
    EXPECT_EQ(list.count, 0U);
    EXPECT_EQ(list.drives, nullptr);
    EXPECT_EQ(add_removable_media(nullptr, 1), -1);
}

} // namespace
