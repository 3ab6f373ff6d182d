#include "inventory/reading/device.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/major.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstring>

namespace inventory {
namespace {

std::string kind_of(mode_t mode) {
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISREG(mode)) return "a plain file";
    if (S_ISFIFO(mode)) return "a pipe";
    if (S_ISSOCK(mode)) return "a socket";
    return "something else";
}

std::string why_no_device(const struct stat &status) {
    if (S_ISBLK(status.st_mode)) return {};
    if (S_ISCHR(status.st_mode) && major(status.st_rdev) == SCSI_GENERIC_MAJOR) return {};
    return "neither a block device nor a SCSI generic node, but " + kind_of(status.st_mode);
}

std::string number_of(const struct stat &status) {
    return std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
}

std::string why_not_this(const struct stat &status, const std::string &number) {
    std::string words = why_no_device(status);
    if (words.empty() && number_of(status) != number) {
        words = "the node has the number " + number_of(status) + ", the device " + number;
    }
    return words;
}

// Kernels before 5.15 do not tell.
bool is_another(int device, std::uint64_t diskseq) {
    __u64 told = 0;
    return ioctl(device, BLKGETDISKSEQ, &told) == 0 && told != diskseq;
}

OpenDevice refusal(int error) { return {{}, error, std::strerror(error)}; }

} // namespace

std::string why_no_device(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    return why_no_device(status);
}

OpenDevice open_device(const std::string &path, const std::string &number, std::optional<std::uint64_t> diskseq) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return refusal(errno);
    if (std::string words = why_not_this(status, number); !words.empty()) return {{}, 0, std::move(words)};
    Descriptor device(retried([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    if (!device) return refusal(errno);
    // The node may have been replaced in between.
    if (fstat(device.get(), &status) != 0) return refusal(errno);
    if (std::string words = why_not_this(status, number); !words.empty()) return {{}, 0, std::move(words)};
    if (diskseq && is_another(device.get(), *diskseq)) return {{}, 0, kAnotherDevice};
    return {std::move(device), 0, {}};
}

} // namespace inventory
