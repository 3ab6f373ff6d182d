// The device manager's database: what its rules found out about a device when it came.
#pragma once

#include "inventory/facts.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct udev;

namespace inventory {

class Thing;

struct Entry {
    bool known = false; // whether the device manager has seen the device at all
    std::map<std::string, std::string, std::less<>> properties;
    std::vector<std::string> links; // "/dev/disk/by-id/..."

    [[nodiscard]] std::string text(std::string_view property) const; // "" when missing
};

class Database {
  public:
    Database();
    [[nodiscard]] Entry entry(unsigned major, unsigned minor) const;

  private:
    std::unique_ptr<udev, void (*)(udev *)> udev_;
};

// "\x20" and its like, as the device manager writes what cannot stand in a name.
std::string decoded(std::string_view text);

// What the database says about a thing: model, serial, file system, links ...
void tell_entry(Thing &thing, const Entry &entry);

// Whether the fact has words of the database.
bool is_in_database(std::string_view key);

} // namespace inventory
