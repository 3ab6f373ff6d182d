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

void write_process(int file) {
    std::array<char, 16> text{};
    const int size = std::snprintf(text.data(), text.size(), "%10d\n", static_cast<int>(getpid()));
    if (pwrite(file, text.data(), static_cast<std::size_t>(size), 0) < 0) return; // the lock counts all the same
}

// A file's status changes when it is written and when it is renamed: that is when the lock was taken.
Holder holder_of(int file) {
    Holder holder;
    struct stat status {};
    if (fstat(file, &status) == 0) {
        const auto since =
            std::chrono::seconds(status.st_ctim.tv_sec) + std::chrono::nanoseconds(status.st_ctim.tv_nsec);
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

std::optional<LockFolder> LockFolder::open() { return open(default_folder()); }

std::optional<LockFolder> LockFolder::open(const std::string &path) {
    mkdir(path.c_str(), kOwnerOnly);
    Descriptor folder(retried([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (!folder || !is_ours(folder.get())) return std::nullopt;
    return LockFolder(std::move(folder));
}

void LockFolder::let_go() {
    if (file_) unlinkat(folder_.get(), name_.c_str(), 0);
    file_ = Descriptor();
}

// Not over another's: a file that is there already is looked at first.
bool LockFolder::rename_to(const std::string &name) {
    if (!file_) return false;
    const int folder = folder_.get();
    if (renameat2(folder, name_.c_str(), folder, name.c_str(), RENAME_NOREPLACE) != 0) return false;
    name_ = name;
    return true;
}

// A file that was taken away or renamed between its opening and its locking is this device's no more.
bool LockFolder::leads_to(const std::string &name, int file) const {
    struct stat here {};
    struct stat there {};
    return fstat(file, &here) == 0 && fstatat(folder_.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           here.st_ino == there.st_ino;
}

std::optional<Holder> LockFolder::take(const std::string &name) {
    if (rename_to(name)) return std::nullopt;
    let_go(); // who waits for a lock with another one in hand may wait for somebody who waits for that
    constexpr int kTries = 100; // others are quicker only now and then
    for (int i = 0; i < kTries; ++i) {
        Descriptor file(retried([&] {
            return openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
        }));
        if (!file) return std::nullopt;
        const bool is_locked = retried([&] { return flock(file.get(), LOCK_EX | LOCK_NB); }) == 0;
        if (!is_locked && errno != EWOULDBLOCK) return std::nullopt;
        if (!leads_to(name, file.get())) continue;
        if (!is_locked) return holder_of(file.get());
        write_process(file.get());
        file_ = std::move(file);
        name_ = name;
        return std::nullopt;
    }
    return std::nullopt;
}

std::string lock_name(const std::string &device_number, std::optional<std::uint64_t> diskseq) {
    return diskseq ? device_number + "-" + std::to_string(*diskseq) : device_number;
}

} // namespace inventory
