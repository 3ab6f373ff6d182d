// inotify events as they are read: the owner of one, and the bound that select() puts on descriptors.
#ifndef TORVANE_MONITOR_EVENTS_H
#define TORVANE_MONITOR_EVENTS_H

#include "foundation/owners.h"
#include "torvane.h"

#include <sys/inotify.h>
#include <sys/select.h>

namespace torvane {

constexpr size_t kEventNameSize = 256; // NAME_MAX and a terminator
constexpr size_t kEventSize = sizeof(inotify_event) + kEventNameSize;

using Event = std::unique_ptr<inotify_event, Calls<&release_event>>;

// A descriptor beyond the set would be written past its end.
inline bool fits_select(int fd) noexcept { return fd >= 0 && fd < FD_SETSIZE; }

} // namespace torvane

#endif
