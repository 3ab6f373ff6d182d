#include "foundation/text.h"
#include "monitor/events.h"
#include "torvane.h"

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
    if (!fits_select(inotify_fd) || name == nullptr) return -1;
    // Linux counts the time-out down as it is used up, so one and the same bounds all the rounds together.
    timeval time_left{static_cast<time_t>(timeout_seconds), 0};
    while (true) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(inotify_fd, &ready);
        const int count = select(inotify_fd + 1, &ready, nullptr, nullptr, &time_left);
        if (count < 0) return -1;
        if (count == 0) return kTimedOut;
        const Event event(read_event(inotify_fd));
        if (event && has_name(*event, name)) return kSeen;
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
