// What telling whole disks apart learns of them, kept until they are read: each is open already, and starts at
// sector 0. An open disk also keeps the block that the kernel had to fetch from the medium for that answer.
#ifndef TORVANE_DRIVES_OPEN_DISKS_H
#define TORVANE_DRIVES_OPEN_DISKS_H

#include "drives/record.h"

namespace torvane {

class OpenDisks {
  public:
    // Where nothing is to be kept, a disk stays open only until the next one is found: the rows in between are
    // its partitions.
    explicit OpenDisks(bool keep) noexcept;
    OpenDisks(const OpenDisks &) = delete;
    OpenDisks &operator=(const OpenDisks &) = delete;
    ~OpenDisks();

    // is_drive() on a path, as get_device_start() opens it.
    bool take_in(const char *path) noexcept;

    // What is known of the disk that was taken in as the index-th. It stays open until close().
    KnownDrive known(uint32_t index) const noexcept;
    void close() noexcept;

  private:
    bool remember(Descriptor device) noexcept;

    Block<int> descriptors_; // below 0: could not be kept
    uint32_t size_ = 0;
    uint32_t count_ = 0;
    bool keep_;
    int limit_ = 0;
    Descriptor last_{-1};
};

} // namespace torvane

#endif
