#include "commands/mount_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace tool {
namespace {

constexpr const char *kPlace = "/tmp";
constexpr std::string_view kPrefix = "torvane.";
constexpr std::size_t kRandom = 6; // characters that mkdtemp(3) chooses
constexpr std::string_view kMount = "_mount";

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool is_alphanumeric(std::string_view text, bool with_capitals) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [with_capitals](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (with_capitals && c >= 'A' && c <= 'Z');
    });
}

bool is_made_name(std::string_view name) {
    return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kRandom &&
           is_alphanumeric(name.substr(kPrefix.size()), true);
}

bool is_mount_point(std::string_view name) { return name.ends_with(kMount); }

// "sda1" and "sda1_mount".
bool is_entry(std::string_view name) {
    if (is_mount_point(name)) name.remove_suffix(kMount.size());
    return is_alphanumeric(name, false);
}

std::string objection_to(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return std::strerror(errno);
    if (status.st_uid != geteuid()) return "belongs to somebody else";
    return (status.st_mode & ALLPERMS) == S_IRWXU ? ""
                                                  : "others may write or look into it: not made by 'torvane mount'";
}

std::string objection_to(int fd, const std::string &name) {
    struct stat status {};
    if (fstatat(fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return name + ": " + std::strerror(errno);
    const bool fits = is_entry(name) && (is_mount_point(name) ? S_ISDIR(status.st_mode) : S_ISBLK(status.st_mode));
    return fits ? "" : "holds '" + name + "', which 'torvane mount' did not put there";
}

// Below /proc, so that the directory that was opened is meant whatever stands at its path by now.
std::string path_of(int fd, const std::string &name) { return "/proc/self/fd/" + std::to_string(fd) + "/" + name; }

std::string names_in(DIR *directory, std::vector<std::string> &names) {
    errno = 0;
    while (const dirent *entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
        errno = 0;
    }
    return errno == 0 ? "" : std::strerror(errno);
}

// Opened, held, and all of it looked at before anything is done.
class MountDirectory {
  public:
    explicit MountDirectory(const std::string &path) {
        const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            trouble_ = std::strerror(errno);
            return;
        }
        directory_.reset(fdopendir(fd));
        if (!directory_) {
            trouble_ = std::strerror(errno);
            close(fd);
            return;
        }
        trouble_ = objection_to(fd);
        if (trouble_.empty()) trouble_ = names_in(directory_.get(), names_);
        for (const std::string &name : names_) {
            if (trouble_.empty()) trouble_ = objection_to(fd, name);
        }
    }

    [[nodiscard]] const std::string &trouble() const { return trouble_; }

    // The first failure ends it; "" when all went well.
    std::string for_mount_points(const std::function<int(const char *path)> &action) const {
        for (const std::string &name : names_) {
            if (!is_mount_point(name)) continue;
            if (action(path_of(dirfd(directory_.get()), name).c_str()) != 0) return name + ": " + std::strerror(errno);
        }
        return {};
    }

    // Nodes and empty mount points; whatever else came meanwhile keeps the directory.
    [[nodiscard]] std::string empty() const {
        for (const std::string &name : names_) {
            const int flags = is_mount_point(name) ? AT_REMOVEDIR : 0;
            if (unlinkat(dirfd(directory_.get()), name.c_str(), flags) != 0) return name + ": " + std::strerror(errno);
        }
        return {};
    }

  private:
    Directory directory_;
    std::vector<std::string> names_;
    std::string trouble_;
};

// A mount point with nothing mounted on it is none any more: that is how far an earlier call may have come.
int unmount(const char *path) { return umount2(path, UMOUNT_NOFOLLOW) == 0 || errno == EINVAL ? 0 : -1; }

int harden(const char *path) {
    constexpr unsigned long kFlags = MS_REMOUNT | MS_BIND | MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC;
    return ::mount(nullptr, path, nullptr, kFlags, nullptr);
}

} // namespace

bool is_made_by_mount(const std::string &directory) {
    return is_made_name(directory.substr(directory.find_last_of('/') + 1));
}

std::string make_mount_directory(std::string &directory) {
    struct statvfs about {};
    if (statvfs(kPlace, &about) == 0 && (about.f_flag & ST_NODEV) != 0) {
        return std::string(kPlace) + " is mounted nodev, so that no device opens there: 'mount -o remount,dev " +
               kPlace + "' allows it";
    }
    directory = std::string(kPlace) + "/" + std::string(kPrefix) + std::string(kRandom, 'X');
    return mkdtemp(directory.data()) != nullptr ? "" : std::string(kPlace) + ": " + std::strerror(errno);
}

std::string harden_mounts(const std::string &directory) {
    const MountDirectory opened(directory);
    return opened.trouble().empty() ? opened.for_mount_points(harden) : opened.trouble();
}

std::string end_mounts(const std::string &directory) {
    const std::string path = std::filesystem::path(directory + "/").parent_path().lexically_normal();
    if (!is_made_by_mount(path)) return "not made by 'torvane mount'";
    const MountDirectory opened(path);
    std::string trouble = opened.trouble();
    if (trouble.empty()) trouble = opened.for_mount_points(unmount);
    if (trouble.empty()) trouble = opened.empty();
    // By its path, but of an empty directory nothing is lost, whosever it were.
    if (trouble.empty() && rmdir(path.c_str()) != 0) trouble = std::strerror(errno);
    return trouble;
}

} // namespace tool
