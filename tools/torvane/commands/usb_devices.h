// USB storage as the library takes it: by a serial number that begins no other.
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
    std::string serial;                      // what the library knows it by
};

// False, and everything told, when the text names none or several, or when the serial number begins another one,
// of which the library would take the first.
bool choose_usb(const std::string &text, std::chrono::milliseconds limit, UsbChoice &choice);

// Mounts, swap space, arrays and volumes on the device and its partitions, a sentence each.
std::vector<std::string> users_of(const inventory::Thing &device);

} // namespace tool
