// One get_drives() with identity and geometry on the fixture machine of `fixture`, whose disks are plain files:
// the functions here answer for them, all disks and partitions alike and each in constant time.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <torvane.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <sys/syscall.h>

namespace {

constexpr std::string_view kSerial = "S-0123456789";

std::array<bool, 1U << 20U> opened_partition; // by descriptor

void answer_inquiry(const sg_io_hdr_t &request) {
    std::array<unsigned char, 64> page{0, request.cmdp[2]};
    if (request.cmdp[2] == 0x80) {
        page[3] = static_cast<unsigned char>(kSerial.size());
        std::ranges::copy(kSerial, page.begin() + 4);
    } else if (request.cmdp[2] == 0xB1) {
        page[3] = 60;
        page[4] = 7200 >> 8;
        page[5] = 7200 & 0xFF;
    }
    std::memcpy(request.dxferp, page.data(), std::min<size_t>(request.cmdp[4], page.size()));
}

template <class T> int put(void *place, T value) {
    std::memcpy(place, &value, sizeof value);
    return 0;
}

int answer(int fd, unsigned long request, void *argument) {
    const hd_geometry geometry{
        .heads = 1, .sectors = 1, .cylinders = 1, .start = opened_partition[static_cast<size_t>(fd)] ? 2048UL : 0UL};
    switch (request) {
    case BLKSSZGET: return put(argument, 512);
    case BLKGETSIZE64: return put(argument, uint64_t{1} << 30U);
    case HDIO_GETGEO: return put(argument, geometry);
    case SG_IO: answer_inquiry(*static_cast<sg_io_hdr_t *>(argument)); return 0;
    default: errno = ENOTTY; return -1;
    }
}

} // namespace

// The library's calls find these before the C library's.
extern "C" {

int open(const char *path, int flags, ...) {
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0));
    const size_t length = std::strlen(path);
    if (fd >= 0)
        opened_partition[static_cast<size_t>(fd)] = length > 0 && path[length - 1] >= '0' && path[length - 1] <= '9';
    return fd;
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return answer(fd, request, argument);
}

int fstat(int fd, struct stat *status) noexcept {
    if (syscall(SYS_newfstatat, fd, "", status, AT_EMPTY_PATH) != 0) return -1;
    status->st_rdev = makedev(8, 0);
    return 0;
}

} // extern "C"

int main() {
    DriveList list{};
    const int options = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY;
    if (get_drives(&list, options, nullptr, 0) != 0) return 1;
    uint64_t partitions = 0;
    uint32_t whole = 0;
    for (uint32_t i = 0; i < list.count; ++i) {
        const DriveRecord &drive = *list.drives[i];
        partitions += drive.partitions.count;
        if (drive.specification_result == 0 && drive.geometry_result == 0 && kSerial == drive.serial) ++whole;
    }
    std::printf("%u disks, %llu partitions\n", whole, static_cast<unsigned long long>(partitions));
    const bool all = whole == list.count;
    release_drives(&list);
    return all ? 0 : 1;
}
