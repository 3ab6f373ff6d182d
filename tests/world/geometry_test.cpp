#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <unistd.h>

#include <algorithm>

using namespace torvane::world;

namespace {

class Geometry : public WorldTest {
  protected:
    // "result: blocks x size, start, rotation, partition names with numbers and sizes".
    static std::string geometry(const std::string &path) {
        DriveRecord *drive = init_drive(path.c_str());
        const int result = get_drive_geometry(path.c_str(), drive);
        std::string text = std::to_string(result) + ": " + std::to_string(drive->block_count) + " x " +
                           std::to_string(drive->block_size) + ", " + std::to_string(drive->device_start) + ", " +
                           std::to_string(drive->rotation_speed) + partitions(drive->partitions);
        release_drive(drive);
        return text;
    }

    static std::string partitions(const PartitionList &list) {
        std::string text;
        for (uint32_t i = 0; i < list.count; ++i) {
            const PartitionRecord &entry = list.entries[i];
            text += std::string(" ") + (entry.name == nullptr ? "-" : entry.name) + "#" + std::to_string(entry.number) +
                    "=" + std::to_string(entry.size);
        }
        return text;
    }

    // What get_device_geometry() finds, the same way; sizes in place of partitions.
    static std::string device_geometry(int fd, const char *path) {
        uint64_t sizes[16] = {};
        DeviceGeometry g = {};
        g.reserved = 7;
        g.partition_sizes = sizes;
        const int result = get_device_geometry(fd, path, &g);
        std::string text = std::to_string(result) + ": " + std::to_string(g.block_count) + " x " +
                           std::to_string(g.block_size) + ", " + std::to_string(g.device_start) + ", " +
                           std::to_string(g.rotation_speed);
        for (uint32_t i = 0; i < g.partition_count; ++i) text += " " + std::to_string(sizes[i]);
        EXPECT_EQ(result == -64 ? 0U : g.reserved, 0U);
        return text;
    }

    Geometry() { category = TORVANE_ERROR_GEOMETRY; }
};

TEST_F(Geometry, RatesThatCount) {
    auto sda = world.disk({});
    const auto rotation = [&](const Bytes &page) {
        sda->pages[0xB1] = page;
        int32_t rate = 5;
        const int result = get_device_rotation(-1, "/dev/sda", &rate);
        return std::to_string(result) + " " + std::to_string(rate);
    };
    const auto page = [](unsigned char type, unsigned rate, unsigned char length = 60) {
        Bytes bytes = {type, 0xB1, 0, length, static_cast<unsigned char>(rate >> 8), static_cast<unsigned char>(rate)};
        bytes.resize(64);
        return bytes;
    };
    EXPECT_EQ(rotation(page(0, 5400)), "0 5400");
    EXPECT_EQ(rotation(page(0xE4, 1030)), "0 1030") << "write-once, with a qualifier";
    EXPECT_EQ(rotation(page(7, 65530)), "0 65530");
    EXPECT_EQ(rotation(page(0, 7201)), "0 -1");
    for (const unsigned none : {0U, 1U, 1024U, 65535U}) EXPECT_EQ(rotation(page(0, none)), "-8 -1") << none;
    EXPECT_EQ(rotation(page(5, 7200)), "-8 -1");
    EXPECT_EQ(rotation(page(0, 7200, 59)), "-8 -1");
    set_error_str(TORVANE_ERROR_GEOMETRY, "untouched");
    EXPECT_EQ(rotation({}), "-8 -1") << "an untouched reply is no disk's";
    EXPECT_EQ(rotation(Bytes(252, 0xFF)), "-8 -1");
    EXPECT_EQ(error(), "untouched");
    sda->pages.clear();
    int32_t rate = 5;
    EXPECT_EQ(said(get_device_rotation(-1, "/dev/sda", &rate)), "-8 failed to read disk RPM");
}

TEST_F(Geometry, EachFailingReaderAddsItsCode) {
    auto sda = world.disk({.generic = 0});
    sda->set_rotation(7200);
    sda->failing = {BLKGETSIZE64};
    EXPECT_EQ(geometry("/dev/sda"), "0: 2097152 x 512, 0, 7200") << "the count of 512-byte sectors will do";
    sda->failing = {BLKGETSIZE64, BLKGETSIZE};
    EXPECT_EQ(geometry("/dev/sda"), "-2: 0 x 512, 0, 7200");
    EXPECT_EQ(error(), "failed to read number of blocks");
    sda->failing = {HDIO_GETGEO};
    EXPECT_EQ(geometry("/dev/sda"), "-4: 2097152 x 512, 0, 7200");
    EXPECT_EQ(error(), "failed to read device start");
    sda->big_start = 99;
    EXPECT_EQ(geometry("/dev/sda"), "0: 2097152 x 512, 99, 7200");
    world.partition_rows("");
    EXPECT_EQ(geometry("/dev/sda"), "-16: 2097152 x 512, 99, 7200");
    EXPECT_EQ(error(), "failed to find '/dev/sda' in /proc/partitions");
    world.remove("/proc/partitions");
    EXPECT_EQ(device_geometry(-1, "/dev/sda"), "-16: 2097152 x 512, 99, 7200");
    EXPECT_EQ(error(), "failed to find '/dev/sda' in /proc/partitions");
    *sda = FakeDisk();
    sda->block_size = 0;
    sda->failing = {BLKGETSIZE64, BLKGETSIZE, HDIO_GETGEO};
    EXPECT_EQ(geometry("/dev/sda"), "-30: 0 x 0, 0, -1");
}

TEST_F(Geometry, WithoutABlockSizeTheGenericNodeIsAskedForItsWordsOnly) {
    auto sda = world.disk({.generic = 0, .partitions = {{.size = 1 << 20}}});
    sda->set_rotation(7200);
    sda->failing = {BLKSSZGET};
    EXPECT_EQ(geometry("/dev/sda"), "-1: 2097152 x 0, 0, 7200 /dev/sda1#1=1048576");
    EXPECT_EQ(error(), "failed to find '/dev/sg0' in /proc/partitions");
    EXPECT_EQ(std::ranges::count(answers().log, "sg0 BLKSSZGET") + std::ranges::count(answers().log, "sda BLKSSZGET"),
              4);
    world.remove("/dev/sg0");
    EXPECT_EQ(geometry("/dev/sda"), "-1: 2097152 x 0, 0, 7200 /dev/sda1#1=1048576");
    EXPECT_EQ(error(), "failed to open '/dev/sg0'");
    EXPECT_EQ(geometry("/dev/none"), "1: 0 x 0, 0, -1");
    EXPECT_EQ(error(), "failed to read generic name for '/dev/none'");
    DriveRecord *drive = init_drive("/dev/none");
    ASSERT_EQ(add_partition("sda1", 1, &drive->partitions, &drive->partitions.entries), 0);
    EXPECT_EQ(get_drive_geometry("/dev/none", drive), 1);
    EXPECT_EQ(partitions(drive->partitions), " /dev/sda1#1=1024") << "untouched by a failed open";
    release_drive(drive);

    EXPECT_EQ(device_geometry(-1, "/dev/sda"), "-32: 2097152 x 0, 0, 7200 1048576");
    world.link("/sys/class/scsi_generic/sg7/device/block", "../../../block/sdb");
    world.device("/dev/sg7", 21, 7, true)->block_size.reset();
    world.device("/dev/sdb", 8, 16)->block_size = 2048;
    world.partition_rows("   8  16  100 sdb\n");
    EXPECT_EQ(device_geometry(-1, "/dev/sg7"), "-24: 524288 x 2048, 0, -1") << "the block device behind it";
    EXPECT_EQ(device_geometry(-1, nullptr), "-64: 0 x 0, 0, 0");
    EXPECT_EQ(device_geometry(-1, "/dev/none"), "-62: 0 x 0, 0, -1");
}

TEST_F(Geometry, TablesOfEveryShape) {
    const auto found = [&](const char *path) {
        PartitionList list = {};
        const int result = get_partitions(path, &list);
        std::string text = std::to_string(result) + partitions(list);
        for (uint32_t i = 0; i < list.count; ++i) free(list.entries[i].name);
        free(list.entries);
        return text;
    };
    world.partition_rows("8 0 100 sda\n8 1 3 sda1\n8 5 7 sda5\n8 16 100 sdb\n8 2 9 sda2\n 65 160 9 sdaa\n");
    EXPECT_EQ(found("/dev/sda"), "0 /dev/sda1#1=3072 /dev/sda5#2=7168") << "rows further down are not the disk's";
    EXPECT_EQ(found("/dev/sdb"), "0");
    EXPECT_EQ(found("/dev/sda1"), "0") << "a partition has none below it";
    EXPECT_EQ(found("/dev/sd"), "-16");
    EXPECT_EQ(found(""), "-16");
    EXPECT_EQ(found("///"), "-16");
    world.partition_rows("8 0 100 sda\n8 0 100 sda\n8 1 3 sda1\n");
    EXPECT_EQ(found("/dev/sda"), "0") << "a second row of the same name ends the disk";
    world.partition_rows("8 16 1 sdb\nno row\n8 17 2\n8 x 2 sdb2\n\n8 18 18446744073709551615 sdb3\n8 19 4 sdb4 more");
    EXPECT_EQ(found("/dev/sdb"), "0 /dev/sdb3#1=18446744073709550592 /dev/sdb4#2=4096");
    world.file("/proc/partitions", std::string("\0\0\0\n8 0 1 sda\n", 14));
    EXPECT_EQ(found("/dev/sda"), "-16") << "a line that begins with a NUL ends the reading";
    world.remove("/proc/partitions");
    PartitionList list = {};
    EXPECT_EQ(said(get_partition("sda", &list)), "-1 failed to open /proc/partitions to read partition information");
}

TEST_F(Geometry, Printed) {
    uint64_t sizes[] = {1024, 2048};
    DeviceGeometry g = {.block_count = 8,
                        .device_start = 63,
                        .block_size = 512,
                        .rotation_speed = -1,
                        .partition_count = 0,
                        .reserved = 0,
                        .partition_sizes = sizes};
    testing::internal::CaptureStdout();
    print_geometry(&g);
    g.rotation_speed = 7200;
    g.partition_count = 2;
    const int last = print_geometry(&g);
    const std::string head = "Block Count:    8\nBlock Size:     512\nDevice Start:   63\nRotation Speed: ";
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text, head + "N/A\n" + head + "7200\nPartition Information:\nPartition 0: size = 1024\n" +
                        "Partition 1: size = 2048\n");
    EXPECT_EQ(last, 25);
}

class Defects : public WorldTest {
  protected:
    Defects() { category = TORVANE_ERROR_DEFECTS; }

    std::shared_ptr<FakeDisk> sda_ = world.disk({});

    std::string counted() {
        answers().log.clear();
        DefectCounts d = {};
        const int result = get_device_defects(-1, "/dev/sda", &d);
        return std::to_string(result) + ": " + std::to_string(d.manufacturer_defects) + "/" +
               std::to_string(d.manufacturer_defect_bytes) + " " + std::to_string(d.grown_defects) + "/" +
               std::to_string(d.grown_defect_bytes);
    }

    static std::string commands() {
        std::string text;
        for (const std::string &line : answers().log) text += line.substr(std::string("sda SG_IO ").size()) + "\n";
        return text;
    }
};

TEST_F(Defects, ListsOfEveryLength) {
    EXPECT_EQ(counted(), "-3: -1/0 -1/0") << "not supported";
    EXPECT_EQ(error(), "failed to read grown defect capacity");
    sda_->primary_defects = {.bytes = 0};
    sda_->grown_defects = {.bytes = 24};
    EXPECT_EQ(counted(), "0: 0/0 3/24");
    EXPECT_EQ(commands(),
              "37 00 14 00 00 00 00 00 04 00\n37 00 0c 00 00 00 00 00 04 00\n37 00 0c 00 00 00 00 00 1c 00\n");
    sda_->primary_defects = {.bytes = 40, .format = 0};
    sda_->grown_defects = {.bytes = 65520};
    EXPECT_EQ(counted(), "0: 10/40 8190/65520");
    DriveRecord drive = {};
    EXPECT_EQ(get_drive_defects("/dev/sda", &drive), 0);
    EXPECT_EQ(drive.manufacturer_defects, 10);
    EXPECT_EQ(drive.manufacturer_defect_bytes, 40U);
    EXPECT_EQ(drive.grown_defects, 8190);
    EXPECT_EQ(drive.grown_defect_bytes, 65520U);
    sda_->primary_defects = {.bytes = 65524};
    sda_->grown_defects = {.bytes = 80000};
    EXPECT_EQ(counted(), "0: 8190/65524 10000/80000");
    // Where the longer command, its 32-bit length and its longest allocation begin and end.
    const std::string long_length = "b7 0c 00 00 00 00 00 00 00 08 00 00\n";
    sda_->primary_defects.reset();
    for (const auto &[bytes, reads] : {std::pair<uint32_t, std::string>(65520, "37 00 0c 00 00 00 00 ff f4 00\n"),
                                       {65521, "b7 0c 00 00 00 00 00 00 ff f9 00 00\n"},
                                       {65528, long_length + "b7 0c 00 00 00 00 00 01 00 00 00 00\n"},
                                       {0xFFFFF7, long_length + "b7 0c 00 00 00 00 00 ff ff ff 00 00\n"},
                                       {0xFFFFF8, long_length + "37 00 0c 00 00 00 00 ff fc 00\n"}}) {
        sda_->grown_defects = {.bytes = bytes};
        EXPECT_EQ(counted(), "-1: -1/0 " + std::to_string(bytes / 8) + "/" + std::to_string(bytes));
        EXPECT_EQ(commands(), "37 00 14 00 00 00 00 00 04 00\n37 00 0c 00 00 00 00 00 04 00\n" + reads);
    }
    sda_->grown_defects = {.bytes = 0x2000000};
    EXPECT_EQ(counted(), "-1: -1/0 4194304/33554432") << "too long for any allocation length, but its size is told";
    sda_->answer = [](const Bytes &cdb) -> std::optional<Reply> {
        if (cdb[0] == 0xB7) return Reply{.data = {}, .status = 2};
        return std::nullopt;
    };
    EXPECT_EQ(counted(), "-1: -1/0 8191/65528") << "what the 10-byte command can hold";
}

TEST_F(Defects, RepliesThatCannotBeTrue) {
    const auto with = [&](const Bytes &header) {
        sda_->answer = [=](const Bytes &) -> std::optional<Reply> { return Reply{.data = header}; };
        return counted();
    };
    for (const Bytes &header : {Bytes(), Bytes(4, 0), Bytes(4, 0xFF), Bytes({1, 0x14, 0, 8})}) {
        EXPECT_EQ(with(header), "-3: -1/0 -1/0");
        EXPECT_EQ(error(), "invalid header for grown defect list");
    }
    EXPECT_EQ(with({0, 0x0C}), "-1: -1/0 0/0") << "the other list's header";
    EXPECT_EQ(error(), "invalid header for primary(manufacturer) defect list");
    EXPECT_EQ(with({0, 0x14, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), "-2: 8191/65528 -1/0");
    EXPECT_EQ(with({0, 0x14, 0, 8}), "-2: 1/8 -1/0");
    sda_->answer = [](const Bytes &cdb) -> std::optional<Reply> {
        const bool is_header = cdb[0] == 0xB7 ? cdb[8] == 0 && cdb[9] == 8 : cdb[8] == 4;
        if (!is_header) return Reply{.data = {}, .status = 2};
        return Reply{.data = {0, static_cast<unsigned char>(cdb[0] == 0xB7 ? cdb[1] : cdb[2]), 0, 16}};
    };
    EXPECT_EQ(counted(), "-3: -1/0 -1/0");
    EXPECT_EQ(error(), "failed to read grown defect count");
    DriveRecord drive = {};
    EXPECT_EQ(said(get_drive_defects("/dev/none", &drive)), "1 failed to open '/dev/none'");
}

TEST_F(Defects, WithoutMemoryTheHeaderMustDo) {
    sda_->primary_defects = {.bytes = 0x90000};
    sda_->grown_defects = {.bytes = 16, .format = 0};
    const int fd = open("/dev/sda", O_RDONLY);
    DefectCounts d = {};
    int result = 1;
    without_each_allocation([&] { result = get_device_defects(fd, nullptr, &d); },
                            [&](const Trial &trial) {
                                EXPECT_EQ(result, 0);
                                EXPECT_TRUE(d.manufacturer_defects == 0x90000 / 8 ||
                                            (trial.failed && d.manufacturer_defect_bytes == 4));
                                EXPECT_EQ(d.grown_defects * 4, static_cast<int>(d.grown_defect_bytes));
                                EXPECT_TRUE(d.grown_defect_bytes == 16 || (trial.failed && d.grown_defect_bytes == 4));
                            });
    close(fd);
}

TEST_F(Defects, Printed) {
    testing::internal::CaptureStdout();
    DefectCounts d = {
        .manufacturer_defects = -1, .manufacturer_defect_bytes = 0, .grown_defects = 3, .grown_defect_bytes = 24};
    EXPECT_EQ(print_defects(&d), 43);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Manufacturer Defects: N/A\nGrown Defects:        3 entries (24 bytes)\n");
}

} // namespace
