// What the drives themselves answer, asked through the library in workers.
#pragma once

#include "inventory/kernel/kernel.h"
#include "inventory/machine.h"

#include <chrono>
#include <functional>
#include <vector>

namespace inventory {

struct DriveRequest {
    std::chrono::milliseconds limit{};  // for each drive
    std::vector<std::string> keys = {}; // facts that are wanted; empty: all
    bool defects = false;               // also the defect lists, which takes some drives minutes
    bool state = false;                 // also the makers' own commands
    std::vector<Thing *> only = {};     // empty: all
    std::vector<Thing *> put_off = {};  // those of which read_kernel() has left the attributes to whoever asks them
    KernelRequest kernel = {};          // ... by this request
    std::function<void()> tick = {};    // about once a second while drives are asked
};

// The kernel's facts that asking for these needs: empty, for all.
std::vector<std::string> keys_for_asking(const std::vector<std::string> &keys);

// Asks the drives of the machine that can be asked: SCSI, SATA and IDE disks and optical drives. What the kernel
// keeps of the others (NVMe, virtio, MMC, arrays) is all that an open device would tell. Needs read_kernel() before.
void read_drives(Machine &machine, const DriveRequest &request);

} // namespace inventory
