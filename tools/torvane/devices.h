// Devices as people name them on the command line.
#pragma once

#include "output/messages.h"

#include <string>
#include <vector>

namespace tool {

// The device's own path: "sda" and links such as /dev/disk/by-id/... are followed. Names that do not exist or
// are no devices are failures; names that only the RAID tools know pass when `unknown_may_pass` is set.
std::vector<std::string> resolve_devices(const std::vector<std::string> &names, bool unknown_may_pass,
                                         std::vector<Failure> &failures);

// Whether the text names something in the file system, here or in /dev.
bool names_a_file(const std::string &text);

} // namespace tool
