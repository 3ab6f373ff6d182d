// inotify events as they are read, and waiting for them.
#ifndef TORVANE_MONITOR_EVENTS_H
#define TORVANE_MONITOR_EVENTS_H

#include "foundation/owners.h"
#include "torvane.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/time.h>

#include <span>

namespace torvane {

constexpr size_t kEventNameSize = 256; // NAME_MAX and a terminator
constexpr size_t kEventSize = sizeof(inotify_event) + kEventNameSize;

using Event = std::unique_ptr<inotify_event, Calls<&release_event>>;

// One read of events, of which the first counts, where none is handed out: needs no memory.
class EventBuffer {
  public:
    // False when nothing can be read.
    bool read(int fd) noexcept;
    const inotify_event &first() const noexcept { return *reinterpret_cast<const inotify_event *>(bytes_); }

  private:
    alignas(inotify_event) char bytes_[kEventSize];
};

// How many of the descriptors are readable, each with `revents` set then: 0 after the time that is left, without
// limit for null; -1 on failure. Linux counts the time down as it is used up.
int wait_until_readable(std::span<pollfd> descriptors, timeval *time_left) noexcept;

} // namespace torvane

#endif
