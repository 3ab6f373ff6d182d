#include "foundation/text.h"
#include "monitor/events.h"
#include "torvane.h"

#include <algorithm>
#include <ctime>

using namespace torvane;

namespace {

constexpr uint32_t kDeletions = IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
// Only the first event of a read is looked at: an opening tells of a file whose creation was passed over.
constexpr uint32_t kCreations = IN_OPEN | IN_CREATE;

constexpr int kSeen = 0;
constexpr int kTimedOut = 1;

// An event on the directory itself carries no name. The wanted name is compared over its own length, so a
// longer one counts: waiting for a disk ends with its first partition, too.
bool has_name(const inotify_event &event, const char *name) noexcept {
    return std::strlen(name) <= kEventNameSize && begins_with(event.len == 0 ? "" : event.name, name);
}

// Events that came in time may still wait to be read when the time is up.
constexpr int64_t kReadingOn = 100; // milliseconds

int64_t milliseconds_now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void shorten(timeval &time, int64_t milliseconds) noexcept {
    const int64_t most = std::max<int64_t>(milliseconds, 0);
    if (int64_t{time.tv_sec} * 1000 + time.tv_usec / 1000 <= most) return;
    time = {static_cast<time_t>(most / 1000), static_cast<suseconds_t>(most % 1000 * 1000)};
}

// Waits until the file exists or is gone, whichever is wanted.
int wait_till_file_exists(const char *directory, const char *name, uint32_t timeout_seconds, int wanted,
                          uint32_t mask) noexcept {
    if (directory == nullptr || name == nullptr) return -1;
    const CString path = make_text("%s/%s", directory, name);
    if (!path) return -1;
    if (file_exists(path.get()) == wanted) return 0;
    return wait_for_file_event_type(directory, name, timeout_seconds, mask) == kSeen ? 0 : -1;
}

} // namespace

int wait_for_file_event(int inotify_fd, const char *name, uint32_t timeout_seconds) noexcept {
    if (name == nullptr) return -1;
    // What select() leaves of the time-out bounds all its rounds together. It takes nothing off for a descriptor
    // that is readable at once, so the clock counts, too, or other files' events without end would be waited out.
    const int64_t end = milliseconds_now() + int64_t{timeout_seconds} * 1000;
    timeval time_left{static_cast<time_t>(timeout_seconds), 0};
    while (true) {
        pollfd descriptor{inotify_fd, POLLIN, 0};
        const int count = wait_until_readable({&descriptor, 1}, &time_left);
        if (count < 0) return -1;
        if (count == 0) return kTimedOut;
        EventBuffer events;
        if (!events.read(inotify_fd)) return -1;
        if (has_name(events.first(), name)) return kSeen;
        const int64_t left = end - milliseconds_now();
        if (left < -kReadingOn) return kTimedOut;
        shorten(time_left, left);
    }
}

int wait_for_file_event_type(const char *directory, const char *name, uint32_t timeout_seconds,
                             uint32_t mask) noexcept {
    if (directory == nullptr || name == nullptr) return -1;
    const Descriptor inotify(inotify_init());
    if (!inotify) return -1;
    const int wd = inotify_add_watch(inotify.get(), directory, mask);
    if (wd < 0) return -1;
    const int result = wait_for_file_event(inotify.get(), name, timeout_seconds);
    inotify_rm_watch(inotify.get(), wd);
    return result;
}

int wait_till_file_is_deleted(const char *directory, const char *name, uint32_t timeout_seconds) noexcept {
    return wait_till_file_exists(directory, name, timeout_seconds, 0, kDeletions);
}

int wait_till_file_is_created(const char *directory, const char *name, uint32_t timeout_seconds) noexcept {
    return wait_till_file_exists(directory, name, timeout_seconds, 1, kCreations);
}
