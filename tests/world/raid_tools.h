// Fake RAID tools and adapters for a fixture machine.
#ifndef TORVANE_TESTS_WORLD_RAID_TOOLS_H
#define TORVANE_TESTS_WORLD_RAID_TOOLS_H

#include "usb.h"

#include <string>
#include <vector>

namespace torvane::world {

// arcconf's lines: the key padded to the column of its colon.
std::string logical_line(const std::string &key, const std::string &value);
std::string physical_line(const std::string &key, const std::string &value);

// One hard drive's section of "arcconf getconfig"; empty texts leave their lines out.
struct Device {
    int number = 0;
    std::string location = "Enclosure 0, Slot 0";
    std::string vendor = "ACME";
    std::string model = "D1";
    std::string serial = "S0";
    std::string size = "4 KB";
    std::string kind = "Hard drive";
};
std::string device_section(const Device &device);

// What megacli prints of one group of one drive.
extern const std::string kSmallLogical;
extern const std::string kSmallPhysical;

// A script's end by signal. The shell that runs a tool for us stands between or has become the tool.
extern const std::string kKilled;

// One group, its drive at place 0,0, and that drive's section: the least that makes a good controller.
std::string small_config();

// A test with tools of its own on PATH; what they print is given as text.
class RaidTest : public UsbTest {
  protected:
    void TearDown() override;

    void arcconf(const std::string &version, const std::vector<std::string> &configs = {}) const;
    void megacli(const std::string &logical, const std::string &physical) const;
    void lspci(const std::string &output) const;

    // An adapter as the kernel shows it in /sys, at a PCI address without its domain.
    void adapter(const std::string &slot, int host) const;
    // A logical drive: a disk on an adapter's channel.
    std::shared_ptr<FakeDisk> logical_drive(const std::string &name, unsigned minor, const std::string &address,
                                            const std::string &model = "MR9260-4i") const;
    // A physical drive that only a generic node reaches.
    void generic_node(int number, const std::string &serial) const;

    // The list in the lines of places.h; every record knows where it belongs.
    std::string described() const;
    int read();
    void forget();

    RaidController *list = nullptr;
    uint32_t count = 0;
};

} // namespace torvane::world

#endif
