// USB storage that a text of the command line means.
#pragma once

#include "commands/devices.h"

#include <chrono>
#include <string>
#include <vector>

namespace tool {

struct UsbChoice {
    inventory::Machine machine; // owner of the things
    inventory::Thing *interface = nullptr;
    std::vector<inventory::Thing *> devices; // all of the interface, or the one that was named
    std::string name;                        // for people: the serial number where there is one
};

// False, and everything told, when the text names none or several, or what has no device behind it. A stick that was
// plugged in a moment ago is waited for: the kernel itself waits a second before it asks a new one (delay_use).
bool choose_usb(const std::string &text, std::chrono::milliseconds limit, UsbChoice &choice);

// Mounts, swap space, arrays and volumes on the device and its partitions, a sentence each.
std::vector<std::string> users_of(const inventory::Thing &device);

} // namespace tool
