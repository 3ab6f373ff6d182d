// A fixture machine: the test process's own /sys, /proc, /dev, /run and /tmp, in a private mount namespace.
#ifndef TORVANE_TESTS_WORLD_WORLD_H
#define TORVANE_TESTS_WORLD_WORLD_H

#include "answers.h"
#include "sweep.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace torvane::world {

struct Partition {
    uint64_t start = 2048; // 512-byte sectors
    uint64_t size = 0;     // bytes
    std::string uuid = {}; // of its file system; empty: none
};

// A SCSI disk as the kernel shows it.
struct Disk {
    std::string name = "sda";
    unsigned major = 8;
    unsigned minor = 0;
    std::string vendor = "ATA";
    std::string model = "Example Disk";
    std::string serial = "S-0001";
    int generic = -1; // number of its sg node; -1: none
    std::string address = "0:0:0:0";
    std::string parent = "pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0"; // below /sys/devices
    uint64_t size = uint64_t{1} << 30;                                     // bytes
    std::vector<Partition> partitions = {};
    std::string uuid = {};
};

class World {
  public:
    // Throws with the reason when no private mount namespace can be had here.
    World();
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    // Paths are absolute; folders above are made.
    void file(const std::string &path, std::string_view text) const;
    void directory(const std::string &path) const;
    void link(const std::string &path, const std::string &target) const;
    void remove(const std::string &path) const; // with everything below

    // A block (or character) device: a plain file of which fstat() and lstat() tell the number, and whose
    // requests the FakeDisk answers. A path that exists already becomes the device.
    std::shared_ptr<FakeDisk> device(const std::string &path, unsigned major, unsigned minor, bool character = false,
                                     std::shared_ptr<FakeDisk> disk = nullptr) const;

    // An executable of this name, first on PATH: a shell script's body.
    void program(const std::string &name, std::string_view script) const;

    // The whole of /proc/partitions.
    void partition_rows(const std::string &rows) const {
        file("/proc/partitions", "major minor  #blocks  name\n\n" + rows);
    }

    // Lays out a disk in /sys, /dev, /run/udev/data and /proc/partitions. The result answers for the disk and
    // its generic node; partitions answer for themselves, with their own start and size.
    std::shared_ptr<FakeDisk> disk(const Disk &disk) const;

    // One disk's part of the udev database.
    void udev_properties(unsigned major, unsigned minor, std::string_view lines) const;

    // Names in the private /tmp, apart from the way to the build directory.
    std::vector<std::string> leftovers() const;

  private:
    void unmount_all() noexcept;

    std::vector<std::string> mounts_;
    std::string path_; // PATH as it was
};

std::string read_file(const std::string &path);
std::set<int> open_descriptors();

// The error text of a category as a string, for comparisons.
std::string text_of(uint32_t category);

// A test in a world of its own; no descriptor may be left open by it.
class WorldTest : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_) << "descriptors left open"; }

    // What the library has told last in the test's category; with a call's result before it, "-1 failed to read".
    std::string error() const { return text_of(category); }
    std::string said(int result, uint32_t of = 0) const {
        return std::to_string(result) + " " + text_of(of == 0 ? category : of);
    }

    World world;
    uint32_t category = 0;

  private:
    std::set<int> descriptors_ = open_descriptors();
};

} // namespace torvane::world

#endif
