#include "inventory/reading/locks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>

namespace inventory {
namespace {

constexpr const char *kRootsFolder = "/run/torvane";
constexpr mode_t kOwnerOnly = 0700;

std::string default_folder() {
    const uid_t user = geteuid();
    return user == 0 ? kRootsFolder : "/run/user/" + std::to_string(user) + "/torvane";
}

bool is_ours(int folder) {
    struct stat status {};
    return fstat(folder, &status) == 0 && status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A file that another process took away between its opening and its locking is nobody's any more.
bool is_linked(int file) {
    struct stat status {};
    return fstat(file, &status) == 0 && status.st_nlink > 0;
}

// The time of the last writing of the file is the time that the lock was taken.
void write_process(int file) {
    std::array<char, 16> text{};
    const int size = std::snprintf(text.data(), text.size(), "%10d\n", static_cast<int>(getpid()));
    if (pwrite(file, text.data(), static_cast<std::size_t>(size), 0) < 0) return; // the lock counts all the same
}

Holder holder_of(int file) {
    Holder holder;
    struct stat status {};
    if (fstat(file, &status) == 0) {
        const auto since =
            std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
        holder.since += std::chrono::duration_cast<std::chrono::system_clock::duration>(since);
    }
    std::array<char, 16> text{};
    int process = 0;
    if (pread(file, text.data(), text.size() - 1, 0) > 0 && std::sscanf(text.data(), "%d", &process) == 1) {
        holder.process = std::to_string(process);
    }
    return holder;
}

} // namespace

DeviceLock::~DeviceLock() {
    if (file_) unlinkat(folder_, name_.c_str(), 0);
}

std::optional<LockFolder> LockFolder::open() { return open(default_folder()); }

std::optional<LockFolder> LockFolder::open(const std::string &path) {
    mkdir(path.c_str(), kOwnerOnly);
    Descriptor folder(retried([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (!folder || !is_ours(folder.get())) return std::nullopt;
    return LockFolder(std::move(folder));
}

LockAnswer LockFolder::take(const std::string &name) const {
    const int folder = folder_.get();
    while (true) {
        Descriptor file(retried([&] {
            return openat(folder, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
        }));
        if (!file) return {};
        if (retried([&] { return flock(file.get(), LOCK_EX | LOCK_NB); }) != 0) {
            if (errno != EWOULDBLOCK) return {};
            return {{}, holder_of(file.get())};
        }
        if (!is_linked(file.get())) continue;
        write_process(file.get());
        return {DeviceLock(folder, name, std::move(file)), std::nullopt};
    }
}

std::string lock_name(const std::string &device_number, std::optional<std::uint64_t> diskseq) {
    return diskseq ? device_number + "-" + std::to_string(*diskseq) : device_number;
}

} // namespace inventory
