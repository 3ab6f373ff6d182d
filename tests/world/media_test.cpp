#include "places.h"
#include "usb.h"

#include <fcntl.h>
#include <linux/cdrom.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>

using namespace torvane::world;

namespace {

constexpr const char *kTarget = "/sys/bus/usb/devices/1-1:1.0/host2/target2:0:0";

class UsbMedia : public UsbTest {
  protected:
    static std::string found(const char *serial) {
        const Media media(get_usb_mass_storage_device(serial));
        return media ? media->name : "none";
    }

    void expect_failure(const std::string &text) const {
        EXPECT_EQ(read(), nullptr);
        EXPECT_EQ(error(), text);
    }
};

TEST_F(UsbMedia, ListsEveryInterfaceWithItsDevices) {
    plug_in({.units = {{.partitions = {{.size = 1 << 20}}}}});
    plug_in({.port = 2,
             .serial = "CARD",
             .product = "Reader",
             .units = {{.name = "sdc", .minor = 32, .size = 0}, {.name = "sdd", .minor = 48}}});
    plug_in({.port = 3,
             .serial = "",
             .manufacturer = "",
             .product = "",
             .units = {{.name = "sr0", .major = 11, .minor = 0, .type = SCSI_TYPE_OPTICAL, .size = 0}}});
    plug_in({.port = 4, .serial = "IDLE", .units = {{.type = SCSI_TYPE_TAPE, .bound = false}}});
    world.file("/sys/bus/usb/drivers/usb-storage/bind", "");
    MediaList list = empty_media_list;
    ASSERT_EQ(get_usb_mass_storage_devices(&list), 0);
    ASSERT_EQ(list.count, 4U);
    std::map<std::string, std::string> seen;
    for (uint32_t i = 0; i < list.count; ++i) {
        const MediaRecord &media = list.media[i];
        seen[media.name] = described(media);
    }
    EXPECT_EQ(seen["1-1:1.0"],
              "|1-1:1.0|~USB-0001|~Example Stick|^0|0|\n|sdb|2:0:0:0|~Maker Flash|~USB-0001|^2|0|2097152|\n");
    EXPECT_NE(seen["1-2:1.0"].find("|~CARD|~Example Reader|^2|0|\n"), std::string::npos);
    EXPECT_NE(seen["1-2:1.0"].find("|sdc|3:0:0:0|~Maker Flash|~CARD|^2|0|0|\n"), std::string::npos);
    EXPECT_NE(seen["1-2:1.0"].find("|sdd|3:0:0:1|~Maker Flash|~CARD|^2|0|2097152|\n"), std::string::npos);
    EXPECT_EQ(seen["1-3:1.0"], "|1-3:1.0|~|~ |^0|0|\n|sr0|4:0:0:0|~Maker Flash|~S-0001|^2|5|0|\n")
        << "own serial, INQUIRY";
    EXPECT_EQ(seen["1-4:1.0"], "|1-4:1.0|~IDLE|~Example Stick|^0|0|\n|-|5:0:0:0|~-|~-|^0|1|0|\n");
    EXPECT_EQ(get_usb_mass_storage_names(&list), 0);
    EXPECT_EQ(list.count, 8U) << "names are appended";
    release_media_list(&list);
    EXPECT_EQ(list.media, nullptr);
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());

    world.remove("/sys/bus/usb/drivers/usb-storage");
    EXPECT_EQ(get_usb_mass_storage_devices(&list), 0);
    EXPECT_EQ(list.count, 0U);
}

TEST_F(UsbMedia, StateFollowsDriverNodeAndPrivateNode) {
    const auto state = [] {
        const Media media = read();
        return media ? static_cast<int>(media->devices.devices[0].state) : -1;
    };
    plug_in({.units = {{.node = false, .partitions = {{.size = 1 << 20}}}}});
    EXPECT_EQ(state(), STATE_NODE) << "a partition's node counts";
    world.remove("/dev/sdb1");
    EXPECT_EQ(state(), STATE_BOUND);
    world.file("/dev/sdb", "");
    EXPECT_EQ(state(), STATE_NODE);
    answers().mknod = [](const char *, mode_t, dev_t) { return -1; };
    EXPECT_EQ(state(), STATE_BOUND) << "a device that cannot be read is not there";
    EXPECT_EQ(world.leftovers(), std::vector<std::string>());
    world.remove(control("sd", "2:0:0:0"));
    EXPECT_EQ(state(), STATE_UNBOUND);
    world.file("/sys/block/sdb/size", "");
    EXPECT_EQ(state(), STATE_UNBOUND) << "the size of an unbound device is not read";
    world.link(control("sd", "2:0:0:0"), "/sys");
    expect_failure("failed to read from /sys/block/sdb/size");
}

TEST_F(UsbMedia, ThePrivateNodeIsGoneBeforeTheDeviceIsAsked) {
    const auto disk = world.disk({.name = "sdb", .minor = 16, .serial = "S1"});
    answers().mknod = [&](const char *path, mode_t, dev_t) {
        world.device(path, 8, 16, false, disk);
        return 0;
    };
    int commands_sent = 0;
    disk->answer = [&](const Bytes &) {
        ++commands_sent;
        EXPECT_EQ(world.leftovers(), std::vector<std::string>());
        return std::nullopt;
    };
    char name[] = "sdb";
    ScsiDeviceInfo device = {};
    device.name = name;
    EXPECT_EQ(get_drive_information(&device, 0), 0);
    EXPECT_STREQ(device.serial, "S1");
    EXPECT_STREQ(device.model, "ATA Example Disk");
    EXPECT_GT(commands_sent, 0);
    free(device.serial);
    free(device.model);
}

TEST_F(UsbMedia, DiskAndEnclosureAreOneDevice) {
    const Unit disk = {};
    const Unit enclosure = {.name = "", .type = SCSI_TYPE_ENCLOSURE};
    plug_in({.serial = "", .units = {disk, enclosure}});
    plug_in({.port = 2, .serial = "", .units = {enclosure, disk}});
    plug_in({.port = 3, .units = {enclosure, enclosure}});
    for (const auto &[port, address] : {std::pair("1-1", "2:0:0:0"), std::pair("1-2", "3:0:0:1")}) {
        const Media media = read(port);
        ASSERT_TRUE(media);
        // The empty serial number is the interface's: the device itself was not asked for its own.
        EXPECT_EQ(described(*media), "|" + std::string(port) + ":1.0|~|~Example Stick|^0|1|\n|sdb|" + address +
                                         "|~Maker Flash|~|^2|0|2097152|\n");
    }
    Media media = read("1-3");
    ASSERT_TRUE(media);
    EXPECT_EQ(media->has_enclosure, 0U);
    EXPECT_EQ(media->devices.count, 2U);
    EXPECT_EQ(media->status, static_cast<uint32_t>(USB_STATUS_ADAPTER));
    media->has_enclosure = 1;
    EXPECT_EQ(Media(copy_media_info(media.get()))->has_enclosure, 1U);
    EXPECT_EQ(update_device_information(media.get()), 0);
    EXPECT_EQ(media->has_enclosure, 0U);
}

TEST_F(UsbMedia, UnreadableInterfacesFailWithTheirReason) {
    expect_failure("failed to glob for matches in /sys/bus/usb/devices/1-1:1.0/host*/target*/");
    plug_in({});
    world.directory("/sys/bus/usb/devices/1-1:1.0/host2/target2:0:1");
    expect_failure("found more than 1 match for glob");
    world.remove("/sys/bus/usb/devices/1-1:1.0/host2/target2:0:1");
    for (const char *type : {"3", "-1", "4294967296"}) {
        world.file(std::string(kTarget) + "/2:0:0:0/type", type);
        expect_failure("found invalid driver type '" + std::string(type) + "'");
    }
    world.remove(std::string(kTarget) + "/2:0:0:0/type");
    expect_failure("failed to read driver information from /sys/bus/scsi/devices/2:0:0:0/type");
    MediaList list = empty_media_list;
    EXPECT_EQ(get_usb_mass_storage_devices(&list), -1);
    EXPECT_EQ(list.media, nullptr);
    EXPECT_EQ(list.count, 0U);
    EXPECT_EQ(found("USB"), "none");
    EXPECT_EQ(said(update_device_information(nullptr)), "-1 unable to read info (NULL)");
}

TEST_F(UsbMedia, FoundBySerialPrefixOrDeviceNumber) {
    plug_in({.units = {{.partitions = {{.size = 1 << 20}}}}});
    plug_in({.port = 2, .serial = "", .units = {{.name = "sdc", .minor = 32}}});
    plug_in({.port = 3, .serial = "READER", .units = {{.name = "sdd", .minor = 48}, {.bound = false}}});
    EXPECT_EQ(found("USB-0"), "1-1:1.0");
    EXPECT_EQ(found("USB-00012"), "none");
    EXPECT_EQ(found("S-0001"), "1-2:1.0") << "a device's own";
    EXPECT_NE(found(""), "none");
    EXPECT_EQ(found(nullptr), "none");
    const auto by_id = [](uint32_t major, uint32_t minor) {
        const Media media(get_usb_mass_storage_device_by_id(major, minor));
        return std::string(media ? media->name : "none");
    };
    EXPECT_EQ(by_id(8, 17), "1-1:1.0");
    EXPECT_EQ(by_id(8, 32), "1-2:1.0");
    EXPECT_EQ(by_id(8, 33), "none");
    world.remove("/dev/sdc");
    EXPECT_EQ(by_id(8, 32), "none") << "without a node";

    const Media reader(get_usb_mass_storage_device("READER"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->status, 0U) << "a copy has no status";
    EXPECT_EQ(reader->devices.count, 2U);
    EXPECT_EQ(reader->devices.devices[1].size + reader->devices.devices[0].size, 0U) << "nor sizes";
    EXPECT_EQ(get_media_status(reader.get()), STATE_NODE);
    MediaRecord bare = {};
    EXPECT_EQ(copy_media_info(&bare), nullptr);
    EXPECT_EQ(error(), "failed to copy media information");
    EXPECT_EQ(copy_media_info(nullptr), nullptr);
}

TEST_F(UsbMedia, StatusTellsAdaptersFromDevices) {
    std::string text = "USB-0001";
    const auto status = [&text](const char *serial, uint32_t state, uint32_t type, uint64_t size) {
        std::string own = serial == nullptr ? "" : serial;
        ScsiDeviceInfo device = {nullptr, nullptr, nullptr, serial == nullptr ? nullptr : own.data(),
                                 state,   type,    size};
        const MediaRecord media = {nullptr, text.data(), nullptr, 0, 0, {&device, 1}};
        return get_usb_status(&media);
    };
    EXPECT_EQ(status("USB-0001X", 2, 0, 8), 0U);
    EXPECT_EQ(status("USB-000", 2, 0, 8), 2U) << "another serial number";
    EXPECT_EQ(status(nullptr, 0, 0, 0), 0U);
    EXPECT_EQ(status(nullptr, 1, 0, 0), 2U) << "an empty slot";
    EXPECT_EQ(status(nullptr, 1, SCSI_TYPE_OPTICAL, 0), 0U);
    EXPECT_EQ(get_usb_status(nullptr), 0U);
    EXPECT_EQ(get_media_status(nullptr), 0);
}

TEST_F(UsbMedia, FileSystemsBesidePartitionsAreBad) {
    plug_in({.units = {{.partitions = {{.size = 1 << 20, .uuid = "P"}}}}});
    plug_in({.port = 2,
             .serial = "BAD",
             .units = {{.name = "sdc", .minor = 32, .partitions = {{.size = 512}}, .uuid = "W"}}});
    plug_in({.port = 3, .serial = "WHOLE", .units = {{.name = "sdd", .minor = 48, .uuid = "W"}}});
    const auto check = [](const char *port, const char *serial) {
        return check_entire_device_for_bad_filesystem(read(port).get(), serial);
    };
    EXPECT_EQ(check("1-1", "USB"), 0);
    EXPECT_EQ(check("1-2", "BAD"), 1);
    EXPECT_EQ(check("1-3", "WHOLE"), 0);
    EXPECT_EQ(check("1-2", "other"), 0) << "nothing chosen";
    EXPECT_EQ(said(check("1-1", nullptr)), "-1 failed to read info, or serial (NULL)");
    const Media media = read();
    world.remove("/sys/block/sdb");
    EXPECT_EQ(check_entire_device_for_bad_filesystem(media.get(), "USB"), -1);
    EXPECT_EQ(error(), "failed to read partition names for device 'sdb'");
    media->devices.devices[0].state = STATE_UNBOUND;
    EXPECT_EQ(check_single_node_for_bad_filesystem(media->devices.devices, nullptr, 1), -1);
    EXPECT_EQ(error(), "failed to read device, status, or name (NULL)");
}

TEST_F(UsbMedia, OpticalDriveTellsTrayAndDisc) {
    const auto drive = world.device("/dev/sr0", 11, 0);
    std::vector<int> drive_states; // of one attempt after another, the last one for good
    int disc_state = CDS_DATA_1;
    int attempts = 0;
    drive->request = [&](unsigned long request, void *slot) -> std::optional<int> {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(slot), CDSL_CURRENT);
        if (request == CDROM_DISC_STATUS) return disc_state;
        return drive_states[std::min<size_t>(static_cast<size_t>(attempts++), drive_states.size() - 1)];
    };
    // result, tray, disc, attempts
    using Status = std::tuple<int, uint32_t, uint32_t, int>;
    const auto status = [&](std::vector<int> states, int disc) {
        drive_states = std::move(states);
        disc_state = disc;
        attempts = 0;
        uint32_t tray = 7;
        uint32_t has_disc = 7;
        const int result = get_optical_drive_status("/dev/sr0", &tray, &has_disc);
        return Status(result, tray, has_disc, attempts);
    };
    EXPECT_EQ(status({CDS_DISC_OK}, CDS_DATA_1), Status(0, 0, 1, 1));
    EXPECT_EQ(status({CDS_TRAY_OPEN}, CDS_NO_DISC), Status(0, 1, 0, 1));
    EXPECT_EQ(status({CDS_DRIVE_NOT_READY, CDS_DISC_OK}, CDS_DATA_1), Status(0, 0, 1, 2));
    EXPECT_EQ(status({-1}, -1), Status(0, 0, 1, 3));
    EXPECT_EQ(status({CDS_DRIVE_NOT_READY}, CDS_DATA_1), Status(-1, 0, 0, 3));
    EXPECT_EQ(error(), "cd drive not ready");

    int flags = 0;
    answers().open = [&flags](const char *, int given, mode_t) -> std::optional<int> {
        flags = given;
        return {};
    };
    // A lock is another process's only.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        const char held = lock_optical_drive(open("/dev/sr0", O_RDWR)) == 0 ? 'y' : 'n';
        if (write(ready[1], &held, 1) == 1) pause();
        _exit(1);
    }
    char held = 0;
    EXPECT_EQ(::read(ready[0], &held, 1), 1);
    EXPECT_EQ(held, 'y');
    EXPECT_EQ(status({CDS_DISC_OK}, CDS_DATA_1), Status(-1, 0, 0, 0));
    EXPECT_EQ(flags, O_RDWR | O_EXCL | O_NONBLOCK);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    for (const int end : ready) close(end);
    EXPECT_EQ(status({CDS_DISC_OK}, CDS_DATA_1), Status(0, 0, 1, 1));
    uint32_t place = 7;
    EXPECT_EQ(said(get_optical_drive_status(nullptr, &place, &place)), "-1 failed to read drive name (NULL)");
    EXPECT_EQ(place, 0U);
    EXPECT_EQ(get_optical_drive_status("/dev/none", &place, &place), -1);
}

} // namespace
