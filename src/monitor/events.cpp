#include "monitor/events.h"

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

using namespace torvane;

namespace {

// A descriptor beyond select()'s set would be written past its end.
bool fits_select(const pollfd &descriptor) noexcept { return descriptor.fd < FD_SETSIZE; }

int wait_by_select(std::span<pollfd> descriptors, timeval *time_left) noexcept {
    fd_set ready;
    FD_ZERO(&ready);
    int highest = -1;
    for (const pollfd &descriptor : descriptors) {
        FD_SET(descriptor.fd, &ready);
        highest = std::max(highest, descriptor.fd);
    }
    const int count = select(highest + 1, &ready, nullptr, nullptr, time_left);
    for (pollfd &descriptor : descriptors) {
        descriptor.revents = count > 0 && FD_ISSET(descriptor.fd, &ready) ? POLLIN : 0;
    }
    return count;
}

int wait_by_poll(std::span<pollfd> descriptors, const timeval *time_left) noexcept {
    constexpr int64_t kNoLimit = -1;
    const int64_t limit =
        time_left == nullptr ? kNoLimit : int64_t{time_left->tv_sec} * 1000 + (time_left->tv_usec + 999) / 1000;
    const int count = poll(descriptors.data(), descriptors.size(), static_cast<int>(std::min<int64_t>(limit, INT_MAX)));
    for (const pollfd &descriptor : descriptors) {
        if ((descriptor.revents & POLLNVAL) != 0) return -1;
    }
    return count;
}

} // namespace

namespace torvane {

bool EventBuffer::read(int fd) noexcept {
    std::memset(bytes_, 0, sizeof bytes_);
    return ::read(fd, bytes_, sizeof bytes_) > 0;
}

int wait_until_readable(std::span<pollfd> descriptors, timeval *time_left) noexcept {
    if (std::any_of(descriptors.begin(), descriptors.end(), [](const pollfd &one) { return one.fd < 0; })) {
        errno = EBADF;
        return -1;
    }
    const bool all_fit = std::all_of(descriptors.begin(), descriptors.end(), fits_select);
    return all_fit ? wait_by_select(descriptors, time_left) : wait_by_poll(descriptors, time_left);
}

} // namespace torvane

inotify_event *read_event(int fd) noexcept {
    Event event(static_cast<inotify_event *>(std::calloc(1, kEventSize)));
    if (!event || read(fd, event.get(), kEventSize) < 0) return nullptr;
    return event.release();
}

void release_event(inotify_event *event) noexcept { std::free(event); }
