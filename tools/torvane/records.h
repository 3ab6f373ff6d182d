// The library's records as they travel from a reader's process to the tool.
#pragma once

#include "isolate.h"
#include "output/messages.h"

#include <torvane.h>

#include <memory>
#include <vector>

namespace tool {

struct ReleaseDrive {
    void operator()(DriveRecord *record) const { release_drive(record); }
};
using Record = std::unique_ptr<DriveRecord, ReleaseDrive>;

// A list that the library fills.
struct OwnedList : DriveList {
    OwnedList() : DriveList{0, nullptr} {}
    OwnedList(const OwnedList &) = delete;
    OwnedList &operator=(const OwnedList &) = delete;
    ~OwnedList() { release_drives(this); }
};

// One drive and what could not be read of it.
struct Drive {
    Record record;
    std::vector<Failure> failures;
};

Wire record_to_wire(const DriveRecord &record);
Record record_from_wire(const Wire &wire);
Wire failures_to_wire(const std::vector<Failure> &failures);
std::vector<Failure> failures_from_wire(const Wire &wire);

// A record that knows nothing but its name.
Record unread_record(const std::string &name);

// The library's last words about one of these categories, "" when it has not said any.
std::string words_about(std::initializer_list<uint32_t> categories);

} // namespace tool
