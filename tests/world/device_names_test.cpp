#include "world.h"

#include "torvane.h"

using namespace torvane::world;

namespace {

using DeviceNames = WorldTest;

TEST_F(DeviceNames, GenericNodeOfADiskAndItsPartition) {
    world.disk({.name = "sdb", .minor = 16, .generic = 3, .partitions = {{.size = 1 << 20}}});
    char buffer[60] = "";
    EXPECT_EQ(get_scsi_generic_name("/dev/sdb1", sizeof buffer, buffer), 8);
    EXPECT_STREQ(buffer, "/dev/sg3");
    char *name = get_name_from_device_id(8, 17);
    EXPECT_STREQ(name, "sdb");
    free(name);
}

TEST_F(DeviceNames, FileSystemIdComesFromTheDeviceManager) {
    world.disk({.name = "sdb", .minor = 16, .partitions = {{.size = 1 << 20, .uuid = "1234-ABCD"}}});
    char *id = nullptr;
    EXPECT_EQ(get_file_system_id("sdb1", &id), 1);
    EXPECT_STREQ(id, "1234-ABCD");
    free(id);
    EXPECT_EQ(check_bad_filesystem("sdb1", nullptr, 1), 1);
    EXPECT_EQ(check_bad_filesystem("sdb1", nullptr, 0), 0);
    EXPECT_EQ(get_file_system_id("sdc", &id), 0);
}

TEST_F(DeviceNames, NoAllocationFailureLeavesAnything) {
    world.disk({.name = "sdb", .minor = 16, .generic = 3});
    char *name = nullptr;
    sweep_allocations(
        [&] {
            name = nullptr;
            return allocate_scsi_generic_name("/dev/sdb", &name);
        },
        [&](int result, bool failed) {
            EXPECT_EQ(result, failed ? -1 : 8);
            free(name);
        });
}

} // namespace
