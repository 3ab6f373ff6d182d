// Device nodes, opened only when they are what they should be: opening a tape or a terminal has effects.
#pragma once

#include "inventory/reading/descriptor.h"

#include <cstdint>
#include <optional>
#include <string>

namespace inventory {

// "" for a block device or a SCSI generic node; else why the path is neither. Nothing is opened.
std::string why_no_device(const std::string &path);

constexpr const char *kAnotherDevice = "another device has taken its place";

struct OpenDevice {
    Descriptor descriptor;
    int error = 0;     // errno, when the system refused
    std::string words; // why it is not open
};

// For reading, without waiting for a medium and without closing a tray, in a worker. The node must have the number
// that the kernel gives the device ("8:16"): a stale node leads to another disk. Numbers are given out anew, too, when a
// device goes and another comes: where the kernel's running number of media is known, it must still be the same.
OpenDevice open_device(const std::string &path, const std::string &number,
                       std::optional<std::uint64_t> diskseq = std::nullopt);

} // namespace inventory
