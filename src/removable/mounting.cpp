// Mounting and unmounting single nodes through the system's own commands.
#include "foundation/errors.h"
#include "foundation/text.h"
#include "torvane.h"

#include <mntent.h>
#include <sys/stat.h>

#include <cerrno>

using namespace torvane;

namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr size_t kMountLineSize = 256; // longer lines are cut behind their mount point, or not looked for

inline void close_mounts(std::FILE *mounts) noexcept { endmntent(mounts); }
using Mounts = std::unique_ptr<std::FILE, Calls<&close_mounts>>;

// Runs a command line: 0 for an orderly end with exit code 0. `exit_code` is 255 when no shell could be
// started, and 0 when a signal ended it.
int run(const char *command, int &exit_code) noexcept {
    constexpr int kSignalBits = 0x7F;
    const int status = std::system(command);
    exit_code = (status >> 8) & 0xFF;
    return (status & kSignalBits) == 0 && exit_code == 0 ? 0 : -1;
}

} // namespace

int mount_device(const char *node, const char *mount_point) noexcept {
    if (node == nullptr || mount_point == nullptr) return fail(kMount, "unable to read device or mount point (NULL)");
    const CString command = make_text("mount -o nosuid,ro %s %s", node, mount_point);
    if (!command) return fail(kMount, "unable to create mount command");
    int exit_code = 0;
    if (run(command.get(), exit_code) == 0) return 0;
    return fail(kMount, "failed to mount %s on %s: %d", node, mount_point, exit_code);
}

int mount_device_to_temp_dir(const char *node_name, const char *directory) noexcept {
    if (node_name == nullptr || directory == nullptr) {
        return fail(kMount, "unable to read device or mount point (NULL)");
    }
    const CString mount_point = make_text("%s/%s_mount", directory, node_name);
    if (!mount_point) return fail(kMount, "failed to create mount point name");
    if (mkdir(mount_point.get(), kOwnerOnly) != 0) {
        return fail(kMount, "failed to mkdir %s: %s", mount_point.get(), std::strerror(errno));
    }
    const CString node = make_text("%s/%s", directory, node_name);
    return node ? mount_device(node.get(), mount_point.get()) : fail(kMount, "failed to create device name");
}

int is_mounted(const char *path) noexcept {
    if (path == nullptr) return 0;
    // Only whether the path exists matters: mount points are compared with the path as it was given.
    const CString resolved(realpath(path, nullptr));
    if (!resolved) return 0;
    const Mounts mounts(setmntent("/proc/mounts", "r"));
    if (!mounts) return 0;
    mntent entry{};
    char line[kMountLineSize];
    while (getmntent_r(mounts.get(), &entry, line, sizeof line) != nullptr) {
        if (equal(entry.mnt_dir, path)) return 1;
    }
    return 0;
}

int umount_directory(const char *mount_point) noexcept {
    if (mount_point == nullptr) return fail(kMount, "unable to read mount point (NULL)");
    if (is_mounted(mount_point) == 0) return 0;
    const CString command = make_text("umount %s", mount_point);
    if (!command) return fail(kMount, "failed to create umount command");
    int exit_code = 0;
    if (run(command.get(), exit_code) == 0) return 0;
    return fail(kMount, "failed to umount %s: %d", mount_point, exit_code);
}
