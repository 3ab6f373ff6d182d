#include "foundation/directory.h"
#include "foundation/text.h"
#include "monitor/events.h"
#include "torvane.h"

#include <algorithm>
#include <span>

using namespace torvane;

namespace {

constexpr uint32_t kWatchedEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE_SELF;

using Monitor = std::unique_ptr<FileMonitor, Calls<&release_monitor>>;

std::span<Watch> watches_of(const FileMonitor &monitor) noexcept { return {monitor.watches, monitor.watch_count}; }

// Entries whose type the file system does not tell are not followed.
bool is_watched_entry(const dirent &entry) noexcept { return entry.d_type == DT_DIR && entry.d_name[0] != '.'; }

// Takes the entry out of the array. The array keeps its size when it cannot be shrunk, and its last entry
// is then an empty one.
int close_gap(FileMonitor &monitor, Watch *gap) noexcept {
    const std::span<Watch> watches = watches_of(monitor);
    std::copy(gap + 1, watches.data() + watches.size(), gap);
    watches.back() = Watch{-1, nullptr};
    if (watches.size() == 1) {
        // realloc() to nothing may or may not free the array.
        std::free(monitor.watches);
        monitor.watches = nullptr;
        monitor.watch_count = 0;
        return 0;
    }
    void *shrunk = std::realloc(monitor.watches, (watches.size() - 1) * sizeof(Watch));
    if (shrunk == nullptr) return -1;
    monitor.watches = static_cast<Watch *>(shrunk);
    --monitor.watch_count;
    return 0;
}

} // namespace

FileMonitor *monitor_directory(const char *directory) noexcept {
    Block<FileMonitor> record(allocate<FileMonitor>());
    if (!record) return nullptr;
    record->fd = inotify_init();
    if (record->fd < 0) return nullptr;
    Monitor monitor(record.release());
    return add_watches(monitor.get(), directory) == 0 ? monitor.release() : nullptr;
}

void release_monitor(FileMonitor *monitor) noexcept {
    if (monitor == nullptr) return;
    for (const Watch &watch : watches_of(*monitor)) {
        inotify_rm_watch(monitor->fd, watch.wd);
        std::free(watch.path);
    }
    close(monitor->fd);
    std::free(monitor->watches);
    std::free(monitor);
}

int add_watches(FileMonitor *monitor, const char *directory) noexcept {
    if (monitor == nullptr || directory == nullptr) return -1;
    Directory entries(directory);
    if (!entries || add_watch(monitor, directory) != 0) return -1;
    while (const dirent *entry = entries.next()) {
        if (!is_watched_entry(*entry)) continue;
        const CString path = make_text("%s/%s", directory, entry->d_name);
        if (!path || add_watches(monitor, path.get()) != 0) return -1;
    }
    return entries.failed() ? -1 : 0;
}

int add_watch(FileMonitor *monitor, const char *path) noexcept {
    if (monitor == nullptr || path == nullptr) return -1;
    const int wd = inotify_add_watch(monitor->fd, path, kWatchedEvents);
    if (wd < 0) return -1;
    if (add_watch_fd(monitor, path, wd) == 0) return 0;
    inotify_rm_watch(monitor->fd, wd);
    return -1;
}

int add_watch_fd(FileMonitor *monitor, const char *path, int wd) noexcept {
    if (monitor == nullptr) return -1;
    uint32_t count = monitor->watch_count;
    if (!grow(monitor->watches, count)) return -1;
    Watch &watch = monitor->watches[monitor->watch_count];
    watch.path = duplicate_str(path);
    watch.wd = watch.path == nullptr ? -1 : wd;
    if (watch.path == nullptr) return -1;
    monitor->watch_count = count;
    return 0;
}

Watch *get_watch(FileMonitor *monitor, int wd) noexcept {
    if (monitor == nullptr) return nullptr;
    const std::span<Watch> watches = watches_of(*monitor);
    const auto found =
        std::find_if(watches.begin(), watches.end(), [wd](const Watch &watch) { return watch.wd == wd; });
    return found == watches.end() ? nullptr : &*found;
}

int remove_watch(FileMonitor *monitor, Watch *watch) noexcept {
    if (monitor == nullptr || watch == nullptr) return -1;
    Watch *found = get_watch(monitor, watch->wd);
    if (found == nullptr) return -1;
    inotify_rm_watch(monitor->fd, found->wd);
    std::free(found->path);
    *found = Watch{-1, nullptr};
    return close_gap(*monitor, found);
}

inotify_event *wait_for_event(FileMonitor *monitor, int cancel_fd) noexcept {
    if (monitor == nullptr) return nullptr;
    const auto [first, second] = std::minmax(monitor->fd, cancel_fd); // the lower one is looked at first
    pollfd descriptors[] = {{first, POLLIN, 0}, {second, POLLIN, 0}};
    if (wait_until_readable(descriptors, nullptr) < 0) return nullptr;
    for (const pollfd &descriptor : descriptors) {
        if (descriptor.revents == 0) continue;
        Event event(read_event(descriptor.fd));
        if (descriptor.fd == cancel_fd) return nullptr;
        if (event) return event.release();
    }
    return nullptr;
}
