#include "usb.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

using namespace torvane::world;

namespace {

class Mounting : public UsbTest {
  protected:
    Mounting() { category = TORVANE_ERROR_MOUNT; }

    // Mounts by serial number; the directory, or the error.
    std::string mounted(const char *serial) {
        char *directory = nullptr;
        commands.clear();
        if (create_and_mount_in_temp_dir(serial, &directory) != 0) {
            EXPECT_EQ(directory, nullptr);
            return error();
        }
        std::string path = directory;
        free(directory);
        return path;
    }

    void expect_nothing_left() { EXPECT_EQ(world.leftovers(), std::vector<std::string>()); }
};

TEST_F(Mounting, AStickIsMountedBesideItsNodesAndUnmountedWithoutATrace) {
    plug_in({});
    plug_in({.port = 2,
             .serial = "PARTS",
             .units = {{.name = "sdc", .minor = 32, .node = false, .partitions = {{.size = 512}, {.size = 512}}}}});
    const std::string whole = mounted("USB");
    ASSERT_TRUE(whole.starts_with("/tmp/torvane.")) << whole;
    EXPECT_EQ(commands, std::vector{"mount -o nosuid,ro " + whole + "/sdb " + whole + "/sdb_mount"});
    struct stat status = {};
    ASSERT_EQ(stat((whole + "/sdb_mount").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_EQ(is_mounted((whole + "/sdb_mount").c_str()), 1);
    EXPECT_EQ(is_mounted((whole + "/sdb_mount/").c_str()), 0) << "compared as it was given";
    EXPECT_EQ(is_mounted((whole + "/sdb").c_str()), 0);

    const std::string parts = mounted("PARTS");
    EXPECT_EQ(names_in(parts), (std::vector<std::string>{"sdc", "sdc1", "sdc1_mount", "sdc2", "sdc2_mount"}));
    EXPECT_EQ(commands, (std::vector{"mount -o nosuid,ro " + parts + "/sdc1 " + parts + "/sdc1_mount",
                                     "mount -o nosuid,ro " + parts + "/sdc2 " + parts + "/sdc2_mount"}));
    commands.clear();
    EXPECT_EQ(remove_and_umount_in_temp_dir(parts.c_str()), 0);
    std::ranges::sort(commands);
    EXPECT_EQ(commands, (std::vector{"umount " + parts + "/sdc1_mount", "umount " + parts + "/sdc2_mount"}));
    EXPECT_EQ(remove_and_umount_in_temp_dir(whole.c_str()), 0);
    expect_nothing_left();
}

TEST_F(Mounting, ABusyMountStaysAndCanBeTriedAgain) {
    plug_in({.units = {{.partitions = {{.size = 512}, {.size = 512}}}}});
    const std::string directory = mounted("USB");
    ASSERT_TRUE(directory.starts_with("/tmp/torvane.")) << directory;
    statuses["umount " + directory + "/sdb1_mount"] = 32 << 8;
    EXPECT_EQ(umount_directory((directory + "/sdb1_mount").c_str()), -1);
    EXPECT_EQ(error(), "failed to umount " + directory + "/sdb1_mount: 32");
    EXPECT_EQ(remove_and_umount_in_temp_dir(directory.c_str()), -1);
    EXPECT_TRUE(error().starts_with("failed to unmount '" + directory + "/sdb1_mount': "));
    EXPECT_EQ(is_mounted((directory + "/sdb1_mount").c_str()), 1);
    EXPECT_EQ(is_mounted((directory + "/sdb2_mount").c_str()), 0) << "the walk went on";
    statuses.clear();
    world.file(directory + "/.hidden", "");
    EXPECT_EQ(said(remove_and_umount_in_temp_dir(directory.c_str())), "-1 failed to remove a directory");
    EXPECT_EQ(names_in(directory), std::vector<std::string>{".hidden"});
    unlink((directory + "/.hidden").c_str());
    EXPECT_EQ(remove_and_umount_in_temp_dir(directory.c_str()), 0);
    expect_nothing_left();
}

TEST_F(Mounting, WhatCannotBeMountedLeavesNothing) {
    plug_in({.units = {{.partitions = {{.size = 512}, {.size = 512}}}}});
    plug_in({.port = 2, .serial = "IDLE", .units = {{.bound = false}}});
    plug_in({.port = 3,
             .serial = "BAD",
             .units = {{.name = "sdd", .minor = 48, .partitions = {{.size = 512}}, .uuid = "W"}}});
    EXPECT_EQ(mounted("none"), "unable to read info or no scsi devices found (NULL)");
    EXPECT_EQ(mounted(nullptr), "unable to read info or no scsi devices found (NULL)");
    EXPECT_EQ(create_and_mount_in_temp_dir("USB", nullptr), -1);
    EXPECT_EQ(mounted("IDLE"), "IDLE is not bound to its driver");
    EXPECT_EQ(mounted("BAD"), "USB Stick has a bad filesystem.  Filesystem on root of device, and partitions");
    // What system() returns: exit code 32, a signal, a shell that could not be started.
    for (const auto &[status, code] : {std::pair(32 << 8, ": 32"), std::pair(9, ": 0"), std::pair(-1, ": 255")}) {
        statuses["mount "] = status;
        const std::string text = mounted("USB");
        EXPECT_TRUE(text.starts_with("failed to mount /tmp/torvane.")) << text;
        EXPECT_TRUE(text.ends_with(code)) << text;
        EXPECT_EQ(commands.size(), 1U) << "the second partition is not tried";
    }
    answers().mknod = [this, calls = 0](const char *path, mode_t mode, dev_t number) mutable -> std::optional<int> {
        if (std::string_view(path).ends_with("sdb2")) return -1;
        world.file(path, std::to_string(mode + number + static_cast<unsigned>(calls++)));
        return 0;
    };
    EXPECT_EQ(mounted("USB"), "failed to add device nodes to temporary directory");
    expect_nothing_left();
}

TEST_F(Mounting, MountPointsAreFoundAmongLongAndEscapedLines) {
    world.directory("/tmp/two words");
    EXPECT_EQ(is_mounted("/tmp/two words"), 1) << "the table has it escaped";
    world.directory("/tmp/one");
    EXPECT_EQ(is_mounted("/tmp/one"), 0);
    EXPECT_EQ(umount_directory("/tmp/one"), 0);
    EXPECT_EQ(commands, std::vector<std::string>()) << "nothing is run for what is not mounted";
    EXPECT_EQ(mount_device("/tmp/node", "/tmp/one"), 0);
    EXPECT_EQ(is_mounted("/tmp/one"), 1);
    world.remove("/tmp/one");
    EXPECT_EQ(is_mounted("/tmp/one"), 0) << "a path that does not exist";
    world.remove("/proc/mounts");
    EXPECT_EQ(is_mounted("/tmp"), 0);
    EXPECT_EQ(is_mounted(nullptr), 0);
}

TEST_F(Mounting, DirectoriesThatAreMissingOrNull) {
    EXPECT_EQ(mount_all_devices("/tmp/missing"), 0);
    EXPECT_EQ(said(umount_all("/tmp/missing")), "-1 unable to open directory '/tmp/missing'");
    EXPECT_EQ(said(umount_all(nullptr)), "-1 unable to read location (NULL)");
    EXPECT_EQ(said(remove_all_from(nullptr)), "-1 unable to read dir (NULL)");
    EXPECT_EQ(mount_device_to_temp_dir("sdb", "/tmp/missing"), -1);
    EXPECT_EQ(error(), "failed to mkdir /tmp/missing/sdb_mount: No such file or directory");
    EXPECT_EQ(said(mount_device(nullptr, "/tmp")), "-1 unable to read device or mount point (NULL)");
    world.file("/tmp/full/inner/file", "");
    world.file("/tmp/full/plain", "");
    world.directory("/tmp/full/.hidden");
    mounts = {"/tmp/full/plain", "/tmp/full/inner", "/tmp/full/.hidden"};
    write_mounts();
    EXPECT_EQ(umount_all("/tmp/full"), 0);
    EXPECT_EQ(commands, std::vector<std::string>{"umount /tmp/full/inner"}) << "directories that are not hidden only";
    EXPECT_EQ(said(remove_all_from("/tmp/full")), "-1 failed to remove a directory");
    EXPECT_EQ(names_in("/tmp/full"), (std::vector<std::string>{".hidden", "inner"}));
}

} // namespace
