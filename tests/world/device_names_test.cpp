#include "places.h"
#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

using namespace torvane::world;

namespace {

class DeviceNames : public WorldTest {
  protected:
    DeviceNames() { category = TORVANE_ERROR_SYSFS; }

    // Result and text of the readers that fill a buffer; "kept" is what the buffer held before.
    template <class Reader> static std::string filled(Reader reader, const char *path, size_t size = 60) {
        std::array<char, 200> buffer = {'k', 'e', 'p', 't'};
        const int result = reader(path, size, buffer.data());
        return std::to_string(result) + " " + buffer.data();
    }

    static std::string name_of(uint32_t major, uint32_t minor) { return taken(get_name_from_device_id(major, minor)); }

    static std::string file_system_id(const char *name) {
        char *id = nullptr;
        const int result = get_file_system_id(name, &id);
        return std::to_string(result) + " " + taken(id);
    }
};

TEST_F(DeviceNames, DiskOfADeviceNumber) {
    world.disk({.name = "sda", .partitions = {{.size = 1 << 20}}});
    world.disk({.name = "nvme0n1", .major = 259, .address = "1:0:0:0", .partitions = {{.size = 1 << 20}}});
    world.link("/sys/dev/block/8:32", "../../devices/sdc/");
    world.link("/sys/dev/block/8:48", "/");
    EXPECT_EQ(name_of(8, 0), "sda");
    EXPECT_EQ(name_of(8, 1), "sda");
    EXPECT_EQ(name_of(259, 0), "nvme0n1");
    EXPECT_EQ(name_of(259, 1), "nvme0n1p");
    EXPECT_EQ(name_of(8, 32), "sdc");
    EXPECT_EQ(name_of(8, 48), "");
    EXPECT_EQ(name_of(8, 16), "-");
    EXPECT_EQ(error(), "failed to read link of '/sys/dev/block/8:16'");
    EXPECT_EQ(name_of(UINT32_MAX, INT32_MAX), "-");
}

TEST_F(DeviceNames, GenericNodeOfABlockDevice) {
    world.disk({.name = "sdb", .minor = 16, .generic = 3, .partitions = {{.size = 1 << 20}}});
    world.directory("/sys/block/sdc/device");
    world.file("/sys/block/sdd/device/generic", "no link");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdb"), "8 /dev/sg3");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdb12"), "8 /dev/sg3");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdb", 35), "8 /dev/sg3");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdb", 28), "0 kept") << "too small for the link's path";
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdc"), "0 kept");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdd"), "-1 kept");
    EXPECT_EQ(error(), "failed to resolve link '/sys/block/sdd/device/generic' (Invalid argument)");
    EXPECT_EQ(filled(get_scsi_generic_name, nullptr), "-1 kept");
    EXPECT_EQ(filled(get_scsi_generic_name, "/dev/sdb", 0), "-1 kept");

    char *name = nullptr;
    EXPECT_EQ(allocate_scsi_generic_name("/dev/sdb1", &name), 8);
    EXPECT_STREQ(name, "/dev/sg3");
    free(name);
    EXPECT_EQ(allocate_scsi_generic_name("/dev/sdc", &name), -1);
    EXPECT_EQ(error(), "failed to resolve link '(null)' (No such file or directory)");
    EXPECT_EQ(allocate_scsi_generic_name("", &name), -1);
    EXPECT_EQ(allocate_scsi_generic_name(std::string(5000, 'x').c_str(), &name), -1);
}

TEST_F(DeviceNames, BlockDeviceOfAGenericNode) {
    const std::string generic = "/sys/class/scsi_generic/";
    world.link(generic + "sg0/device/block", "../../../block/sda");
    world.link(generic + "sg1/device/block:sdb", "../../../block/sdb");
    world.link(generic + "sg2/device/blocked", "elsewhere");
    world.disk({.name = "sdd", .generic = 3}); // current kernels have a directory here
    EXPECT_EQ(filled(get_name_from_generic, "/dev/sg0"), "8 /dev/sda");
    EXPECT_EQ(filled(get_name_from_generic, "sg1"), "8 /dev/sdb");
    EXPECT_EQ(filled(get_name_from_generic, "/dev/sg0", 8), "6 /dev/s") << "cut at the size less one";
    EXPECT_EQ(filled(get_name_from_generic, "/dev/sda"), "0 kept");
    for (const char *path : {"/dev/sg2", "/dev/sg9"}) {
        EXPECT_EQ(filled(get_name_from_generic, path), "-1 kept");
        EXPECT_EQ(error(), "failed to find 'block' file in '" + generic + (path + 5) + "/device'");
    }
    EXPECT_EQ(filled(get_name_from_generic, "/dev/sg3"), "-1 kept");
    EXPECT_EQ(error(), "failed to resolve link '/sys/class/scsi_generic/sg3/device/block' (Invalid argument)");
    EXPECT_EQ(filled(get_name_from_generic, ("/dev/sg" + std::string(4200, '1')).c_str()), "-1 kept");
}

TEST_F(DeviceNames, PathOfADescriptor) {
    world.device("/dev/sda", 8, 0);
    const int fd = open("/dev/sda", O_RDONLY);
    std::array<char, 60> buffer{};
    EXPECT_EQ(get_name_from_fd(fd, buffer.data(), buffer.size()), 8);
    EXPECT_STREQ(buffer.data(), "/dev/sda");
    EXPECT_EQ(get_name_from_fd(fd, buffer.data(), 5), 8);
    EXPECT_STREQ(buffer.data(), "/dev");
    close(fd);
    set_error_str(TORVANE_ERROR_SYSFS, "untouched");
    EXPECT_EQ(get_name_from_fd(fd, buffer.data(), buffer.size()), -1);
    EXPECT_EQ(said(get_name_from_fd(-1, buffer.data(), buffer.size())), "-1 untouched");
}

TEST_F(DeviceNames, FileSystemIdComesFromTheDeviceManager) {
    EXPECT_EQ(file_system_id("sdb"), "-1 -") << "no block devices at all";
    world.disk({.name = "sdb", .minor = 16, .partitions = {{.size = 1 << 20, .uuid = "1234-ABCD"}}});
    world.disk({.name = "sdc", .minor = 32, .address = "1:0:0:0", .uuid = "whole-disk"});
    EXPECT_EQ(file_system_id("sdb1"), "1 1234-ABCD");
    EXPECT_EQ(file_system_id("sdb"), "1 -") << "the disk's own, not its partition's";
    EXPECT_EQ(file_system_id("sd"), "1 -") << "the first device with this beginning";
    EXPECT_EQ(file_system_id("sdc1"), "0 -");
    EXPECT_EQ(check_bad_filesystem("sdb1", nullptr, 1), 1);
    EXPECT_EQ(check_bad_filesystem("sdc", nullptr, -1), 1);
    EXPECT_EQ(check_bad_filesystem("sdb", nullptr, 1), 0);
    EXPECT_EQ(check_bad_filesystem("sdb1", nullptr, 0), 0);
    EXPECT_EQ(check_bad_filesystem(nullptr, nullptr, 1), -1);
}

} // namespace
