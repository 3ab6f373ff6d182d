#include "world.h"

#include "torvane.h"

#include <string>
#include <sys/resource.h>
#include <vector>

using namespace torvane::world;

namespace {

class Discovery : public WorldTest {
  protected:
    // "result: names with their types", of get_drives(); "-" for a record without a name.
    static std::string drives(DriveOptions options, const std::vector<const char *> &names = {}) {
        DriveList list = {};
        const int result = get_drives(&list, options, names.data(), static_cast<uint32_t>(names.size()));
        const std::string text = std::to_string(result) + ":" + described(list);
        EXPECT_TRUE(result == 0 || (list.drives == nullptr && list.count == 0));
        release_drives(&list);
        return text;
    }

    static std::string described(const DriveList &list) {
        std::string text;
        for (uint32_t i = 0; i < list.count; ++i) {
            const DriveRecord &drive = *list.drives[i];
            text +=
                std::string(" ") + (drive.name == nullptr ? "-" : drive.name) + "/" + std::to_string(drive.drive_type);
        }
        return text;
    }

    Discovery() { category = TORVANE_ERROR_DRIVE_LIST; }
};

TEST_F(Discovery, OptionsAndNames) {
    for (const int none : {0, -1, INT32_MIN}) {
        EXPECT_EQ(drives(none), "-1:");
        EXPECT_EQ(error(), "no options specified");
    }
    for (const int readers : {2, 4, 62, 64}) {
        set_error_str(TORVANE_ERROR_DRIVE_LIST, "none");
        EXPECT_EQ(drives(readers), "-1:");
        EXPECT_EQ(error(), "no drive names specified");
    }
    EXPECT_EQ(said(get_drives(nullptr, 1, nullptr, 0)), "-1 no drive list (NULL)");
    EXPECT_EQ(drives(32, {"/dev/sda", "/dev/sdb", "/dev/sda", ""}), "0: /dev/sda/0 /dev/sdb/0 /0");
    EXPECT_EQ(drives(2, {"/dev/sda", nullptr}), "-1:");
    EXPECT_EQ(error(), "failed to duplicate '(null)'");
}

TEST_F(Discovery, WholeDisksInTheOrderOfTheKernel) {
    world.disk({.name = "sdb", .minor = 16, .address = "1:0:0:0", .partitions = {{.size = 1 << 20}}});
    world.disk({.name = "sda", .partitions = {{.size = 1 << 20}, {.size = 1 << 20}}});
    world.device("/dev/dm-0", 253, 0);
    world.file("/proc/partitions", read_file("/proc/partitions") + " 253 0 9 dm-0\n   8 99 9 gone\n");
    EXPECT_EQ(drives(1), "0: /dev/sdb/0 /dev/sda/0");
    EXPECT_EQ(drives(1, {"/dev/sda", "/dev/cdrom", "/dev/cdrom"}), "0: /dev/sdb/0 /dev/sda/0 /dev/cdrom/0");
    DriveList sized = {};
    EXPECT_EQ(get_drives(&sized, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY, nullptr, 0), 0);
    ASSERT_EQ(sized.count, 2U);
    EXPECT_EQ(sized.drives[0]->partitions.count, 1U) << "of sdb, which comes first";
    EXPECT_EQ(sized.drives[1]->partitions.count, 2U);
    release_drives(&sized);
    EXPECT_EQ(is_drive("/dev/sda"), 1);
    EXPECT_EQ(is_drive("/dev/sda1"), 0);
    EXPECT_EQ(is_drive("/dev/dm-0"), 0);
    EXPECT_EQ(is_drive("/dev/gone"), 0);
    EXPECT_EQ(is_drive(nullptr), 0);

    std::vector<std::string> many;
    std::vector<const char *> names = {"/dev/sda"};
    for (int i = 0; i < 200; ++i) many.push_back("/dev/x" + std::to_string(i % 100));
    for (const std::string &name : many) names.push_back(name.c_str());
    DriveList list = {};
    EXPECT_EQ(get_drives(&list, 1, names.data(), static_cast<uint32_t>(names.size())), 0);
    EXPECT_EQ(list.count, 102U) << "no name twice, however many there are";
    release_drives(&list);
}

TEST_F(Discovery, ARecordHoldsWhatItsReadersFound) {
    auto sda = world.disk({.generic = 0, .partitions = {{.size = 1 << 20}}});
    sda->set_rotation(7200);
    sda->primary_defects = {.bytes = 16};
    DriveList list = {};
    ASSERT_EQ(get_drives(&list, 1 | 2 | 4 | 8, nullptr, 0), 0);
    ASSERT_EQ(list.count, 1U);
    const DriveRecord &drive = *list.drives[0];
    EXPECT_STREQ(drive.model, "ATA Example Disk");
    EXPECT_STREQ(drive.serial, "S-0001");
    EXPECT_STREQ(drive.generic_name, "/dev/sg0");
    EXPECT_EQ(drive.major * 1000 + drive.minor, 8000);
    EXPECT_EQ(drive.device_type, DEVICE_KIND_SCSI);
    EXPECT_EQ(drive.block_count * drive.block_size, uint64_t{1} << 30);
    EXPECT_EQ(drive.rotation_speed, 7200);
    EXPECT_EQ(drive.partitions.count, 1U);
    EXPECT_EQ(drive.manufacturer_defects, 2);
    EXPECT_EQ(drive.specification_result + drive.geometry_result, 0U);
    EXPECT_EQ(drive.defects_result, static_cast<uint32_t>(-2));
    const std::vector<std::string> commands = {
        "sda HDIO_GETGEO_BIG",
        "sda HDIO_GETGEO",
        "sda1 HDIO_GETGEO_BIG",
        "sda1 HDIO_GETGEO",
        "sda SG_IO 12 01 00 00 04 00",
        "sda SG_IO 12 01 80 00 04 00",
        "sda SG_IO 12 01 80 00 0a 00",
        "sda BLKSSZGET",
        "sda BLKGETSIZE64",
        "sda SG_IO 12 01 b1 00 fc 00",
    };
    ASSERT_GT(answers().log.size(), commands.size());
    EXPECT_EQ(std::vector<std::string>(answers().log.begin(), answers().log.begin() + 10), commands)
        << "whole disks first, then identity, geometry and defects; nothing twice";
    EXPECT_EQ(answers().log.back(), "sda SG_IO 37 00 0c 00 00 00 00 00 04 00");
    release_drives(&list);

    ASSERT_EQ(get_drive(&list, 4 | 8, "/dev/none"), 0) << "a drive that cannot be read is listed";
    EXPECT_EQ(list.drives[0]->specification_result, 1U);
    EXPECT_EQ(list.drives[0]->geometry_result, 0U) << "not asked for";
    EXPECT_EQ(list.drives[0]->defects_result, 1U);
    release_drives(&list);
    ASSERT_EQ(get_drive_by_id(&list, 4, 8, 1), 0);
    EXPECT_EQ(described(list), " /dev/sda/0");
    release_drives(&list);
    EXPECT_EQ(get_drive_by_id(&list, 4, 9, 9), -1);
}

TEST_F(Discovery, DrivesBySerial) {
    world.disk({.name = "sda", .serial = "AB-1"});
    world.disk({.name = "sdb", .minor = 16, .serial = "AB-2", .address = "1:0:0:0"});
    world.disk({.name = "sdc", .minor = 32, .serial = "XAB", .address = "2:0:0:0"});
    DriveList list = {};
    EXPECT_EQ(get_drive_by_serial(&list, 1 | 4, "AB"), 0);
    EXPECT_EQ(get_drive_by_serial(&list, 1 | 4, "XAB"), 0);
    EXPECT_EQ(get_drive_by_serial(&list, 1 | 4, "AB-12"), 0);
    EXPECT_EQ(described(list), " /dev/sda/0 /dev/sdb/0 /dev/sdc/0") << "appended to what the list held";
    EXPECT_EQ(get_drive_by_serial(&list, 0, "AB"), -1);
    EXPECT_EQ(said(get_drive_by_serial(&list, 1, nullptr)), "-1 unable to read drive list or serial (NULL)");
    release_drives(&list);
    int result = 0;
    without_each_allocation([&] { result = get_drive_by_serial(&(list = {}), 1 | 4, "AB"); },
                            [&](const Trial &trial) {
                                EXPECT_TRUE(result == 0 || (list.drives == nullptr && list.count == 0)) << trial.at;
                                release_drives(&list);
                            });
}

TEST_F(Discovery, OpticalDrives) {
    EXPECT_EQ(drives(256), "0:") << "no driver, no drives";
    world.file("/proc/sys/dev/cdrom/info", "CD-ROM information\n\ndrive name:\t\tsr1\tsr0\ndrive speed:\t\t1\t2\n");
    EXPECT_EQ(drives(256), "0: /dev/sr1/5 /dev/sr0/5");
    world.partition_rows("  11 0 100 sr0\n");
    world.device("/dev/sr0", 11, 0);
    EXPECT_EQ(drives(257), "0: /dev/sr0/0 /dev/sr1/5 /dev/sr0/5");
    world.file("/proc/sys/dev/cdrom/info", "drive name:\n");
    EXPECT_EQ(drives(256), "0:");
    for (const std::string text : {"", "no such line\n", "\0drive name: sr0\n"}) {
        world.file("/proc/sys/dev/cdrom/info", text);
        EXPECT_EQ(drives(257), "-1:");
    }
    world.file("/proc/sys/dev/cdrom/info", std::string(1 << 20, 'x') + "drive name: sr0 " + std::string(5000, 'y'));
    EXPECT_EQ(drives(256), "0: /dev/sr0/5 /dev/" + std::string(5000, 'y') + "/5");
}

TEST_F(Discovery, SoftwareRaidAndIscsiAreMarked) {
    world.disk({.name = "sda", .vendor = "IET", .model = "VIRTUAL-DISK"});
    world.disk({.name = "md0", .major = 9, .address = "1:0:0:0"});
    world.file("/proc/mdstat", "md0 : active raid1\n");
    EXPECT_EQ(drives(1 | 4 | 64), "0: /dev/sda/1 /dev/md0/2");
    EXPECT_EQ(drives(1 | 4), "0: /dev/sda/0 /dev/md0/0");
    EXPECT_EQ(drives(1 | 64), "0: /dev/sda/0 /dev/md0/2") << "without identity there is no model to tell";
    world.file("/proc/mdstat", "md1 : active raid1\n");
    EXPECT_EQ(drives(1 | 64), "-1:");
    EXPECT_EQ(text_of(TORVANE_ERROR_RAID), "Failed to add software raid partitions to list");
}

TEST_F(Discovery, TablesThatCannotBeRead) {
    world.disk({.name = "sda"});
    const auto fails = [&](const std::string &rows) {
        world.partition_rows(rows);
        EXPECT_EQ(drives(1), "-1:");
        return error();
    };
    EXPECT_EQ(fails("8 0 1 sda\nno row\n"), "failed to parse line 'no row\n'");
    EXPECT_EQ(fails("8 0 1 sda\n8 1 2\n"), "failed to parse line '8 1 2\n'");
    EXPECT_EQ(fails("\n"), "failed to parse line '\n'");
    EXPECT_EQ(fails("8 0 1 sda\n" + std::string(1 << 20, 'x')).size(), 253U);
    world.partition_rows("8 0 1 sda more words\n" + std::string("\0\n", 2) + "8 16 1 sdb\n");
    EXPECT_EQ(drives(1), "0: /dev/sda/0");
    for (const std::string text : {"", "one", "one\ntwo", "one\ntwo\n"}) {
        world.file("/proc/partitions", text);
        EXPECT_EQ(drives(1), "0:");
    }
    world.remove("/proc/partitions");
    EXPECT_EQ(drives(1), "-1:");
    EXPECT_EQ(error(), "failed to open /proc/partitions");
}

// A stream of /proc/partitions that ends in a failed read or a failed close.
struct BadTable {
    std::string rows;
    int end;
    int close;

    static ssize_t read(void *cookie, char *place, size_t size) {
        auto &table = *static_cast<BadTable *>(cookie);
        if (table.rows.empty()) return table.end;
        const size_t count = table.rows.copy(place, size);
        table.rows.erase(0, count);
        return static_cast<ssize_t>(count);
    }
    static int finish(void *cookie) { return static_cast<BadTable *>(cookie)->close; }
};

TEST_F(Discovery, StreamsThatFail) {
    struct {
        BadTable table;
        std::string words;
    } cases[] = {
        {{"header\n\n8 0 1 sda\n", 0, -1}, "failed to close /proc/partitions"},
        {{"header\n\n8 0 1 sda\n8 1", -1, 0}, "failed to read line 4"},
        {{"header\n\n8 0 1 sda\n", -1, -1}, "failed to read line 4"},
        {{"", -1, 0}, "failed to read line 1"},
        {{"header\n\nno row\n", -1, -1}, "failed to parse line 'no row\n'"},
    };
    world.disk({.name = "sda"});
    for (auto &c : cases) {
        int opened = 0;
        answers().fopen = [&](const char *path, const char *mode) -> std::optional<FILE *> {
            if (std::string(path) != "/proc/partitions") return std::nullopt;
            ++opened;
            return fopencookie(&c.table, mode, {BadTable::read, nullptr, nullptr, BadTable::finish});
        };
        EXPECT_EQ(drives(1 | 2), "-1:");
        EXPECT_EQ(error(), c.words);
        EXPECT_EQ(opened, 1) << "no second reading";
    }
}

TEST_F(Discovery, SizesAndPartitionsAreOfOneMoment) {
    world.disk({.name = "sda", .partitions = {{.size = 1 << 20}}});
    world.disk({.name = "sdb", .minor = 16, .address = "1:0:0:0"});
    const std::set<int> before = open_descriptors();
    answers().system = [&](const char *) {
        EXPECT_EQ(open_descriptors(), before) << "tools inherit no disk";
        world.partition_rows(
            "8 0 9 sda\n8 1 5 sda1\n8 2 3 sda2\n8 16 9 sdb\n"); // repartitioned while the tools are looked for
        return 1 << 8;
    };
    DriveList list = {};
    ASSERT_EQ(get_drives(&list, 1 | 2 | 64, nullptr, 0), 0);
    ASSERT_EQ(list.count, 2U);
    EXPECT_EQ(list.drives[0]->partitions.count, 2U);
    release_drives(&list);
}

// Limits on descriptors decide only how often a disk is opened.
TEST_F(Discovery, MoreDisksThanDescriptors) {
    for (unsigned i = 0; i < 40; ++i) {
        const std::string name = {'s', 'd', static_cast<char>('a' + i / 26), static_cast<char>('a' + i % 26)};
        world.disk({.name = name, .minor = i * 16, .serial = name, .address = std::to_string(i) + ":0:0:0"});
    }
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {.rlim_cur = 30, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    DriveList list = {};
    EXPECT_EQ(get_drives(&list, 1 | 2 | 4, nullptr, 0), 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_EQ(list.count, 40U);
    for (uint32_t i = 0; i < list.count; ++i) {
        EXPECT_STREQ(list.drives[i]->serial, list.drives[i]->name + 5);
        EXPECT_EQ(list.drives[i]->geometry_result, static_cast<uint32_t>(-8)) << "no rotation rate";
    }
    release_drives(&list);
}

} // namespace
