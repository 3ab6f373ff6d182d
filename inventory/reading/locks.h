// Locks that remember who waits for a device. The kernel lets go of a lock when the process that took it has ended,
// and a process that sleeps in a driver has not, killed or not.
#pragma once

#include "inventory/reading/descriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace inventory {

// A lock that is taken. It goes with this owner, and with the process.
class DeviceLock {
  public:
    DeviceLock() = default;
    DeviceLock(int folder, std::string name, Descriptor file)
        : folder_(folder), name_(std::move(name)), file_(std::move(file)) {}
    DeviceLock(DeviceLock &&) noexcept = default;
    DeviceLock &operator=(DeviceLock &&) = delete;
    DeviceLock(const DeviceLock &) = delete;
    DeviceLock &operator=(const DeviceLock &) = delete;
    ~DeviceLock();

  private:
    int folder_ = -1;
    std::string name_;
    Descriptor file_;
};

// Another process has the lock.
struct Holder {
    std::chrono::system_clock::time_point since;
    std::string process; // its number; "" when it did not say
};

struct LockAnswer {
    DeviceLock lock;              // taken, unless
    std::optional<Holder> holder; // there is one
};

// A folder of locks that only its owner may write.
class LockFolder {
  public:
    // /run/torvane for root, below the user's own folder in /run for others. Nothing where neither can be had, or
    // where somebody else made it.
    static std::optional<LockFolder> open();
    static std::optional<LockFolder> open(const std::string &path);

    // Never waits. Where no file can be made (a full /run) the lock is given without one: that costs the memory of
    // who waits, not the reading.
    [[nodiscard]] LockAnswer take(const std::string &name) const;

  private:
    explicit LockFolder(Descriptor folder) : folder_(std::move(folder)) {}

    Descriptor folder_;
};

// "8:16-42": a device number may come to belong to another device, the kernel's running number of media does not.
std::string lock_name(const std::string &device_number, std::optional<std::uint64_t> diskseq);

} // namespace inventory
