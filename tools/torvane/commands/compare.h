// What differs between two listings of a machine's drives.
#pragma once

#include "output/table.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace tool {

// What `list --json` has printed; WrongUsage for anything else: a script must not take it for a machine without drives.
Json listing_in(std::istream &stream, const std::string &file);

struct Difference {
    std::string kind; // missing, new, moved, changed
    std::string name; // of the drive in the newer listing, else in the older one
    std::string serial;
    std::string wwn;
    std::string fact; // what moved or changed, "" for whole drives
    std::string before;
    std::string after;
};

// Of documents that `list --json` has printed. Drives are told by WWN and serial number; where they have neither, by
// name. A bay that holds another drive is a change of that bay's serial number.
std::vector<Difference> compare(const Json &before, const Json &after);

// "sdb (SERIAL): moved: bay 3 -> 4"
std::string sentence_of(const Difference &difference);
Json to_json(const Difference &difference);

} // namespace tool
