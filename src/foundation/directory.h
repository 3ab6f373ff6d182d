// A directory that is read entry by entry, and whether it could be read to its end.
#ifndef TORVANE_FOUNDATION_DIRECTORY_H
#define TORVANE_FOUNDATION_DIRECTORY_H

#include "foundation/owners.h"

#include <cerrno>

namespace torvane {

class Directory {
  public:
    explicit Directory(const char *path) noexcept : stream_(path == nullptr ? nullptr : opendir(path)) {}

    explicit operator bool() const noexcept { return stream_ != nullptr; }
    int fd() const noexcept { return dirfd(stream_.get()); }

    // Null at the end, and where reading fails; failed() then tells which.
    const dirent *next() noexcept {
        errno = 0;
        const dirent *entry = readdir(stream_.get());
        failed_ = entry == nullptr && errno != 0;
        return entry;
    }
    bool failed() const noexcept { return failed_; }

  private:
    std::unique_ptr<DIR, Calls<&close_directory>> stream_;
    bool failed_ = false;
};

} // namespace torvane

#endif
