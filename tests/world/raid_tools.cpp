#include "raid_tools.h"

#include "../inventory/tree.h"
#include "places.h"

#include <span>

namespace torvane::world {
namespace {

using inventory::tests::says;

std::string padded(const std::string &key, size_t colon, const std::string &value) {
    return "   " + key + std::string(colon - key.size(), ' ') + ": " + value + "\n";
}

void expect_links(const RaidController &controller) {
    for (const RaidDriveGroup &group : std::span(controller.groups, controller.group_count)) {
        EXPECT_EQ(group.controller, &controller);
        for (const RaidDrive &drive : std::span(group.drives, group.drive_count)) {
            EXPECT_TRUE(drive.controller == &controller && drive.group == &group) << field(drive.serial);
        }
    }
    for (const RaidDrive &drive : std::span(controller.drives, controller.drive_count)) {
        EXPECT_TRUE(drive.controller == &controller && drive.group == nullptr) << field(drive.serial);
    }
}

} // namespace

const std::string kSmallLogical = "Adapter 0 -- Virtual Drive Information:\nVirtual Drive: 0 (Target Id: 0)\n"
                                  "Name                :DATA\nSize                : 8 KB\n";
const std::string kSmallPhysical = "Adapter #0\nEnclosure Device ID: 1\nSlot Number: 2\n"
                                   "Drive's position: DiskGroup: 0, Span: 0, Arm: 0\nEnclosure position: 1\n"
                                   "Coerced Size: 4 KB [0x8 Sectors]\nInquiry Data: ACME L1 LS0\n";

const std::string kKilled = "read name < /proc/host/$PPID/comm\n[ \"$name\" = sh ] && kill -9 $PPID\nkill -9 $$";

std::string logical_line(const std::string &key, const std::string &value) { return padded(key, 41, value); }
std::string physical_line(const std::string &key, const std::string &value) { return padded(key, 35, value); }

std::string device_section(const Device &device) {
    std::string text =
        "      Device #" + std::to_string(device.number) + "\n         Device is a " + device.kind + "\n";
    const std::pair<const char *, const std::string &> fields[] = {
        {"Reported Location", device.location}, {"Vendor", device.vendor},   {"Model", device.model},
        {"Serial number", device.serial},       {"Total Size", device.size},
    };
    for (const auto &[key, value] : fields) {
        if (!value.empty()) text += physical_line(key, value);
    }
    return text;
}

std::string small_config() {
    return "Logical device number 0\n" + logical_line("Logical device name", "DATA") + logical_line("Size", "8 KB") +
           "   Segment 0   : Present (Controller:1,Enclosure:0,Slot:0) S0\n" + device_section({});
}

void RaidTest::TearDown() {
    forget();
    UsbTest::TearDown();
}

void RaidTest::arcconf(const std::string &version, const std::vector<std::string> &configs) const {
    std::string answers = "getversion) " + says(version) + ";;\n";
    for (size_t i = 0; i < configs.size(); ++i)
        answers += "\"getconfig " + std::to_string(i + 1) + " AL\") " + says(configs[i]) + ";;\n";
    world.program("arcconf", "case \"$*\" in\n" + answers + "*) exit 99;;\nesac");
}

void RaidTest::megacli(const std::string &logical, const std::string &physical) const {
    world.program("megacli", "case \"$*\" in\n\"-ldinfo -lAll -aAll\") " + says(logical) + ";;\n\"-pdlist -aAll\") " +
                                 says(physical) + ";;\n*) exit 99;;\nesac");
}

void RaidTest::lspci(const std::string &output) const { world.program("lspci", "[ \"$*\" = -v ] && " + says(output)); }

void RaidTest::adapter(const std::string &slot, int host) const {
    const std::string folder = "/sys/bus/pci/devices/0000:" + slot;
    world.directory(folder + "/driver");
    world.directory(folder + "/hostless");
    world.directory(folder + "/host" + std::to_string(host));
}

std::shared_ptr<FakeDisk> RaidTest::logical_drive(const std::string &name, unsigned minor, const std::string &address,
                                                  const std::string &model) const {
    world.link("/sys/class/scsi_disk/" + address + "/device", "/sys/bus/scsi/devices/" + address);
    return world.disk({.name = name, .minor = minor, .vendor = "LSI", .model = model, .address = address});
}

void RaidTest::generic_node(int number, const std::string &serial) const {
    const std::string name = "sg" + std::to_string(number);
    world.directory("/sys/class/scsi_generic/" + name);
    world.device("/dev/" + name, 21, static_cast<unsigned>(number), true)->set_serial(serial);
}

std::string RaidTest::described() const {
    std::string text;
    for (const RaidController &controller : std::span(list, count)) {
        expect_links(controller);
        text += world::described(controller);
    }
    return text;
}

int RaidTest::read() {
    forget();
    return get_raids(&list, &count);
}

void RaidTest::forget() {
    destroy_raids(list, static_cast<int>(count));
    list = nullptr;
    count = 0;
}

} // namespace torvane::world
