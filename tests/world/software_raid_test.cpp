#include "world.h"

#include "torvane.h"

#include <algorithm>
#include <cstring>

using namespace torvane::world;

namespace {

class SoftwareRaid : public WorldTest {
  protected:
    // "result: names", in their order.
    static std::string arrays() {
        char **names = nullptr;
        uint32_t count = 7;
        std::string text = std::to_string(get_sw_raid_names(&names, &count)) + ":";
        for (uint32_t i = 0; i < count; ++i) text += std::string(" ") + names[i];
        release_partition_names(names, &count);
        return text;
    }

    SoftwareRaid() { category = TORVANE_ERROR_RAID; }
};

constexpr const char *kHead = "Personalities : [raid1] [raid6]\n";
constexpr const char *kTail = "unused devices: <none>\n";

TEST_F(SoftwareRaid, ArraysAndTheirPartitions) {
    world.file("/sys/block/md0/md0p1/partition", "1\n");
    world.directory("/sys/block/md0/queue");
    world.file("/sys/block/md0/size", "1\n");
    world.link("/sys/block/md0/md0p9", "md0p1");
    world.directory("/sys/block/md1");
    world.file("/proc/mdstat", std::string(kHead) +
                                   "md0 : active raid1 sdb1[1] sda1[0]\n      1000 blocks [2/2] [UU]\n"
                                   "      bitmap: 0/1 pages [0KB], 65536KB chunk\n\n"
                                   "md1 : active raid0 sdc[0]\n      1000 blocks super 1.2\n\n" +
                                   kTail);
    EXPECT_EQ(arrays(), "0: /dev/md0 /dev/md0p1 /dev/md1");
}

TEST_F(SoftwareRaid, WithoutAnyArray) {
    EXPECT_EQ(arrays(), "0:");
    EXPECT_EQ(error(), "failed to open '/proc/mdstat'");
    for (const std::string &text :
         {std::string(), std::string(kHead) + kTail, std::string("\n\n \n"), std::string("\0x\n", 3)}) {
        world.file("/proc/mdstat", text);
        EXPECT_EQ(arrays(), "0:");
    }
    world.file("/proc/mdstat", "md5 : active raid1\n");
    EXPECT_EQ(arrays(), "-1:");
    EXPECT_EQ(error(), "Failed to add software raid partitions to list");
    world.file("/proc/mdstat", "\r\n");
    EXPECT_EQ(arrays(), "-1:");
    EXPECT_EQ(error(), "failed to parse line '\r\n' '/proc/mdstat'");
    world.remove("/proc/mdstat");
    world.directory("/proc/mdstat");
    EXPECT_EQ(arrays(), "-1:");
    world.remove("/proc/mdstat");
    world.file("/proc/mdstat", std::string(1 << 20, 'm') + " : active\n");
    EXPECT_EQ(arrays(), "-1:");
}

TEST_F(SoftwareRaid, PartitionsOfADisk) {
    world.disk({.name = "sda", .partitions = {{.size = 1 << 20}, {.size = 1 << 20}}});
    world.file("/sys/block/sda/sda-like", "");
    char **names = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(get_partition_names(&names, &count, "sda"), 0);
    std::vector<std::string> found(names, names + count);
    std::ranges::sort(found);
    EXPECT_EQ(found, (std::vector<std::string>{"sda-like", "sda1", "sda2"}));
    release_partition_names(names, &count);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(get_partition_names(&names, &count, "sdz"), -1);
    count = 3;
    EXPECT_EQ(get_partition_names(&names, &count, nullptr), -1);
    EXPECT_EQ(count, 0U);
    release_partition_names(nullptr, &count);

    EXPECT_EQ(is_partition("sda1"), 1);
    EXPECT_EQ(is_partition("sda"), 0);
    EXPECT_EQ(is_partition(nullptr), -1);
    char name[] = "sda12";
    EXPECT_EQ(get_device_name_from_partition(name), 0);
    EXPECT_STREQ(name, "sda12") << "no partition of that name";
    name[4] = '\0';
    EXPECT_EQ(get_device_name_from_partition(name), 0);
    EXPECT_STREQ(name, "sda");
    EXPECT_EQ(get_device_name_from_partition(nullptr), -1);
    EXPECT_EQ(get_device_name_from_partition_new(nullptr), nullptr);
}

} // namespace
