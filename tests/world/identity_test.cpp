#include "places.h"
#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <linux/hdreg.h>
#include <unistd.h>

#include <cstring>
#include <utility>

using namespace torvane::world;

namespace {

constexpr const char *kUsbParent = "pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.0/host6/target6:0:0";

class Identity : public WorldTest {
  protected:
    // What the fixed-buffer readers say: "result|model|serial|generic name".
    static std::string specification(const std::string &path) {
        DeviceSpecification s = {};
        const int result = get_device_specification(-1, path.c_str(), &s);
        EXPECT_EQ(std::string(s.device_name), path.substr(0, 59));
        return std::to_string(result) + "|" + s.model + "|" + s.serial + "|" + s.sg_name;
    }

    // What the heap readers say, in the same form.
    static std::string drive(const std::string &path) {
        DriveRecord record = {};
        const int result = get_drive_specification(path.c_str(), &record);
        return std::to_string(result) + "|" + taken(record.model) + "|" + taken(record.serial) + "|" +
               taken(record.generic_name);
    }

    Identity() { category = TORVANE_ERROR_IDENTITY; }

    // A device that only /dev knows.
    std::shared_ptr<FakeDisk> bare(const std::string &path, unsigned major, unsigned minor = 0) const {
        return world.device(path, major, minor);
    }
};

TEST_F(Identity, ScsiDisk) {
    auto sda = world.disk({.serial = " S-0001 ", .generic = 0, .partitions = {{.size = 1 << 20}}});
    world.disk({.name = "sdb", .minor = 16, .address = "1:0:0:0"});
    EXPECT_EQ(specification("/dev/sda"), "0|ATA Example Disk|S-0001|/dev/sg0");
    const std::vector<std::string> commands = {"sda SG_IO 12 01 00 00 04 00", "sda SG_IO 12 01 80 00 04 00",
                                               "sda SG_IO 12 01 80 00 0c 00"};
    EXPECT_EQ(std::exchange(answers().log, {}), commands);
    EXPECT_EQ(drive("/dev/sda"), "0|ATA Example Disk|S-0001|/dev/sg0");
    EXPECT_EQ(answers().log, commands);
    EXPECT_EQ(specification("/dev/sdb"), "-1|ATA Example Disk|S-0001|");
    EXPECT_EQ(drive("/dev/sdb"), "0|ATA Example Disk|S-0001|-") << "no generic name is no failure for a disk";
    EXPECT_EQ(drive("/dev/sda1"), "0|ATA Example Disk|S-0001|/dev/sg0");
    EXPECT_EQ(specification("/dev/sg0"), "0|ATA Example Disk|S-0001|/dev/sg0");
    EXPECT_EQ(drive("/dev/sg0"), "0|ATA Example Disk|S-0001|/dev/sg0");

    world.remove("/sys/class/scsi_generic/sg0");
    EXPECT_EQ(specification("/dev/sg0"), "0|Generic SCSI device|S-0001|/dev/sg0");
    EXPECT_EQ(drive("/dev/sg0"), "0|Generic SCSI device|S-0001|/dev/sg0");
}

TEST_F(Identity, ScsiDiskWithoutSysfsAnswersForItself) {
    auto disk = bare("/dev/sda", 8);
    disk->set_inquiry(" ACME", "Rocket");
    disk->set_serial("1");
    disk->idlun = 3;
    Bytes command;
    disk->request = [&](unsigned long request, void *argument) -> std::optional<int> {
        const auto *words = static_cast<const uint32_t *>(argument);
        const auto *bytes = static_cast<const unsigned char *>(argument);
        if (request == 1) {
            EXPECT_EQ(words[0], 0U);
            EXPECT_EQ(words[1], 96U);
            command.assign(bytes + 8, bytes + 14);
        }
        return std::nullopt;
    };
    EXPECT_EQ(specification("/dev/sda"), "-1|ACME Rocket|1|");
    EXPECT_EQ(command, (Bytes{0x12, 0x60, 0, 0, 96, 0}));
    // The vendor text runs on through product and revision to the end of the reply.
    EXPECT_EQ(drive("/dev/sda"), "0|ACME   Rocket          1.0 Rocket          1.0|1|-");
    disk->idlun.reset();
    EXPECT_EQ(specification("/dev/sda"), "-1|ACME Rocket|1|");
    EXPECT_EQ(command[1], 0);
    EXPECT_EQ(error(), "failed to read idlun");
    disk->inquiry = Bytes(200, 0xFF);
    EXPECT_EQ(specification("/dev/sda"), "-1|" + std::string(8, '\xFF') + " " + std::string(16, '\xFF') + "|1|");
    EXPECT_EQ(drive("/dev/sda"), "0|" + std::string(88, '\xFF') + " " + std::string(80, '\xFF') + "|1|-");
    disk->inquiry = Bytes(200, 0);
    EXPECT_EQ(specification("/dev/sda"), "-1| |1|");
    disk->inquiry.clear();
    EXPECT_EQ(specification("/dev/sda"), "-5||1|");
    EXPECT_EQ(error(), "scsi model command failed");
    EXPECT_EQ(drive("/dev/sda"), "-4|-|1|-");
}

TEST_F(Identity, IdeDiskAnswersWithItsAtaIdentity) {
    auto disk = bare("/dev/hda", 3);
    disk->set_ata_identity("  WD-123  ", "WDC WD1200  ");
    EXPECT_EQ(specification("/dev/hda"), "-1|WDC WD1200  |  WD-123  |") << "as the drive pads it";
    EXPECT_EQ(error(), "no serial number (error doing INQUIRY)") << "the message stays although the serial was found";
    EXPECT_EQ(drive("/dev/hda"), "-1|WDC WD1200  |WD-123|-");
    EXPECT_EQ(error(), "failed to read scsi serial number (INQUIRY error)");
    disk->ata_identity = Bytes(512, 'x');
    EXPECT_EQ(specification("/dev/hda"), "-1|" + std::string(59, 'x') + "|" + std::string(59, 'x') + "|");
    disk->ata_identity.reset();
    EXPECT_EQ(specification("/dev/hda"), "-7|||");
    EXPECT_EQ(error(), "failed to read ide device identity");
    EXPECT_EQ(drive("/dev/hda"), "-6|-|-|-");
    EXPECT_EQ(error(), "failed to get hdio identity for ide serial number");
}

TEST_F(Identity, UsbSerialsComeFirstOnTheHeapAndLastInTheFixedRecord) {
    auto stick = world.disk({.name = "sdc", .minor = 32, .serial = "SCSI", .address = "6:0:0:0", .parent = kUsbParent});
    const std::string serial = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-2/serial";
    world.file(serial, " USB-77 \n");
    EXPECT_EQ(drive("/dev/sdc"), "0|ATA Example Disk|USB-77|-");
    EXPECT_EQ(specification("/dev/sdc"), "-1|ATA Example Disk|SCSI|");
    stick->pages.clear();
    EXPECT_EQ(specification("/dev/sdc"), "-1|ATA Example Disk| USB-77 |");
    world.file(serial, std::string(100, 'u'));
    EXPECT_EQ(drive("/dev/sdc"), "0|ATA Example Disk|" + std::string(100, 'u') + "|-");
    EXPECT_EQ(specification("/dev/sdc"), "-1|ATA Example Disk|" + std::string(59, 'u') + "|");
    world.remove(serial);
    EXPECT_EQ(specification("/dev/sdc"), "-3|ATA Example Disk||");
    EXPECT_EQ(drive("/dev/sdc"), "-1|ATA Example Disk|-|-");
    world.file("/sys/devices/serial", "top");
    world.link("/sys/block/sdc", "../devices/usb1/:1");
    char *top = nullptr;
    EXPECT_EQ(get_drive_serial_number(-1, "/dev/sdc", &top), 0) << "a component that begins with the colon";
    EXPECT_EQ(taken(top), "top");
    // Links that end before an interface, or that only look like USB.
    for (const char *target :
         {"usb", "../devices/usb1/1-2", "../devices/usb1/", "usb:/", "a/usb/:", "../musb/x/y:1/z"}) {
        world.link("/sys/block/sdc", target);
        EXPECT_EQ(drive("/dev/sdc").substr(0, 2), "-1") << target;
        EXPECT_NE(specification("/dev/sdc"), "") << target;
    }
}

TEST_F(Identity, UnitSerialRepliesOfEveryKind) {
    auto disk = world.disk({});
    const auto with = [&](const Bytes &pages, const Bytes &header, const Bytes &text) {
        disk->answer = [=](const Bytes &cdb) -> std::optional<Reply> {
            return Reply{.data = cdb[2] == 0 ? pages : cdb[4] == 4 ? header : text};
        };
        const std::string record = drive("/dev/sda");
        return record + " " + specification("/dev/sda");
    };
    const Bytes pages = {0, 0, 0, 1, 0x80};
    const Bytes header = {0, 0x80, 0, 6};
    const std::string model = "|ATA Example Disk|";
    const std::string good = "0" + model + "AB 12C|- -1" + model + "AB 12C|";
    const std::string bad = "-1" + model + "-|- -3" + model + "|";
    const Bytes text = {0, 0x80, 0, 6, 'A', 'B', ' ', '1', '2', 'C'};
    EXPECT_EQ(with(pages, header, text), good);
    EXPECT_EQ(with(pages, header, {0, 0, 1, 0, 'A', 'B', ' ', '1', '2', 'C'}), good) << "the last header is not read";
    EXPECT_EQ(with(pages, {0, 0, 0, 6}, text), bad);
    EXPECT_EQ(error(), "no serial number (bad format)");
    EXPECT_EQ(with(pages, {0, 0x80, 1, 6}, text), bad);
    disk->answer = [](const Bytes &cdb) -> std::optional<Reply> {
        if (cdb[4] == 4) return std::nullopt;
        return Reply{.data = {}, .status = 2, .host_status = 0, .driver_status = 0, .error = 0};
    };
    EXPECT_EQ(drive("/dev/sda").substr(0, 2), "-1") << "the last command fails";
}

TEST_F(Identity, LongSeagateSerialsAreShortenedInDriveRecords) {
    world.disk({.vendor = "SEAGATE", .model = "ST3146807LC", .serial = "3KR1ABCD0000W1234567"});
    EXPECT_EQ(drive("/dev/sda"), "0|SEAGATE ST3146807LC|3KR1ABCD|-");
    EXPECT_EQ(specification("/dev/sda"), "-1|SEAGATE ST3146807LC|3KR1ABCD0000W1234567|");
    const int fd = open("/dev/sda", O_RDONLY);
    char *serial = nullptr;
    EXPECT_EQ(get_drive_serial(fd, "/dev/sda", nullptr, &serial), 0);
    EXPECT_EQ(taken(serial), "3KR1ABCD") << "the model is read when none is given";
    EXPECT_EQ(get_drive_serial(fd, "/dev/sda", "other", &serial), 0);
    EXPECT_EQ(taken(serial), "3KR1ABCD0000W1234567");
    close(fd);
}

TEST_F(Identity, PathsThatAreNoDevices) {
    world.file("/dev/plain", "text");
    world.directory("/dev/folder");
    const std::string endless = "/dev/" + std::string(4096, 'x');
    for (const std::string path : {"/dev/plain", "/dev/folder"}) {
        EXPECT_EQ(drive(path), "-6|-|-|-");
        EXPECT_EQ(specification(path), "-7|||");
    }
    for (const std::string path : {"", "/dev/none", endless.c_str()}) {
        EXPECT_EQ(drive(path), "1|-|-|-");
        EXPECT_EQ(error(), ("failed to open '" + path + "'").substr(0, 253));
        DeviceSpecification s = {};
        EXPECT_EQ(said(get_device_stat(-1, path.c_str(), &s)), "0 lstat failed");
        EXPECT_EQ(get_device_specification(-1, path.c_str(), &s), -7);
    }
    DeviceSpecification s = {};
    EXPECT_EQ(said(get_device_specification(-1, nullptr, &s)), "-16 invalid file descriptor or device name");
    EXPECT_EQ(said(get_device_stat(99, nullptr, &s)), "0 fstat failed");
    EXPECT_EQ(get_device_model(-1, &s), -4);
    s.type = DEVICE_KIND_SCSI;
    EXPECT_EQ(said(get_device_model(99, &s)), "-4 failed to read device name");
    EXPECT_EQ(said(get_generic_name(3, nullptr, &s)), "-8 name not specified (NULL)");
    DriveRecord record = {};
    EXPECT_EQ(get_drive_specification(nullptr, &record), 1);
    char mark = 'x';
    for (const auto &[result, failing] :
         {std::pair(
              -4, +[](char **place) { return get_drive_model(-1, 3, nullptr, place); }),
          {-2, +[](char **place) { return get_drive_serial_number(-1, nullptr, place); }},
          {-1, +[](char **place) { return get_drive_serial(-1, nullptr, "M", place); }}}) {
        char *place = &mark;
        EXPECT_EQ(failing(&place), result);
        EXPECT_EQ(place, nullptr) << result;
    }
}

TEST_F(Identity, NamesOfOneDevice) {
    world.disk({.generic = 0});
    bare("/dev/hda", 3);
    DeviceSpecification s = {};
    s.major = 8;
    EXPECT_EQ(verify_device_name("/dev/sda", &s), 0);
    EXPECT_STREQ(s.device_name, "/dev/sda");
    std::strcpy(s.sg_name, "/dev/sg0");
    EXPECT_EQ(said(verify_device_name("/dev/sg0", &s)), "-1 '/dev/sda' does not match file descriptor supplied");
    EXPECT_EQ(std::string(s.device_name) + s.sg_name, "");
    std::strcpy(s.sg_name, "/dev/sg0");
    EXPECT_EQ(verify_device_name("/dev/none", &s), -1);
    EXPECT_STREQ(s.sg_name, "");

    EXPECT_EQ(get_generic_name(0, "/dev/sda", &s), 8);
    EXPECT_STREQ(s.sg_name, "/dev/sg0");
    EXPECT_EQ(s.type, 3);
    EXPECT_EQ(get_generic_name(2, "/dev/hda", &s), 0);
    EXPECT_EQ(get_generic_name(4, ("/dev/sg" + std::string(100, '1')).c_str(), &s), 59);

    char *name = nullptr;
    EXPECT_EQ(get_sg_name("/dev/sda", &name), 0);
    EXPECT_EQ(taken(name), "/dev/sg0");
    EXPECT_EQ(get_sg_name("/dev/sg0", &name), 0);
    EXPECT_EQ(taken(name), "/dev/sg0");
    EXPECT_EQ(get_sg_name("/dev/hda", &name), -1);
    EXPECT_EQ(get_sg_name("/dev/none", &name), -1);
    world.remove("/sys/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/generic");
    EXPECT_EQ(get_sg_name("/dev/sda", &name), 0);
    EXPECT_EQ(name, nullptr);

    char block[60] = "";
    EXPECT_EQ(get_device_name_from_generic("/dev/sg8", block), -1);
    EXPECT_EQ(error(), "failed to read name from generic name '/dev/sg8'");
    world.link("/sys/class/scsi_generic/sg7/device/block", "../../../block/sdh");
    EXPECT_EQ(get_device_name_from_generic("/dev/sg7", block), 8);
}

TEST_F(Identity, Printed) {
    const DeviceSpecification s = {.device_name = "/dev/sda",
                                   .sg_name = "/dev/sg0",
                                   .model = "ATA Disk",
                                   .serial = "S1",
                                   .stat = {},
                                   .major = 8,
                                   .minor = 16,
                                   .type = 3};
    testing::internal::CaptureStdout();
    const int count = print_specification(&s);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text, "Device Name:    /dev/sda\nDevice SG Name: /dev/sg0\nDevice Model:   ATA Disk\nSerial Number:  S1\n"
                    "Major Number:   8\nMinor Number:   16\nType:           3\n");
    EXPECT_EQ(count, static_cast<int>(text.size()));
}

} // namespace
