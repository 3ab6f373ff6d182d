// Devices as people name them on the command line.
#pragma once

#include "inventory/survey/survey.h"
#include "output/messages.h"

#include <chrono>
#include <string>
#include <vector>

namespace tool {

// The kernel's name of a block device, or of the disk behind a SCSI generic node: "sda" and links such as
// /dev/disk/by-id/... are followed. Whatever is no such device is a trouble, and is not opened.
std::string kernel_name_of(const std::string &text, Troubles &troubles);

// What a thing is called: by the kernel, without /dev, or by whoever told of it.
std::string name_of(const inventory::Thing &thing);

bool is_usb(const inventory::Thing &thing);
bool is_optical(const inventory::Thing &thing);

// Whether the text names something in the file system, here or in /dev.
bool names_a_file(const std::string &text);

// What a text names: device, serial number, WWN, label, UUID, bay, place behind a RAID controller ...
struct Found {
    inventory::Machine machine;
    std::vector<inventory::Thing *> things;
    std::string other; // what it does name, where that is not what is wanted
    Troubles troubles; // why nothing was found where more might have been
};

// The cheapest sources first: the kernel, then the drives' own answers, then the RAID makers' tools.
Found look_up(const std::string &text, std::chrono::milliseconds limit,
              bool (*fits)(const inventory::Thing &thing) = nullptr);

// The only thing; null, and everything told that there is to say, when it is none or several. `wanted` says what
// would have been right.
inventory::Thing *only_one(const Found &found, const std::string &text, const char *wanted = nullptr);

} // namespace tool
