// What the kernel, its mount tables and the device manager's database say about block devices. No device is opened:
// a drive that does not answer holds nothing up here, and every user may ask.
#pragma once

#include "inventory/machine.h"

#include <memory>
#include <string>
#include <vector>

namespace inventory {

struct KernelRequest {
    bool all = false;              // loop, zram, ram and network block devices too, those that hold something
    std::vector<std::string> keys; // facts that are needed; empty: all. What no fact needs is not read.
    bool puts_off = false;         // leaves the attributes of SCSI drives to KernelDetails
};

// The drives whose attributes were put off.
std::vector<Thing *> read_kernel(Machine &machine, const KernelRequest &request);

// Reads what was put off, one drive at a time: a third of the time that a list takes, which workers share.
class KernelDetails {
  public:
    explicit KernelDetails(const KernelRequest &request);
    KernelDetails(const KernelDetails &) = delete;
    KernelDetails &operator=(const KernelDetails &) = delete;
    ~KernelDetails();

    // False, and nothing is told, when another drive has its name by now.
    [[nodiscard]] bool read(Thing &drive);

  private:
    struct Reader;
    std::unique_ptr<Reader> reader_;
};

} // namespace inventory
