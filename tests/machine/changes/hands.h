// The hands that plug and pull.
#pragma once

#include "changes/history.h"

#include <chrono>
#include <random>
#include <set>

namespace changes {

class Hands {
  public:
    explicit Hands(unsigned seed);

    // Until that time; then all is as it was in the beginning. Throws when the machine does not do its part.
    void work_until(Time end);

    [[nodiscard]] const std::vector<Disk> &disks() const { return disks_; }
    [[nodiscard]] const std::map<std::string, int> &counts() const { return counts_; }

  private:
    void begin_change(std::size_t index);
    void finish_change(std::size_t index);
    void plug(const Disk &disk);
    void pull(const Disk &disk);

    std::mt19937 random_;
    std::vector<Disk> disks_;
    std::set<std::size_t> moved_; // indices of the disks that come and go
    std::map<std::string, int> counts_;
};

} // namespace changes
