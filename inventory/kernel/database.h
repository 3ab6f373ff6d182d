// The device manager's database: what its rules found out about a device when it came.
#pragma once

#include "inventory/facts.h"
#include "inventory/kernel/folder.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct udev;

namespace inventory {

class Thing;

// One device's entry.
struct Entry {
    bool known = false; // whether the device manager has seen the device at all
    std::string lines;  // "\nE:PROPERTY=VALUE" and "\nS:LINK BELOW /dev", each ended by the next one or a newline

    [[nodiscard]] std::string text(std::string_view property) const; // "" when missing
    [[nodiscard]] std::vector<std::string> links() const;            // "disk/by-id/..."
};

class Database {
  public:
    explicit Database(ReadFailures *failures);
    [[nodiscard]] Entry entry(unsigned major, unsigned minor) const;

  private:
    [[nodiscard]] Entry asked(unsigned major, unsigned minor) const;

    ReadFailures *failures_;
    Folder files_;
    std::unique_ptr<udev, void (*)(udev *)> udev_;
};

// "\x20" and its like, as the device manager writes what cannot stand in a name.
std::string decoded(std::string_view text);

// What the database says about a thing: model, serial, file system, links ...
void tell_entry(Thing &thing, const Entry &entry);

// Whether the fact has words of the database.
bool is_in_database(std::string_view key);

} // namespace inventory
