// What the kernel, its mount tables and the device manager's database say about block devices. No device is opened:
// a drive that does not answer holds nothing up here, and every user may ask.
#pragma once

#include "inventory/machine.h"

#include <string>
#include <vector>

namespace inventory {

struct KernelRequest {
    bool all = false;              // loop, zram, ram and network block devices too, those that hold something
    std::vector<std::string> keys; // facts that are needed; empty: all. What no fact needs is not read.
};

void read_kernel(Machine &machine, const KernelRequest &request);

} // namespace inventory
