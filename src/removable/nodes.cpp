#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "removable/records.h"
#include "torvane.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdio>

using namespace torvane;

namespace {

constexpr mode_t kNobody = 0; // only root opens a node without permission bits
constexpr const char *kNoNodePath = "failed to allocate node path";

int make_node(const CString &device_id, const char *path) noexcept {
    if (!device_id) return fail(kDevice, "failed to allocate device path");
    int32_t major = -1;
    int32_t minor = -1;
    if (const int result = read_device_id(device_id.get(), &major, &minor); result != 0) return result;
    const dev_t number = makedev(static_cast<uint32_t>(major), static_cast<uint32_t>(minor));
    if (mknod(path, S_IFBLK | kNobody, number) == 0) return 0;
    return fail(kDevice, "failed to mknod %s (%d:%d)", path, major, minor);
}

// The device's own node first, then those of its partitions.
int make_nodes(const char *name, const PartitionNames &partitions, const char *directory) noexcept {
    if (create_node_in(name, directory) != 0) return -1;
    for (const char *partition : partitions.get()) {
        if (create_partition_node_in(partition, name, directory) != 0) return -1;
    }
    return 0;
}

} // namespace

int create_node(const char *name, const char *path) noexcept {
    if (name == nullptr || path == nullptr) return fail(kDevice, "failed to allocate device path");
    return make_node(make_text("%s/%s/dev", kSysBlock, name), path);
}

int create_node_in(const char *name, const char *directory) noexcept {
    if (name == nullptr || directory == nullptr) return fail(kDevice, "failed to read node or dir (NULL)");
    const CString path = make_text("%s/%s", directory, name);
    return path ? create_node(name, path.get()) : fail(kDevice, kNoNodePath);
}

int create_partition_node(const char *partition, const char *disk, const char *path) noexcept {
    if (partition == nullptr || disk == nullptr || path == nullptr) {
        return fail(kDevice, "failed to allocate device path");
    }
    return make_node(make_text("%s/%s/%s/dev", kSysBlock, disk, partition), path);
}

int create_partition_node_in(const char *partition, const char *disk, const char *directory) noexcept {
    if (partition == nullptr || disk == nullptr || directory == nullptr) {
        return fail(kDevice, "failed to read partition, device, or location (NULL)");
    }
    const CString path = make_text("%s/%s", directory, partition);
    return path ? create_partition_node(partition, disk, path.get()) : fail(kDevice, kNoNodePath);
}

int delete_node_in(const char *name, const char *directory) noexcept {
    if (name == nullptr || directory == nullptr) return fail(kDevice, "failed to read node or location");
    const CString path = make_text("%s/%s", directory, name);
    if (!path) return fail(kDevice, kNoNodePath);
    // The device manager may have been faster: told, but no failure.
    if (std::remove(path.get()) != 0) fail(kDevice, "failed to remove '%s' (%s)", path.get(), std::strerror(errno));
    return 0;
}

int add_scsi_device_nodes_at(ScsiDeviceInfo *device, const char *directory) noexcept {
    if (device == nullptr || directory == nullptr || device->state == STATE_UNBOUND || device->name == nullptr) {
        return fail(kDevice, "failed to read device, location, status, or name (NULL)");
    }
    if (device->state == STATE_NODE && equal(directory, kDev)) return 0;
    PartitionNames partitions;
    if (partitions.read(device->name) != 0) return -1;
    const std::span<char *const> names = partitions.get();
    if (check_single_node_for_bad_filesystem(device, names.data(), static_cast<uint32_t>(names.size())) != 0) return -1;
    if (make_nodes(device->name, partitions, directory) != 0) return -1;
    device->state = STATE_NODE;
    return 0;
}

int delete_scsi_device_nodes_at(ScsiDeviceInfo *device, const char *directory) noexcept {
    if (device == nullptr || directory == nullptr) return fail(kDevice, "unable to read device or location (NULL)");
    if (device->name == nullptr || device->state == STATE_UNBOUND) return 0;
    device->state = STATE_BOUND;
    PartitionNames partitions;
    if (partitions.read(device->name) != 0 || delete_node_in(device->name, directory) != 0) return -1;
    for (const char *partition : partitions.get()) {
        if (delete_node_in(partition, directory) != 0) return -1;
    }
    return 0;
}

int add_device_nodes_at(MediaRecord *media, const char *serial, const char *directory) noexcept {
    if (media == nullptr || serial == nullptr || directory == nullptr) {
        return fail(kDevice, "failed to read info, serial, or location (NULL)");
    }
    if (media->devices.count == 0) return fail(kDevice, "no devices to create");
    bool any = false;
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (!is_selected(*media, device, serial)) continue;
        any = true;
        if (add_scsi_device_nodes_at(&device, directory) == 0) continue;
        delete_device_nodes_at(media, serial, directory);
        return -1;
    }
    return any ? 0 : fail(kDevice, "no devices mounted");
}

int delete_device_nodes_at(MediaRecord *media, const char *serial, const char *directory) noexcept {
    if (media == nullptr || serial == nullptr || directory == nullptr) {
        return fail(kDevice, "unable to read info, serial, or location (NULL)");
    }
    // Narrower than the choice for making them, on purpose: a text that names a device but not its interface
    // removes nothing.
    if (!has_serial(*media, serial)) return 0;
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (has_serial(device, serial) && delete_scsi_device_nodes_at(&device, directory) != 0) return -1;
    }
    return 0;
}
