// USB mass storage in a fixture machine: interfaces with the devices behind them, nodes, mounts.
#ifndef TORVANE_TESTS_WORLD_USB_H
#define TORVANE_TESTS_WORLD_USB_H

#include "torvane.h"
#include "world.h"

#include <map>

namespace torvane::world {

// A device (logical unit) behind an interface.
struct Unit {
    std::string name = "sdb"; // empty: no block device
    unsigned major = 8;
    unsigned minor = 16;
    unsigned type = SCSI_TYPE_DISK;
    uint64_t size = uint64_t{1} << 30; // bytes
    bool bound = true;
    bool node = true; // in /dev
    std::vector<Partition> partitions = {};
    std::string uuid = {};
};

struct UsbDevice {
    unsigned port = 1;               // of the hub: "1-1"; its SCSI host has the next number
    std::string serial = "USB-0001"; // empty: none
    std::string manufacturer = "Example";
    std::string product = "Stick";
    std::vector<Unit> units = {Unit{}};
};

// A machine with the kernel's SCSI drivers. Nodes that the library makes are plain files that are told to be
// block devices; mounts are lines in /proc/mounts.
class UsbTest : public WorldTest {
  protected:
    UsbTest();

    void plug_in(const UsbDevice &device);

    // The library's records of the interface at a port; null when it cannot be listed.
    struct Release {
        void operator()(MediaRecord *media) const { release_media(media); }
    };
    using Media = std::unique_ptr<MediaRecord, Release>;
    static Media read(const std::string &port = "1-1");

    static std::string control(const std::string &driver, const std::string &file) {
        return "/sys/bus/scsi/drivers/" + driver + "/" + file;
    }
    static std::vector<std::string> names_in(const std::string &directory); // sorted

    std::vector<std::string> nodes; // made with mknod(): "path major:minor mode"
    std::vector<std::string> commands;
    std::map<std::string, int> statuses; // what system() returns for a command that begins so

    void write_mounts() const;
    std::map<dev_t, std::shared_ptr<FakeDisk>> disks; // of the devices plugged in
    std::vector<std::string> mounts;                  // mount points

  private:
    void plug_in_unit(const UsbDevice &device, size_t index);
    std::optional<int> make_node(const char *path, mode_t mode, dev_t number);
    std::optional<int> answer_command(const char *command);
};

} // namespace torvane::world

#endif
