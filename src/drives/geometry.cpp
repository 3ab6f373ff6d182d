#include "drives/geometry.h"

#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

#include <cstdio>
#include <fcntl.h>

using namespace torvane;

namespace {

constexpr int kNoSecondBlockSize = -TORVANE_GEOMETRY_BLOCK_SIZE_RETRY;
constexpr int kNoDeviceName = -TORVANE_GEOMETRY_DEVICE_NAME;
constexpr int kOddSum = -1; // for has_error(): opening or the block size failed
constexpr size_t kNameSize = 150;

int read_start(int fd, const char *path, DriveRecord &drive, const KnownGeometry &known) noexcept {
    if (!known.starts_at_zero) return get_device_start(fd, path, &drive.device_start);
    drive.device_start = 0;
    return 0;
}

int read_all(int fd, const char *path, DriveRecord &drive, const KnownGeometry &known) noexcept {
    if (fd < 0) {
        fail(kGeometry, "failed to open '%s'", path);
        return TORVANE_NOT_OPENED;
    }
    int result = get_block_size(fd, &drive.block_size);
    result += get_number_of_blocks(fd, drive.block_size, &drive.block_count);
    result += read_start(fd, path, drive, known);
    result += get_device_rotation(fd, path, &drive.rotation_speed);
    return result + read_partitions(path, drive.partitions, known.table);
}

// The generic node gets the same questions, for the words of its failures only: what it answers is about
// another device than the one that was asked for.
void retry_on_generic_node(const char *path, const DriveRecord &drive) noexcept {
    CString found;
    const char *generic = drive.generic_name;
    if (generic == nullptr || *generic == '\0') {
        char *name = nullptr;
        if (get_sg_name(path, &name) != 0 || name == nullptr) {
            fail(kGeometry, "failed to read generic name for '%s'", path);
            return;
        }
        found.reset(name);
        generic = name;
    }
    DriveRecord copy = drive;
    copy.partitions = PartitionList{};
    const Descriptor device(open(generic, O_RDONLY | O_NONBLOCK));
    (void)read_all(device.get(), generic, copy, {});
    release_partitions(copy.partitions);
}

// The block device of a generic node, or the path itself where that is none or opens as descriptor 0, which stands
// for "no descriptor".
int reopen(const char *name) noexcept {
    char block[kNameSize] = "";
    if (get_name_from_generic(name, sizeof block, block) > 0) {
        Descriptor device(open(block, O_RDONLY));
        if (device.get() != 0) return device.release();
    }
    return open(name, O_RDONLY);
}

} // namespace

int torvane::read_drive_geometry(int fd, const char *path, DriveRecord &drive, const KnownGeometry &known) noexcept {
    if (fd >= 0) release_partitions(drive.partitions);
    const int result = read_all(fd, path, drive, known);
    if (has_error(result, kOddSum) != 0) retry_on_generic_node(path, drive);
    return result;
}

int get_drive_geometry(const char *path, DriveRecord *drive) noexcept {
    if (path == nullptr || drive == nullptr) return TORVANE_NOT_OPENED;
    const Descriptor device(open(path, O_RDONLY | O_NONBLOCK));
    return read_drive_geometry(device.get(), path, *drive, {});
}

int get_device_geometry(int fd, const char *path, DeviceGeometry *geometry) noexcept {
    if (geometry == nullptr) return kNoDeviceName;
    char name[kNameSize] = "";
    if (path != nullptr) {
        copy_text(name, path);
    } else if (get_name_from_fd(fd, name, sizeof name) < 1) {
        fail(kGeometry, "invalid device name %s", "(null)");
        return kNoDeviceName;
    }
    ActiveDescriptor device(fd, path, kGeometry);
    int result = 0;
    if (get_block_size(device.get(), &geometry->block_size) != 0) {
        device.replace(reopen(name));
        if (get_block_size(device.get(), &geometry->block_size) != 0) result += kNoSecondBlockSize;
    }
    result += get_number_of_blocks(device.get(), geometry->block_size, &geometry->block_count);
    result += get_device_start(device.get(), name, &geometry->device_start);
    result += get_device_rotation(device.get(), name, &geometry->rotation_speed);
    return result + get_partition_information(name, geometry);
}

int print_geometry(const DeviceGeometry *geometry) noexcept {
    if (geometry == nullptr) return -1;
    using Number = unsigned long long;
    std::printf("Block Count:    %llu\nBlock Size:     %zd\nDevice Start:   %llu\n", Number{geometry->block_count},
                static_cast<ssize_t>(geometry->block_size), Number{geometry->device_start});
    int printed = geometry->rotation_speed < 0 ? std::puts("Rotation Speed: N/A")
                                               : std::printf("Rotation Speed: %d\n", geometry->rotation_speed);
    if (geometry->partition_count == 0 || geometry->partition_sizes == nullptr) return printed;
    std::puts("Partition Information:");
    for (uint32_t i = 0; i < geometry->partition_count; ++i) {
        printed = std::printf("Partition %u: size = %llu\n", i, Number{geometry->partition_sizes[i]});
    }
    return printed;
}
