// Locks that remember who waits for a device. The kernel lets go of a lock when the process that took it has ended,
// and a process that sleeps in a driver has not, killed or not.
#pragma once

#include "inventory/reading/descriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace inventory {

// Another process has the lock.
struct Holder {
    std::chrono::system_clock::time_point since;
    std::string process; // its number; "" when it did not say
};

// A folder of locks that only its owner may write, and the one lock that this process has there: a file that is renamed
// from device to device, which costs a tenth of making and removing one for each. It goes with this owner, and with the
// process.
class LockFolder {
  public:
    LockFolder(LockFolder &&other) noexcept = default;
    LockFolder &operator=(LockFolder &&other) noexcept = default;
    LockFolder(const LockFolder &) = delete;
    LockFolder &operator=(const LockFolder &) = delete;
    ~LockFolder() { let_go(); }

    // /run/torvane for root, below the user's own folder in /run for others. Nothing where neither can be had, or
    // where somebody else made it.
    static std::optional<LockFolder> open();
    static std::optional<LockFolder> open(const std::string &path);

    // Lets go of the lock before and takes this one, or tells who has it. Never waits. Where no file can be made (a full
    // /run) the lock is given without one: that costs the memory of who waits, not the reading.
    [[nodiscard]] std::optional<Holder> take(const std::string &name);
    void let_go();

  private:
    explicit LockFolder(Descriptor folder) : folder_(std::move(folder)) {}

    [[nodiscard]] bool rename_to(const std::string &name);
    [[nodiscard]] bool leads_to(const std::string &name, int file) const;

    Descriptor folder_;
    Descriptor file_; // the lock, if there is one
    std::string name_;
};

// "8:16-42": a device number may come to belong to another device, the kernel's running number of media does not.
std::string lock_name(const std::string &device_number, std::optional<std::uint64_t> diskseq);

} // namespace inventory
