#include "monitor/events.h"

#include <unistd.h>

using namespace torvane;

inotify_event *read_event(int fd) noexcept {
    Event event(static_cast<inotify_event *>(std::calloc(1, kEventSize)));
    if (!event || read(fd, event.get(), kEventSize) < 0) return nullptr;
    return event.release();
}

void release_event(inotify_event *event) noexcept { std::free(event); }
