// A USB device's file systems mounted side by side in a private directory, and the way back.
#include "foundation/directory.h"
#include "foundation/errors.h"
#include "foundation/text.h"
#include "removable/records.h"
#include "removable/temporary_directory.h"
#include "torvane.h"

#include <unistd.h>

#include <cerrno>

using namespace torvane;

namespace {

constexpr const char *kNoDirectoryRemoved = "failed to remove a directory";
constexpr const char *kNoDirectoryRead = "unable to open directory '%s'"; // or to read it to its end
constexpr int kBadFileSystem = 1;

// The block device nodes of a directory in alphabetical order.
class Nodes {
  public:
    explicit Nodes(const char *directory) noexcept
        : count_(scandir(directory, &entries_, block_device_filter, alphasort)) {}
    Nodes(const Nodes &) = delete;
    Nodes &operator=(const Nodes &) = delete;
    ~Nodes() {
        for (dirent *entry : get()) std::free(entry);
        std::free(static_cast<void *>(entries_));
    }

    std::span<dirent *> get() const noexcept { return {entries_, count_ < 0 ? 0 : static_cast<size_t>(count_)}; }

  private:
    dirent **entries_ = nullptr;
    int count_;
};

bool is_hidden(const dirent &entry) noexcept { return entry.d_name[0] == '.'; }

int umount_entry(const char *directory, const char *name) noexcept {
    const CString path = make_text("%s/%s", directory, name);
    if (path && umount_directory(path.get()) == 0) return 0;
    return fail(kMount, "failed to unmount '%s': %s", path ? path.get() : name, std::strerror(errno));
}

int remove_entry(const char *directory, const dirent &entry) noexcept {
    const CString path = make_text("%s/%s", directory, entry.d_name);
    if (entry.d_type == DT_DIR) return path && rmdir(path.get()) == 0 ? 0 : fail(kMount, kNoDirectoryRemoved);
    return path && unlink(path.get()) == 0 ? 0 : fail(kMount, "failed to remove file");
}

// Whether the device may be mounted at all.
int check_media(const MediaRecord &media, const char *serial) noexcept {
    if (get_media_status(&media) < STATE_BOUND) return fail(kMount, "%s is not bound to its driver", media.serial);
    if (media.status == USB_STATUS_ADAPTER) return fail(kMount, "device is a USB adapter");
    const int result = check_entire_device_for_bad_filesystem(&media, serial);
    if (result == kBadFileSystem) {
        return fail(kMount, "USB Stick has a bad filesystem.  Filesystem on root of device, and partitions");
    }
    return result == 0 ? 0 : fail(kMount, "failed to check for filesystem on device");
}

int mount_media_at(MediaRecord &media, const char *serial, const char *path, char **directory) noexcept {
    if (add_device_nodes_at(&media, serial, path) != 0) {
        return fail(kMount, "failed to add device nodes to temporary directory");
    }
    if (mount_all_devices(path) != 0) return -1;
    char *copy = duplicate_str(path);
    if (copy == nullptr) return fail(kMount, "failed to copy %s", path);
    *directory = copy;
    return 0;
}

} // namespace

int block_device_filter(const dirent *entry) noexcept { return entry != nullptr && entry->d_type == DT_BLK ? 1 : 0; }

int mount_all_devices(const char *directory) noexcept {
    if (directory == nullptr) return fail(kMount, "unable to read location (NULL)");
    const Nodes nodes(directory);
    // The first of several is the disk that the others are partitions of.
    const std::span<dirent *> found = nodes.get();
    for (const dirent *node : found.subspan(found.size() > 1 ? 1 : 0)) {
        if (mount_device_to_temp_dir(node->d_name, directory) != 0) return -1;
    }
    return 0;
}

int umount_all(const char *directory) noexcept {
    if (directory == nullptr) return fail(kMount, "unable to read location (NULL)");
    Directory entries(directory);
    if (!entries) return fail(kMount, kNoDirectoryRead, directory);
    int result = 0;
    while (const dirent *entry = entries.next()) {
        if (entry->d_type != DT_DIR || is_hidden(*entry)) continue;
        if (umount_entry(directory, entry->d_name) != 0) result = -1;
    }
    return entries.failed() ? fail(kMount, kNoDirectoryRead, directory) : result;
}

int remove_all_from(const char *directory) noexcept {
    Directory entries(directory);
    if (!entries) return fail(kMount, "unable to read dir (NULL)");
    int result = 0;
    while (const dirent *entry = entries.next()) {
        if (!is_hidden(*entry) && remove_entry(directory, *entry) != 0) result = -1;
    }
    return entries.failed() ? fail(kMount, kNoDirectoryRead, directory) : result;
}

int remove_and_umount_in_temp_dir(const char *directory) noexcept {
    if (umount_all(directory) != 0 || remove_all_from(directory) != 0) return -1;
    return rmdir(directory) == 0 ? 0 : fail(kMount, kNoDirectoryRemoved);
}

int create_and_mount_in_temp_dir(const char *serial, char **directory) noexcept {
    const Media media(directory == nullptr ? nullptr : get_usb_mass_storage_device(serial));
    if (!media || media->devices.count == 0) {
        return fail(kMount, "unable to read info or no scsi devices found (NULL)");
    }
    if (check_media(*media, serial) != 0) return -1;
    TemporaryPath path;
    if (mkdtemp(path.text) == nullptr) return fail(kMount, "failed to create temporary directory");
    if (mount_media_at(*media, serial, path.text, directory) == 0) return 0;
    remove_and_umount_in_temp_dir(path.text);
    return -1;
}
