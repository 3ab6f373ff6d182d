// Hardware RAID: what the makers' tools tell, one maker at a time.
#pragma once

#include "isolate.h"
#include "output/messages.h"

#include <torvane.h>

#include <memory>
#include <vector>

namespace tool {

// Controllers of one maker, owned.
class Controllers {
  public:
    Controllers() = default;
    Controllers(Controllers &&other) noexcept
        : list_(std::exchange(other.list_, nullptr)), count_(std::exchange(other.count_, 0)) {}
    Controllers &operator=(Controllers &&other) noexcept {
        std::swap(list_, other.list_);
        std::swap(count_, other.count_);
        return *this;
    }
    ~Controllers() { destroy_raids(list_, static_cast<int>(count_)); }

    [[nodiscard]] RaidController *list() const { return list_; }
    [[nodiscard]] uint32_t count() const { return count_; }
    RaidController **list_place() { return &list_; }
    uint32_t *count_place() { return &count_; }

  private:
    RaidController *list_ = nullptr;
    uint32_t count_ = 0;
};

// Whether any maker's tool is on the PATH.
bool has_raid_tool();

// The controllers of all makers as a wire array, one maker after the other; what failed is appended to the
// failures. The library's get_raids() loses all makers when one tool misbehaves; here each stands alone.
Wire find_controllers(std::chrono::milliseconds limit, std::vector<Failure> &failures);

// As the library's records, for its functions that look names up.
Controllers controllers_from_wire(const Wire &wire);

} // namespace tool
