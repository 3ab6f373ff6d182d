#include "usb.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

using namespace torvane::world;

namespace {

// Between the states 0 to 3, what refuses ("bind" and "unbind" files, or making nodes), and what is so afterwards; the
// undo of an unbinding that is refused makes nodes that were not there.
const auto kTransitions = nlohmann::json::parse(read_file(TORVANE_SOURCE_DIRECTORY "/tests/world/transitions.json"));

class Binding : public UsbTest {
  protected:
    // What was written to a driver's files since the last call: "bind 2:0:0:0" and the like.
    std::string written(const std::string &driver = "sd") {
        std::string text;
        for (const char *file : {"bind", "unbind"}) {
            const std::string path = control(driver, file);
            // What was refused is nowhere; the refusing file has no end.
            const std::string address = std::filesystem::is_symlink(path) ? "" : read_file(path);
            if (!address.empty()) text += (text.empty() ? "" : ", ") + std::string(file) + " " + address;
            world.remove(path);
            world.file(path, "");
        }
        return text;
    }

    // A kernel that refuses what is written: the error comes when the file is closed.
    void refuse(const std::string &file) { world.link(control("sd", file), "/dev/full"); }
};

TEST_F(Binding, OfOneDeviceFollowsItsStateThenItsDriver) {
    std::string address = "2:0:0:0";
    ScsiDeviceInfo device = {nullptr, address.data(), nullptr, nullptr, STATE_BOUND, SCSI_TYPE_OPTICAL, 0};
    EXPECT_EQ(bind_scsi_device_to_driver(&device), 0);
    EXPECT_EQ(unbind_scsi_device_from_driver(&device), 0);
    EXPECT_EQ(written("sr"), "unbind 2:0:0:0");
    device.type = 3; // a processor device: no driver
    EXPECT_EQ(unbind_scsi_device_from_driver(&device), 0);
    EXPECT_EQ(said(bind_scsi_device_to_driver(&device)), "-1 driver not available");
    device.state = STATE_NODE;
    EXPECT_EQ(bind_scsi_device_to_driver(&device), 0);
    EXPECT_EQ(said(unbind_scsi_device_from_driver(&device)), "-1 failed to read driver");

    refuse("unbind");
    device.type = SCSI_TYPE_DISK;
    EXPECT_EQ(unbind_scsi_device_from_driver(&device), -1);
    EXPECT_EQ(device.state, static_cast<uint32_t>(STATE_NODE));
    device.address = nullptr;
    EXPECT_EQ(unbind_scsi_device_from_driver(&device), -1);
    EXPECT_EQ(said(unbind_scsi_device_from_driver(nullptr)), "-1 failed to read scsi device (NULL)");
    EXPECT_EQ(said(bind_scsi_device_to_driver(nullptr)), "-1 unable to read scsi device (NULL)");
}

TEST_F(Binding, EveryTransitionAndItsUndo) {
    plug_in({});
    const auto real_mknod = answers().mknod;
    for (const auto &each : kTransitions) {
        SCOPED_TRACE(each.dump());
        world.file("/dev/sdb", "");
        const Media media = read();
        ASSERT_TRUE(media);
        ScsiDeviceInfo *device = media->devices.devices;
        device->state = each["from"];
        if (each["from"] != STATE_NODE) world.remove("/dev/sdb");
        const std::string refused = each["refused"];
        if (refused == "node") answers().mknod = [](const char *, mode_t, dev_t) { return -1; };
        if (refused == "bind" || refused == "unbind") refuse(refused);
        EXPECT_EQ(change_scsi_device_state(device, each["to"]), each["result"]);
        EXPECT_EQ(device->state, each["state"]);
        EXPECT_EQ(file_exists("/dev/sdb"), each["node"].get<int>());
        EXPECT_EQ(written(), each["writes"]);
        answers().mknod = real_mknod;
    }
    EXPECT_EQ(error(), "failed to read device, status, or state");

    // Nodes whose names cannot be read are not removed; those in /dev are looked for again.
    world.file("/dev/sdb", "");
    const Media media = read();
    ASSERT_TRUE(media);
    world.remove("/sys/block/sdb");
    EXPECT_EQ(change_scsi_device_state(media->devices.devices, STATE_BOUND), -1);
    EXPECT_EQ(file_exists("/dev/sdb"), 1);
}

TEST_F(Binding, OfAnInterfaceIsAllOrNothingUnbindingGoesOn) {
    plug_in({.units = {{}, {.name = "sdc", .minor = 32}}});
    const Media media = read();
    ASSERT_TRUE(media);
    ScsiDeviceInfo *devices = media->devices.devices;
    devices[0].type = 3; // fails
    EXPECT_EQ(unbind_usb_device_from_driver(media.get()), -1);
    EXPECT_EQ(devices[0].state, static_cast<uint32_t>(STATE_NODE));
    EXPECT_EQ(devices[1].state, static_cast<uint32_t>(STATE_UNBOUND));
    devices[0].type = SCSI_TYPE_DISK;
    devices[0].state = STATE_UNBOUND;
    devices[1].type = 3;
    written();
    EXPECT_EQ(bind_usb_device_to_driver(media.get()), -1);
    const std::string first = devices[0].address;
    EXPECT_EQ(written(), "bind " + first + ", unbind " + first);
    EXPECT_EQ(get_media_status(media.get()), STATE_UNBOUND);
    release_scsi_list(&media->devices);
    EXPECT_EQ(unbind_usb_device_from_driver(media.get()), 0);
    EXPECT_EQ(bind_usb_device_to_driver(nullptr), -1);
}

TEST_F(Binding, SerialNumberNamesTheInterfaceOrItsFirstDevice) {
    plug_in({.serial = "USB-1", .units = {{}, {.name = "sdc", .minor = 32}}});
    const Media media = read();
    ASSERT_TRUE(media);
    ScsiDeviceInfo *devices = media->devices.devices;
    for (const int i : {0, 1}) {
        free(devices[i].serial);
        devices[i].serial = duplicate_str(i == 0 ? nullptr : "OWN");
    }
    const auto states = [devices] { return std::to_string(devices[0].state) + std::to_string(devices[1].state); };
    EXPECT_EQ(unbind_device_from_driver(media.get(), "OWN"), 0);
    EXPECT_EQ(states(), "20");
    EXPECT_EQ(unbind_device_from_driver(media.get(), "USB"), 0);
    EXPECT_EQ(states(), "00");
    EXPECT_EQ(bind_device_to_driver(media.get(), "OW"), 0);
    EXPECT_EQ(states(), "01");
    EXPECT_EQ(bind_device_to_driver(media.get(), "USB-1"), 0);
    EXPECT_EQ(states(), "11");
    EXPECT_EQ(said(bind_device_to_driver(media.get(), "USB-12")), "-1 unable to bind device to driver (no matches)");
    EXPECT_EQ(said(unbind_device_from_driver(media.get(), "X")), "-1 unable to unbind device from driver (no matches)");
    EXPECT_EQ(said(bind_device_to_driver(media.get(), nullptr)), "-1 unable to bind device to driver (NULL)");

    EXPECT_EQ(change_device_state(media.get(), "OWN", STATE_UNBOUND), 0);
    EXPECT_EQ(states(), "10");
    EXPECT_EQ(change_device_state(media.get(), "none", STATE_UNBOUND), 0);
    EXPECT_EQ(states(), "10");
    EXPECT_EQ(change_device_state(media.get(), "USB", STATE_BOUND), 0);
    EXPECT_EQ(states(), "00") << "an adapter named by its USB serial number can only be unbound";
    EXPECT_EQ(change_device_state(media.get(), "OWN", STATE_BOUND), 0);
    EXPECT_EQ(states(), "01");
    media->status = USB_STATUS_DEVICE;
    EXPECT_EQ(change_device_state(media.get(), "USB", STATE_BOUND), 0);
    EXPECT_EQ(states(), "11");
    for (const auto &[serial, state] : {std::pair<const char *, uint32_t>(nullptr, 0), {"USB", 3}}) {
        EXPECT_EQ(said(change_device_state(media.get(), serial, state)), "-1 failed to read info or state is invalid");
    }
}

TEST_F(Binding, BySerialNumberAlone) {
    plug_in({.units = {{}, {.name = "sdc", .minor = 32}}});
    EXPECT_EQ(change_state("USB", STATE_BOUND), 0) << "the copy of an adapter is no adapter";
    EXPECT_EQ(written(), "");
    EXPECT_EQ(file_exists("/dev/sdb") + file_exists("/dev/sdc"), 0);
    EXPECT_EQ(change_state("USB", STATE_NODE), 0);
    EXPECT_EQ(file_exists("/dev/sdb") + file_exists("/dev/sdc"), 2);
    EXPECT_EQ(remove_device_nodes("USB"), 0);
    EXPECT_EQ(file_exists("/dev/sdb") + file_exists("/dev/sdc"), 0);
    EXPECT_EQ(unbind_from_driver("USB"), 0);
    EXPECT_EQ(written().substr(0, 11), "unbind 2:0:");
    EXPECT_EQ(bind_to_driver("USB"), 0);
    const std::pair<int (*)(const char *), const char *> missing[] = {
        {bind_to_driver, "unable to bind device to driver (NULL)"},
        {unbind_from_driver, "unable to unbind device from driver (NULL)"},
        {remove_device_nodes, "unable to read info, serial, or location (NULL)"},
    };
    for (const auto &[function, text] : missing) {
        for (const char *serial : {"none", static_cast<const char *>(nullptr)}) {
            set_error_str(TORVANE_ERROR_DEVICE, "none");
            EXPECT_EQ(function(serial), -1);
            EXPECT_EQ(text_of(TORVANE_ERROR_DEVICE), text);
        }
    }
}

TEST_F(Binding, WaitsForTheBlockDeviceAndForItsNodeToGo) {
    const std::string drivers = control("sd", "2:0:0:0");
    plug_in({});
    const std::string block = "/sys/bus/scsi/devices/2:0:0:0/block";
    EXPECT_EQ(bind_to_driver_with_wait_for_devices("USB"), 0);
    EXPECT_EQ(written(), "");
    {
        // Bound to nothing at first; the kernel's part comes a moment later.
        world.remove(drivers);
        ASSERT_EQ(rename((block).c_str(), (block + "-later").c_str()), 0);
        const std::jthread kernel([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            world.link(drivers, "/sys");
            rename((block + "-later").c_str(), block.c_str());
            world.directory(block + "x"); // user space's moves, unlike its creations, are not waited for
        });
        EXPECT_EQ(bind_to_driver_with_wait_for_devices("USB"), 0);
    }
    EXPECT_EQ(written(), "bind 2:0:0:0");
    world.remove(block + "x");
    {
        const std::jthread manager([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            world.remove("/dev/sdb");
        });
        EXPECT_EQ(bind_to_driver_with_wait_for_driver("USB"), 0);
    }
    world.file("/dev/sdb", "");
    EXPECT_EQ(bind_to_driver_with_wait_for_driver("USB"), -1);
    EXPECT_EQ(text_of(TORVANE_ERROR_MOUNT), "failed to wait for file to be deleted");
    EXPECT_EQ(written(), "unbind 2:0:0:0");
}

TEST_F(Binding, AWaitThatFailsUnbindsAgain) {
    EXPECT_EQ(bind_to_driver_with_wait("USB", 1), -1);
    EXPECT_EQ(text_of(TORVANE_ERROR_MOUNT), "unable to read info or no scsi devices found (NULL)");
    plug_in({.units = {{.bound = false}}});
    refuse("bind");
    EXPECT_EQ(said(bind_to_driver_with_wait("USB-0", 1), TORVANE_ERROR_MOUNT), "-1 failed to bind USB-0 to driver");
    written();
    answers().select = [](int, fd_set *, fd_set *, fd_set *, timeval *) { return 0; }; // the time is up
    EXPECT_EQ(said(bind_to_driver_with_wait("USB-0", 1), TORVANE_ERROR_MOUNT), "-1 failed to wait for file to exist");
    EXPECT_EQ(written(), "bind 2:0:0:0, unbind 2:0:0:0");

    plug_in({.port = 2, .serial = "READER", .units = {{.name = "sdc"}, {.name = "sdd", .minor = 48}}});
    EXPECT_EQ(said(bind_to_driver_with_wait("READER", 1), TORVANE_ERROR_MOUNT), "-1 device is an adapter");
    EXPECT_EQ(written().substr(0, 11), "unbind 3:0:");
}

} // namespace
