#include "output/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace tool {

NewFile::NewFile(const std::string &place) : place_(place), name_(place + ".XXXXXX") {
    sigset_t all{};
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before_);
    fd_ = mkostemp(name_.data(), O_CLOEXEC);
}

NewFile::~NewFile() {
    if (fd_ >= 0) close(fd_);
    if (fd_ >= 0 && !kept_) unlink(name_.c_str());
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool NewFile::keep(const void *bytes, std::size_t size, bool replace) {
    constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
    if (fd_ < 0 || !write_all(bytes, size) || fchmod(fd_, kMode) != 0 || fsync(fd_) != 0) return false;
    kept_ = replace ? rename(name_.c_str(), place_.c_str()) == 0 : take_free_place();
    return kept_;
}

// Not every file system can refuse to replace while it renames. There the place is taken with an empty file, which
// only one can make, and that is what is replaced.
bool NewFile::take_free_place() const {
    if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, place_.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    const int taken = open(place_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (taken < 0) return false;
    close(taken);
    if (rename(name_.c_str(), place_.c_str()) == 0) return true;
    const int error = errno;
    unlink(place_.c_str());
    errno = error;
    return false;
}

bool NewFile::write_all(const void *bytes, std::size_t size) const {
    const auto *next = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t count = ::write(fd_, next, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        next += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace tool
