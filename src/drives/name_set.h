// Names to look up, so that merging long lists need not walk one for each entry of the other.
#ifndef TORVANE_DRIVES_NAME_SET_H
#define TORVANE_DRIVES_NAME_SET_H

#include "foundation/owners.h"

#include <cstddef>

namespace torvane {

// Holds pointers to names of other owners. All calls are safe without memory: reserve() then says no.
class NameSet {
  public:
    // Room for this many names.
    bool reserve(uint32_t count) noexcept;
    // False when an equal name is there already.
    bool add(const char *name) noexcept;
    // The equal name that was added; null when none was.
    const char *find(const char *name) const noexcept;

  private:
    size_t slot_of(const char *name) const noexcept;

    Block<const char *> slots_;
    size_t mask_ = 0;
};

} // namespace torvane

#endif
