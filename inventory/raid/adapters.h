// RAID controllers as the kernel knows them: PCI functions that a RAID driver is bound to, and their SCSI hosts.
#pragma once

#include "inventory/kernel/folder.h"

#include <string>
#include <string_view>
#include <vector>

namespace inventory::raid {

struct Adapter {
    std::string pci; // "0000:65:00.0"
    std::string driver;
    std::string serial;             // where the driver tells it (aacraid)
    std::vector<std::string> hosts; // "host0"
    // Whether drives must be expected behind it that only a tool can name. The mpt drivers run plain adapters too, whose
    // drives the kernel sees itself; such an adapter counts once the kernel shows a RAID volume on it.
    bool hides_drives = true;
};

std::vector<Adapter> bound_adapters(ReadFailures &failures);

// A drive that the kernel reaches through a SCSI generic node alone: behind a RAID controller, not handed through.
struct GenericNode {
    std::string node; // "/dev/sg3"
    std::string hctl; // "0:1:4:0"
    std::string serial;
};

std::vector<GenericNode> generic_nodes_without_disk(ReadFailures &failures);

} // namespace inventory::raid
