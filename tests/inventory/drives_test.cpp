#include "inventory/drives/drives.h"

#include "inventory/reading/device.h"
#include "inventory/reading/in_use.h"

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>

namespace {

using namespace inventory;
using namespace std::chrono_literals;

class Folder : public testing::Test {
  protected:
    Folder() { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
    ~Folder() override { std::filesystem::remove_all(path_); }
    [[nodiscard]] std::string at(const std::string &name) const { return path_ + "/" + name; }

    std::string path_ = "/tmp/drives_test.XXXXXX";
};

using Devices = Folder;
using Drives = Folder;
using InUse = Folder;

TEST_F(Devices, WhatIsNoDiskIsRefusedBeforeItIsOpened) {
    std::ofstream(at("file")) << "x";
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0); // opening it for reading would wait for ever
    struct Case {
        std::string path;
        std::string words;
    };
    const std::string neither = "neither a block device nor a SCSI generic node, but ";
    for (const auto &[path, words] :
         {Case{"/dev/null", neither + "a character device"}, Case{path_, neither + "a folder"},
          Case{at("file"), neither + "a plain file"}, Case{at("pipe"), neither + "a pipe"},
          Case{at("none"), "No such file or directory"}}) {
        EXPECT_EQ(why_no_device(path), words);
        EXPECT_EQ(open_device(path, "8:16").words, words);
    }
}

TEST_F(Devices, ANodeOfAnotherDeviceIsRefused) {
    // No driver of a stock kernel has major 1023, so that nothing answers.
    if (mknod(at("block").c_str(), S_IFBLK | 0600, makedev(1023, 7)) != 0) GTEST_SKIP() << "making nodes needs root";
    ASSERT_EQ(mknod(at("generic").c_str(), S_IFCHR | 0600, makedev(21, 3)), 0);
    EXPECT_EQ(why_no_device(at("block")), "");
    EXPECT_EQ(why_no_device(at("generic")), "");
    EXPECT_EQ(open_device(at("block"), "8:16").words, "the node has the number 1023:7, the device 8:16");
    const OpenDevice stale = open_device(at("block"), "1023:7");
    EXPECT_FALSE(stale.descriptor);
    EXPECT_NE(stale.error, 0);
}

Thing &drive(Machine &machine, const std::string &id, const std::string &path, const char *address) {
    Thing &thing = machine.add(ThingKind::kDrive, id);
    thing.tell("path", path, Source::kKernel);
    thing.tell("maj_min", std::string("8:16"), Source::kKernel);
    if (address != nullptr) thing.tell("hctl", std::string(address), Source::kKernel);
    return thing;
}

TEST_F(Drives, OneThatCannotBeOpenedKeepsItsRowWithTheReason) {
    if (geteuid() != 0) GTEST_SKIP() << "asking drives needs root";
    std::ofstream(at("file")) << "x";
    Machine machine;
    Thing &gone = drive(machine, "sda", at("none"), "0:0:0:0");
    Thing &strange = drive(machine, "sdb", at("file"), "0:0:1:0");
    Thing &silent = drive(machine, "nvme0n1", at("none"), nullptr);
    gone.tell("size", std::uint64_t{1}, Source::kKernel);
    read_drives(machine, {.limit = 20s, .defects = true, .state = true});
    EXPECT_EQ(gone.number("size"), 1U);
    for (const char *key : {"serial", "model", "rpm", "grown_defects", "permission"}) {
        ASSERT_NE(gone.fact(key), nullptr) << key;
        EXPECT_EQ(gone.fact(key)->reason, "No such file or directory");
    }
    ASSERT_EQ(gone.troubles.size(), 1U);
    EXPECT_EQ(gone.troubles[0].words, "failed to open: No such file or directory");
    EXPECT_EQ(gone.troubles[0].remedy, "the device may have been unplugged");
    ASSERT_EQ(strange.troubles.size(), 1U);
    EXPECT_NE(strange.troubles[0].words.find("but a plain file"), std::string::npos);
    EXPECT_TRUE(silent.troubles.empty()) << "an open NVMe drive tells no more than the kernel";
}

TEST_F(Drives, WhatADriveCannotHaveIsNotAskedFor) {
    struct Case {
        const char *transport;
        bool is_removable;
        bool is_optical;
        bool has_rotation;
        bool has_defects;
    };
    for (const auto &[transport, is_removable, is_optical, has_rotation, has_defects] :
         {Case{"sas", false, false, true, true}, Case{"sata", false, false, true, false},
          Case{"usb", true, false, false, false}, Case{"uas", false, false, true, false},
          Case{"sata", true, true, false, false}}) {
        Machine machine;
        Thing &thing = is_optical ? machine.add(ThingKind::kOptical, "sda") : machine.add(ThingKind::kDrive, "sda");
        drive(machine, "sda", at("none"), "0:0:0:0");
        thing.tell("tran", std::string(transport), Source::kKernel);
        thing.tell("removable", is_removable, Source::kKernel);
        read_drives(machine, {.limit = 20s, .defects = true});
        EXPECT_NE(thing.fact("serial"), nullptr);
        EXPECT_EQ(thing.fact("rpm") != nullptr, has_rotation) << transport;
        EXPECT_EQ(thing.fact("grown_defects") != nullptr, has_defects) << transport;
        EXPECT_EQ(thing.fact("permission"), nullptr) << "nobody wanted it";
    }
}

TEST_F(InUse, AMountInAnotherNamespaceIsSeen) {
    const std::string place = at("a place");
    ASSERT_TRUE(std::filesystem::create_directory(place));
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        char result = unshare(CLONE_NEWNS) == 0 && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                              mount("no disk", place.c_str(), "tmpfs", 0, nullptr) == 0
                          ? 'y'
                          : 'n';
        if (write(ready[1], &result, 1) != 1) _exit(1);
        pause();
    }
    char result = 0;
    ASSERT_EQ(read(ready[0], &result, 1), 1);
    const std::vector<ForeignMount> mounts = mounts_elsewhere();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    if (result != 'y') GTEST_SKIP() << "another mount namespace needs root";
    const auto found =
        std::find_if(mounts.begin(), mounts.end(), [&](const ForeignMount &mount) { return mount.place == place; });
    ASSERT_NE(found, mounts.end());
    EXPECT_EQ(found->source, "no disk");
    EXPECT_TRUE(found->process.starts_with(std::to_string(child) + " (")) << found->process;
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_NE(found->number, std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev)));
}

} // namespace
