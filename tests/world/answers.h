// Scripted answers to the system calls that no fixture tree can give: device commands, device numbers, forks.
//
// answers.cpp defines ioctl(), fstat() and their kin in the test program, where they win over the C library's.
// They forward to it unless a hook or a fake device has the answer.
#ifndef TORVANE_TESTS_WORLD_ANSWERS_H
#define TORVANE_TESTS_WORLD_ANSWERS_H

#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace torvane::world {

using Bytes = std::vector<unsigned char>;

struct Reply {
    Bytes data;
    unsigned char status = 0; // SCSI status: 2 is CHECK CONDITION
    uint16_t host_status = 0;
    uint16_t driver_status = 0;
    int error = 0; // errno of a refused ioctl()
    Bytes sense = {};
};

struct DefectList {
    uint32_t bytes = 0;
    unsigned char format = 4;
};

// What a device answers to requests on its open descriptor. An absent value makes its request fail.
struct FakeDisk {
    std::optional<uint32_t> block_size = 512;
    std::optional<uint64_t> size = uint64_t{1} << 30; // bytes
    std::optional<uint64_t> sectors;                  // BLKGETSIZE; `size` in 512-byte sectors when absent
    std::optional<uint64_t> start = 0;                // HDIO_GETGEO, 512-byte sectors
    std::optional<uint64_t> big_start;                // HDIO_GETGEO_BIG, which kernels no longer know
    std::optional<Bytes> ata_identity;
    std::optional<uint32_t> idlun;
    Bytes inquiry;                        // standard INQUIRY data
    std::map<unsigned char, Bytes> pages; // vital product data, by page code
    std::optional<DefectList> primary_defects;
    std::optional<DefectList> grown_defects;
    std::function<std::optional<Reply>(const Bytes &cdb)> answer;                     // has the first say on SG_IO
    std::function<std::optional<int>(unsigned long request, void *argument)> request; // ... and on any other
    std::set<unsigned long> failing;                                                  // requests that fail with EIO

    void set_inquiry(std::string_view vendor, std::string_view product, unsigned char type = 0);
    void set_serial(std::string_view serial); // pages 0x00 and 0x80
    void set_rotation(unsigned rate);         // page 0xB1
    void set_ata_identity(std::string_view serial, std::string_view model);

    // As an Innodisk drive: SMART data with this permission byte, and firmware sectors that name themselves, but one.
    void be_innodisk(unsigned char permission, std::function<bool(int sector)> fails = nullptr);
};

// Hooks: a value is the answer (set errno with it), no value lets the call go on. A hook that makes the same
// call reaches the real one.
struct Answers {
    std::function<int(int fd, unsigned long request, void *argument)> ioctl; // of every descriptor
    std::function<std::optional<int>(const char *path, int flags, mode_t mode)> open;
    std::function<std::optional<std::FILE *>(const char *path, const char *mode)> fopen;
    std::function<std::optional<int>(const char *path, mode_t mode, dev_t device)> mknod;
    std::function<std::optional<int>(const char *command)> system;
    std::function<std::optional<pid_t>()> fork;
    std::function<std::optional<int>()> inotify_init;
    std::function<std::optional<int>(int count, fd_set *, fd_set *, fd_set *, timeval *timeout)> select;

    bool sweep_udev = false; // whether the steps of libudev are steps of a sweep, too
    bool sweep_fork = false; // whether fork() is one: in the library a failed one ends the calling process, by contract

    // Device commands in the order made: "sda BLKSSZGET", "sg0 SG_IO 12 01 80 00 04 00".
    std::vector<std::string> log;

    // Makes the file at `path` a device: fstat() and its kin say so and `disk` answers its requests.
    void add_device(const std::string &path, mode_t type, dev_t number, std::shared_ptr<FakeDisk> disk);
};

// The answers in force; a World resets them.
Answers &answers();

// Nothing is answered any more.
void reset_answers();

} // namespace torvane::world

#endif
