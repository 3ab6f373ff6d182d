#include "foundation/directory.h"
#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "torvane.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

using namespace torvane;

namespace {

constexpr const char *kFailedLink = "failed to resolve link '%s' (%s)";

CString zeroed(size_t size) noexcept { return CString(static_cast<char *>(std::calloc(1, size))); }

// Writes the path of the first entry with the exact name, or with a name that begins with it.
bool find_entry(const char *directory, const char *name, bool exact, char (&path)[kPathSize]) noexcept {
    Directory entries(directory);
    if (!entries) return false;
    while (const dirent *entry = entries.next()) {
        if (exact ? !equal(entry->d_name, name) : !begins_with(entry->d_name, name)) continue;
        std::snprintf(path, kPathSize, "%s/%s", directory, entry->d_name);
        return true;
    }
    return false;
}

} // namespace

char *get_name_from_device_id(uint32_t major, uint32_t minor) noexcept {
    char *path = nullptr;
    const auto number = [](uint32_t n) noexcept { return static_cast<int32_t>(n); };
    const size_t size = static_cast<size_t>(intlen(number(major)) + intlen(number(minor))) + 17;
    if (dupnprintf(&path, size, "%s/%d:%d", "/sys/dev/block", number(major), number(minor)) != 0) {
        return fail_null(kSysfs, "failed to allocate device id path");
    }
    const CString link(path);
    char target[PATH_MAX + 1];
    const ssize_t length = readlink(path, target, PATH_MAX);
    if (length < 0) return fail_null(kSysfs, "failed to read link of '%s'", path);
    target[length] = '\0';
    if (length > 0 && target[length - 1] == '/') target[length - 1] = '\0';
    const char *base = basename(target);
    char *name = get_device_name_from_partition_new(base);
    return name != nullptr ? name : fail_null(kSysfs, "failed to read device name from '%s'", base);
}

int get_scsi_generic_name(const char *path, size_t size, char *buffer) noexcept {
    if (path == nullptr || buffer == nullptr || size == 0) return -1;
    // Every step is held to the caller's size, the link's path included: in a short buffer it is cut, names nothing,
    // and the device counts as one without a generic node.
    const CString name = zeroed(size);
    const CString link = zeroed(size);
    const CString target = zeroed(size);
    const CString generic = zeroed(size);
    if (!name || !link || !target || !generic || get_last_token(path, "/", size, name.get()) < 0) return -1;
    const int digit = first_digit_index(name.get());
    if (digit >= 0) name.get()[digit] = '\0';
    std::snprintf(link.get(), size - 1, "/sys/block/%s/device/generic", name.get());
    if (readlink(link.get(), target.get(), size - 1) < 0) {
        if (errno == ENOENT) return 0;
        return fail(kSysfs, kFailedLink, link.get(), std::strerror(errno));
    }
    if (get_last_token(target.get(), "/", size, generic.get()) < 0) return -1;
    std::snprintf(buffer, size - 1, "/dev/%s", generic.get());
    buffer[size - 1] = '\0';
    return static_cast<int>(std::strlen(buffer));
}

int allocate_scsi_generic_name(const char *path, char **name) noexcept {
    if (path == nullptr || name == nullptr) return -1;
    const std::string_view token = last_token(path, "/");
    if (token.empty()) return -1;
    const CString link = joined({kSysBlock, "/", disk_name_prefix(token), "/device/generic"});
    if (!link) return -1;
    char target[PATH_MAX];
    const ssize_t length = readlink(link.get(), target, sizeof target - 1);
    // Kept: the words name no link.
    if (length < 0) return fail(kSysfs, kFailedLink, "(null)", std::strerror(errno));
    target[length] = '\0';
    const std::string_view generic = last_token(target, "/");
    if (generic.empty()) return -1;
    CString device = joined({"/dev/", generic});
    if (!device) return -1;
    *name = device.release();
    return static_cast<int>(std::strlen(*name));
}

int get_name_from_generic(const char *path, size_t size, char *buffer) noexcept {
    if (path == nullptr || buffer == nullptr || size == 0) return -1;
    char name[kPathSize] = "";
    if (get_last_token(path, "/", sizeof name, name) < 0) return -1;
    if (!begins_with(name, "sg")) return 0;
    char directory[kPathSize];
    std::snprintf(directory, sizeof directory - 1, "%s/%s/device", kSysGeneric, name);
    char link[kPathSize];
    if (!find_entry(directory, "block", true, link) && !find_entry(directory, "block:", false, link)) {
        return fail(kSysfs, "failed to find '%s' file in '%s'", "block", directory);
    }
    char target[kPathSize] = "";
    if (readlink(link, target, sizeof target - 1) < 0) {
        // Current kernels have a directory here, not a link: that is a failure, only a vanished one is not.
        if (errno == ENOENT) return 0;
        return fail(kSysfs, kFailedLink, link, std::strerror(errno));
    }
    char block[kPathSize] = "";
    if (get_last_token(target, "/", sizeof block, block) < 0) return -1;
    std::snprintf(buffer, size - 1, "/dev/%s", block);
    buffer[size - 1] = '\0';
    return static_cast<int>(std::strlen(buffer));
}

int get_name_from_fd(int fd, char *buffer, size_t size) noexcept {
    if (buffer == nullptr || size == 0) return -1;
    char link[kPathSize];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[kPathSize] = "";
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length < 1) {
        if (errno != ENOENT) fail(kSysfs, kFailedLink, link, std::strerror(errno));
        return -1;
    }
    std::strncpy(buffer, target, size - 1);
    buffer[size - 1] = '\0';
    return static_cast<int>(length);
}
