#include "drives/open_disks.h"

#include "drives/block_geometry.h"
#include "foundation/text.h"

#include <algorithm>
#include <climits>
#include <sys/resource.h>
#include <unistd.h>

namespace torvane {
namespace {

// The kernel gives the lowest free number, so a descriptor's number tells how many are in use: a quarter of
// what the process may have stays free for the rest of the discovery and for the caller's other threads.
int highest_kept() noexcept {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur / 4 * 3, INT_MAX));
}

// One call where the kernel has it (Linux 5.9) and lets us.
void close_all(int first, int last) noexcept {
    if (close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0) return;
    for (int fd = first; fd <= last; ++fd) ::close(fd);
}

} // namespace

OpenDisks::OpenDisks(bool keep) noexcept : keep_(keep), limit_(keep ? highest_kept() : 0) {}

OpenDisks::~OpenDisks() { close(); }

// Numbers in a row are closed at once; the caller's other threads have theirs between ours.
void OpenDisks::close() noexcept {
    const int *descriptors = descriptors_.get();
    for (uint32_t i = 0; i < count_;) {
        const int first = descriptors[i];
        int last = first;
        for (++i; first >= 0 && i < count_ && descriptors[i] == last + 1; ++i) ++last;
        if (first >= 0) close_all(first, last);
    }
    count_ = 0;
    last_.reset();
}

bool OpenDisks::remember(Descriptor device) noexcept {
    constexpr uint32_t kFirstSize = 64;
    if (count_ == size_) {
        int *larger = descriptors_.release();
        const bool grown = grow(larger, size_, std::max(size_, kFirstSize));
        descriptors_.reset(larger);
        if (!grown) return false;
    }
    const bool suffices = device.get() < limit_;
    descriptors_.get()[count_++] = suffices ? device.release() : -1;
    if (!suffices) last_ = std::move(device);
    return true;
}

bool OpenDisks::take_in(const char *path) noexcept {
    if (contains(path, "dm-")) return false;
    uint64_t start = 1;
    Descriptor device(validate_fd(-1, path));
    if (read_device_start(device.get(), path, start) != 0 || start != 0) return false;
    // The disks' places are those of their names: without memory for one, none after it is remembered.
    if (keep_) {
        keep_ = remember(std::move(device));
    } else {
        last_ = std::move(device);
    }
    return true;
}

KnownDrive OpenDisks::known(uint32_t index) const noexcept {
    if (index >= count_) return {};
    return {.device = descriptors_.get()[index], .starts_at_zero = true};
}

} // namespace torvane
