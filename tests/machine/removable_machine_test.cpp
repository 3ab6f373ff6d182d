// USB mass storage of an emulated machine: what the library says and does, seen with the kernel's own tools.
// Runs in the machine `usb`.
#include "readers.h"
#include "torvane.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace truth;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char *kPlugIn =
    "monitor device_add usb-storage,id=spare_stick,drive=spare,bus=xhci.0,removable=on,serial=SPARE0001";
constexpr const char *kPullOut = "monitor device_del spare_stick";

std::set<std::string> open_descriptors() {
    std::set<std::string> open;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the directory's own
        const std::string target = fs::read_symlink(entry.path(), gone);
        if (!gone && !target.ends_with("/fd")) open.insert(entry.path().filename().string() + target);
    }
    return open;
}

std::vector<std::string> leftovers() {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with("torvane.")) names.push_back(entry.path());
    }
    return names;
}

struct ReleaseMedia {
    void operator()(MediaRecord *media) const { release_media(media); }
};
using Media = std::unique_ptr<MediaRecord, ReleaseMedia>;

class RemovableMachine : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_EQ(leftovers(), std::vector<std::string>());
        EXPECT_EQ(output_of("grep -c /tmp/torvane /proc/mounts"), "0");
    }

    static Media look_up(const std::string &serial) { return Media(get_usb_mass_storage_device(serial.c_str())); }

    static void plug_in_spare() {
        ASSERT_EQ(std::system(kPlugIn), 0);
        ASSERT_TRUE(holds_soon([] { return !node_of("SPARE0001").empty(); }));
        output_of("udevadm settle");
    }
    // Once the kernel's driver has let go of it.
    static void expect_spare_gone() {
        EXPECT_TRUE(holds_soon(
            [] { return output_of("cat /sys/bus/usb/devices/*/serial").find("SPARE") == std::string::npos; }));
        EXPECT_EQ(look_up("SPARE0001"), nullptr);
    }

  private:
    std::set<std::string> descriptors_ = open_descriptors();
};

TEST_F(RemovableMachine, ListsWhatTheKernelLists) {
    MediaList list = empty_media_list;
    ASSERT_EQ(get_usb_mass_storage_devices(&list), 0) << get_error_str(TORVANE_ERROR_DEVICE);
    std::multiset<std::string> sticks;
    for (uint32_t i = 0; i < list.count; ++i) {
        const MediaRecord &media = list.media[i];
        SCOPED_TRACE(media.serial);
        if (media.status != USB_STATUS_DEVICE || media.devices.devices[0].type != SCSI_TYPE_DISK) continue;
        sticks.insert(media.serial);
        const ScsiDeviceInfo &device = media.devices.devices[0];
        EXPECT_STREQ(device.serial, media.serial);
        EXPECT_EQ(device.state, static_cast<uint32_t>(STATE_NODE));
        EXPECT_EQ(
            std::string(device.name) + " " + device.address + " " + std::to_string(device.size * 512) + " " +
                media.serial + " " + device.model,
            output_of("lsblk -bdno NAME,HCTL,SIZE,SERIAL,VENDOR,MODEL /dev/" + std::string(device.name) + " | xargs"));
    }
    release_media_list(&list);
    EXPECT_EQ(sticks, (std::multiset<std::string>{"4C5300012301", "4C530001230101", "4C530001230102", "BARE0001",
                                                  "EXTENDED0001", "HANGING0001", "PARTED0001"}));
    const Media one = look_up("4C530001230102");
    ASSERT_TRUE(one);
    EXPECT_STREQ(one->serial, "4C530001230102");
}

TEST_F(RemovableMachine, TheCardReaderIsOneAdapterAndItsSlotsAreThemselves) {
    const Media reader = look_up("READER0001");
    ASSERT_TRUE(reader);
    ASSERT_EQ(reader->devices.count, 2U);
    EXPECT_EQ(get_usb_status(reader.get()), static_cast<uint32_t>(USB_STATUS_ADAPTER));
    for (uint32_t i = 0; i < 2; ++i) {
        const ScsiDeviceInfo &slot = reader->devices.devices[i];
        const std::string address = slot.address;
        EXPECT_EQ(slot.model, "CARD SLOT " + address.substr(address.size() - 1));
        EXPECT_EQ(slot.name, output_of("ls /sys/bus/scsi/devices/" + address + "/block"));
    }
    DriveList drives = {};
    ASSERT_EQ(get_drives(&drives, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_USB, nullptr, 0), 0);
    int adapters = 0;
    for (uint32_t i = 0; i < drives.count; ++i) {
        const DriveRecord &drive = *drives.drives[i];
        if (drive.drive_type == DRIVE_TYPE_ADAPTER && drive.serial != nullptr &&
            std::string(drive.serial) == "READER0001") {
            ++adapters;
            EXPECT_EQ(drive.name, nullptr);
        }
        if (drive.name != nullptr && drive.name == node_of("BARE0001")) {
            EXPECT_EQ(drive.drive_type, static_cast<DriveType>(DRIVE_TYPE_REMOVABLE));
            EXPECT_EQ(drive.status, STATE_NODE);
        }
    }
    EXPECT_EQ(adapters, 1);
    release_drives(&drives);
}

TEST_F(RemovableMachine, UnbindingTakesTheDiskAwayAndBindingBringsItBack) {
    const Media before = look_up("BARE0001");
    ASSERT_TRUE(before);
    const std::string node = node_of("BARE0001");
    const std::string driver = "/sys/bus/scsi/drivers/sd/" + std::string(before->devices.devices[0].address);
    ASSERT_EQ(unbind_from_driver("BARE0001"), 0);
    EXPECT_EQ(node_of("BARE0001"), "");
    EXPECT_FALSE(fs::exists(driver));
    EXPECT_TRUE(holds_soon([&] { return !fs::exists(node); }));
    EXPECT_EQ(bind_to_driver_with_wait_for_devices("BARE0001"), 0) << get_error_str(TORVANE_ERROR_MOUNT);
    EXPECT_TRUE(fs::exists(driver));
    EXPECT_TRUE(holds_soon([] { return !node_of("BARE0001").empty(); }));
    // A kernel that refuses shows as a failure: the device is bound already.
    MediaRecord *stale = before.get();
    stale->devices.devices[0].state = STATE_UNBOUND;
    EXPECT_EQ(bind_device_to_driver(stale, "BARE0001"), -1);
    EXPECT_EQ(stale->devices.devices[0].state, static_cast<uint32_t>(STATE_UNBOUND));
    // The kernel keeps its node in /dev as long as the disk is there.
    output_of("udevadm settle");
    const auto start = Clock::now();
    EXPECT_EQ(bind_to_driver_with_wait_for_driver("BARE0001"), -1);
    EXPECT_LT(Clock::now() - start, 15s);
    EXPECT_STREQ(get_error_str(TORVANE_ERROR_MOUNT), "failed to wait for file to be deleted");
    EXPECT_FALSE(fs::exists(driver));
    EXPECT_EQ(change_state("BARE0001", STATE_NODE), 0);
    EXPECT_TRUE(holds_soon([] { return !node_of("BARE0001").empty(); }));
    output_of("udevadm settle");
}

TEST_F(RemovableMachine, NodesGoAndComeWithTheKernelsNumbers) {
    const std::string name = name_of("PARTED0001");
    const std::string node = "/dev/" + name;
    EXPECT_EQ(remove_device_nodes("PARTED0001"), 0);
    for (const char *partition : {"", "1", "2"}) EXPECT_FALSE(fs::exists(node + partition)) << partition;
    const Media media = look_up("PARTED0001");
    ASSERT_TRUE(media);
    EXPECT_EQ(get_media_status(media.get()), STATE_BOUND);
    EXPECT_EQ(change_state("PARTED0001", STATE_NODE), 0) << get_error_str(TORVANE_ERROR_DEVICE);
    for (const std::string partition : {"", "1", "2"}) {
        EXPECT_EQ(output_of("printf '%d:%d ' 0x$(stat -c %t " + node + partition + ") 0x$(stat -c %T " + node +
                            partition + "); stat -c '%F %a' " + node + partition),
                  content_of("/sys/class/block/" + name + partition + "/dev").substr(0, 4) + " block special file 0");
    }
    EXPECT_EQ(remove_device_nodes("PARTED0001"), 0);
    EXPECT_EQ(unbind_from_driver("PARTED0001"), 0);
    EXPECT_EQ(bind_to_driver_with_wait_for_devices("PARTED0001"), 0);
    EXPECT_TRUE(holds_soon([&] { return fs::exists(node_of("PARTED0001") + "2"); }));
    output_of("udevadm settle");
}

TEST_F(RemovableMachine, MountsShowTheFilesReadOnlyAndGoWithoutATrace) {
    char *directory = nullptr;
    ASSERT_EQ(create_and_mount_in_temp_dir("BARE0001", &directory), 0) << get_error_str(TORVANE_ERROR_MOUNT);
    const std::string bare = directory;
    free(directory);
    const std::string mount_point = bare + "/" + name_of("BARE0001") + "_mount";
    EXPECT_EQ(content_of(mount_point + "/torvane.txt"), "a known file");
    const std::string options = "," + output_of("findmnt -no OPTIONS " + mount_point) + ",";
    for (const char *option : {",ro,", ",nosuid,"}) EXPECT_NE(options.find(option), std::string::npos) << options;
    {
        const std::ifstream busy(mount_point + "/torvane.txt");
        EXPECT_EQ(remove_and_umount_in_temp_dir(bare.c_str()), -1);
        EXPECT_TRUE(std::string(get_error_str(TORVANE_ERROR_MOUNT)).starts_with("failed to unmount '" + mount_point));
        EXPECT_EQ(is_mounted(mount_point.c_str()), 1);
    }
    EXPECT_EQ(remove_and_umount_in_temp_dir(bare.c_str()), 0) << get_error_str(TORVANE_ERROR_MOUNT);

    ASSERT_EQ(create_and_mount_in_temp_dir("PARTED", &directory), 0) << get_error_str(TORVANE_ERROR_MOUNT);
    const std::string parted = std::string(directory) + "/" + name_of("PARTED0001");
    EXPECT_EQ(content_of(parted + "1_mount/torvane.txt"), "a file on FAT");
    EXPECT_EQ(content_of(parted + "2_mount/torvane.txt"), "a file on ext4");
    EXPECT_FALSE(fs::exists(parted + "_mount"));
    EXPECT_EQ(remove_and_umount_in_temp_dir(directory), 0) << get_error_str(TORVANE_ERROR_MOUNT);
    free(directory);

    directory = nullptr;
    EXPECT_EQ(create_and_mount_in_temp_dir("4C530001230101", &directory), -1) << "no file system";
    EXPECT_EQ(directory, nullptr);
}

TEST_F(RemovableMachine, OpticalDrivesTellTrayAndDisc) {
    const auto status = [](const std::string &serial) {
        const Media media = look_up(serial);
        if (!media || media->devices.devices[0].name == nullptr) return std::string("no drive");
        EXPECT_EQ(media->devices.devices[0].type, static_cast<uint32_t>(SCSI_TYPE_OPTICAL));
        const std::string node = "/dev/" + std::string(media->devices.devices[0].name);
        uint32_t tray = 7;
        uint32_t disc = 7;
        const int result = get_optical_drive_status(node.c_str(), &tray, &disc);
        return std::to_string(result) + " tray " + std::to_string(tray) + " disc " + std::to_string(disc);
    };
    // The device manager may have locked the door.
    const auto move_tray = [](const std::string &serial, const std::string &how) {
        const Media media = look_up(serial);
        const std::string node = "/dev/" + std::string(media->devices.devices[0].name);
        output_of("sg_prevent --allow " + node);
        EXPECT_EQ(std::system(("sg_start " + how + " " + node).c_str()), 0);
    };
    EXPECT_EQ(status("LOADED0001"), "0 tray 0 disc 1");
    EXPECT_EQ(status("VACANT0001"), "0 tray 0 disc 0");
    move_tray("LOADED0001", "--eject");
    EXPECT_EQ(status("LOADED0001"), "0 tray 1 disc 0");
    move_tray("LOADED0001", "--load");
    EXPECT_EQ(status("LOADED0001"), "0 tray 0 disc 1");
}

TEST_F(RemovableMachine, WaitsEndWhenTheKernelMakesAndRemovesANode) {
    char letter = 'a'; // the kernel gives out the first free one
    while (fs::exists(std::string("/sys/block/sd") + letter)) ++letter;
    const std::string name = std::string("sd") + letter;
    {
        const std::jthread plug([] { EXPECT_EQ(std::system(kPlugIn), 0); });
        EXPECT_EQ(wait_till_file_is_created("/dev", name.c_str(), 30), 0);
    }
    EXPECT_TRUE(fs::exists("/dev/" + name));
    {
        const std::jthread pull([] { EXPECT_EQ(std::system(kPullOut), 0); });
        EXPECT_EQ(wait_till_file_is_deleted("/dev", name.c_str(), 30), 0);
    }
    EXPECT_FALSE(fs::exists("/dev/" + name));
}

void list_for_a_while(std::jthread & /*pull*/) {
    for (const auto end = Clock::now() + 1500ms; Clock::now() < end;) {
        MediaList list = empty_media_list;
        const int result = get_usb_mass_storage_devices(&list);
        EXPECT_TRUE(result == 0 || (result == -1 && list.media == nullptr));
        release_media_list(&list);
    }
}

void mount_and_unmount(std::jthread &pull) {
    char *directory = nullptr;
    const int result = create_and_mount_in_temp_dir("SPARE0001", &directory);
    pull.join();
    EXPECT_EQ(directory != nullptr, result == 0);
    if (directory != nullptr) {
        EXPECT_EQ(remove_and_umount_in_temp_dir(directory), 0) << get_error_str(TORVANE_ERROR_MOUNT);
    }
    free(directory);
}

void bind_and_wait(std::jthread & /*pull*/) {
    EXPECT_EQ(unbind_from_driver("SPARE0001"), 0);
    const int result = bind_to_driver_with_wait_for_driver("SPARE0001");
    EXPECT_TRUE(result == 0 || result == -1); // pulled before, within or after the wait for its node
}

TEST_F(RemovableMachine, AStickPulledDuringACallEndsItInTimeAndLeavesNothing) {
    for (const auto &[call, delay] : {std::pair(&list_for_a_while, 0ms),
                                      {list_for_a_while, 40ms},
                                      {list_for_a_while, 80ms},
                                      {mount_and_unmount, 0ms},
                                      {mount_and_unmount, 100ms},
                                      {mount_and_unmount, 200ms},
                                      {bind_and_wait, 500ms}}) {
        plug_in_spare();
        std::jthread pull([delay = delay] {
            std::this_thread::sleep_for(delay);
            EXPECT_EQ(std::system(kPullOut), 0);
        });
        const auto start = Clock::now();
        call(pull);
        EXPECT_LT(Clock::now() - start, 30s);
        if (pull.joinable()) pull.join();
        expect_spare_gone();
        EXPECT_EQ(leftovers(), std::vector<std::string>());
    }
    EXPECT_EQ(bind_to_driver_with_wait_for_driver("SPARE0001"), -1);
}

} // namespace
