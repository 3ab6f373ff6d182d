// Whether anybody uses a device, also where this process's own mount table does not show it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace inventory {

struct Claim {
    enum class State { kFree, kUsed, kUnknown };
    State state = State::kUnknown;
    std::string words; // why it is not free, or not known
};

// Asks the kernel for the device alone (O_EXCL), in a worker: refused while it or a partition of it is mounted in any
// mount namespace, is swap space, or belongs to an array or volume. `number` as "8:16".
Claim ask_for_device_alone(const std::string &path, const std::string &number, std::chrono::milliseconds limit);

// A mount that processes in another mount namespace (a container, a service of its own) see.
struct ForeignMount {
    std::string number; // "8:17"; of a file system's own where it has several devices
    std::string source; // "/dev/sdb1"
    std::string place;
    std::string process; // the first one seen there, by number and name: "812 (postgres)"
};

// Fills number, source and place from a line of /proc/PID/mountinfo; false when it is none.
bool parse_mount(const std::string &line, ForeignMount &mount);

// All mounts of all mount namespaces but this process's own, each namespace once; those of other users' processes
// only for root.
std::vector<ForeignMount> mounts_elsewhere();

} // namespace inventory
