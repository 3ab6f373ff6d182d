#include "inventory/drives/drives.h"

#include "tree.h"

#include "inventory/reading/device.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

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

TEST_F(Devices, WhatIsNoDiskIsRefusedBeforeItIsOpened) {
    std::ofstream(at("file")) << "x";
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0); // opening it for reading would wait for ever
    const std::string neither = "neither a block device nor a SCSI generic node, but ";
    for (const auto &[path, words] : {std::pair<std::string, std::string>("/dev/null", neither + "a character device"),
                                      {path_, neither + "a folder"},
                                      {at("file"), neither + "a plain file"},
                                      {at("pipe"), neither + "a pipe"},
                                      {at("none"), "No such file or directory"}}) {
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

TEST_F(Drives, WhatAttributesDoNotTellIsTroubleInAWorkerToo) {
    if (geteuid() != 0) GTEST_SKIP() << "asking drives needs root";
    const std::string unit = "/sys/devices/host9/target9:0:0/9:0:0:0";
    const tests::Tree tree("block " + unit + "/block/sdzz 135:16 2048\n" + unit +
                           "/block/sdzz/device -> ../../../9:0:0:0\n" + unit + "/rev/folder = no text\n");
    Machine machine;
    const KernelRequest kernel{false, {}, true};
    read_drives(machine, {.limit = 20s, .put_off = read_kernel(machine, kernel), .kernel = kernel});
    std::string words;
    for (const Trouble &trouble : machine.find("sdzz")->troubles) words += trouble.what + ": " + trouble.words + "\n";
    EXPECT_EQ(words, "rev: Is a directory\ndevice: failed to open: No such file or directory\n");
}

} // namespace
