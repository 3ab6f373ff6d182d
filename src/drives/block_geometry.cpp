#include "drives/block_geometry.h"

#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/text.h"

#include <array>
#include <cinttypes>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/scsi.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

using namespace torvane;

namespace {

constexpr int kNoBlockSize = -TORVANE_GEOMETRY_BLOCK_SIZE;
constexpr int kNoBlockCount = -TORVANE_GEOMETRY_BLOCK_COUNT;
constexpr int kNoStart = -TORVANE_GEOMETRY_START;
constexpr int kNoRotation = -TORVANE_GEOMETRY_ROTATION;

// Drivers from before 2.5.68 answer this one only; the kernel's header has since dropped its name.
constexpr unsigned long kGetBigGeometry = 0x0330;
struct BigGeometry {
    unsigned char heads;
    unsigned char sectors;
    unsigned cylinders;
    unsigned long start;
};

bool read_sysfs_start(int fd, const char *path, uint64_t &start) noexcept {
    char name[150] = "";
    if (path != nullptr) {
        copy_text(name, path);
    } else if (get_name_from_fd(fd, name, sizeof name) < 1) {
        return false;
    }
    return get_value_from_sys(name, "start", "%" SCNu64, 0, 1, &start) == 0;
}

bool read_start(int fd, const char *path, uint64_t &start) noexcept {
    if (read_sysfs_start(fd, path, start)) return true;
    BigGeometry big{};
    if (ioctl(fd, kGetBigGeometry, &big) == 0) {
        start = big.start;
        return true;
    }
    hd_geometry geometry{};
    if (ioctl(fd, HDIO_GETGEO, &geometry) != 0) return false;
    start = geometry.start;
    return true;
}

// Block Device Characteristics page (SBC-3 clause 6.6.2): type in byte 0, length in 2-3, rate in 4-5.
class CharacteristicsPage {
  public:
    static constexpr unsigned kSize = 252;

    bool read(int fd) noexcept {
        // An untouched reply then shows as peripheral type 0x1f, which no device has.
        reply_[0] = 0x7F;
        ScsiCommand command{};
        setup_scsi_cmd(&command, INQUIRY, 0x01, 0xB1, 0, kSize, 0, 6, SG_DXFER_FROM_DEV, kSize, reply_.data());
        return send_scsi_cmd(fd, &command) == 0;
    }
    bool is_valid() const noexcept {
        constexpr unsigned kShortestPage = 60;
        const unsigned type = reply_[0] & 0x1F;
        const bool is_block_device = type == TYPE_DISK || type == TYPE_WORM || type == TYPE_MOD;
        return is_block_device && number_at(2) >= kShortestPage;
    }
    unsigned rate() const noexcept { return number_at(4); }

  private:
    unsigned number_at(size_t offset) const noexcept { return reply_[offset] * 256U + reply_[offset + 1]; }

    std::array<unsigned char, kSize> reply_{};
};

// Rates below 1025 are codes (1: does not rotate) or reserved, 65535 is reserved.
bool read_rotation(int fd, int32_t &rotation) noexcept {
    CharacteristicsPage page;
    if (!page.read(fd)) {
        fail(kGeometry, "failed to read disk RPM");
        return false;
    }
    if (!page.is_valid() || page.rate() < 1025 || page.rate() >= 65535) return false;
    // No disk turns at an odd number: such a rate is a made-up one, of a drive that otherwise answers well.
    if (page.rate() % 10 == 0) rotation = static_cast<int32_t>(page.rate());
    return true;
}

} // namespace

int get_block_size(int fd, uint64_t *size) noexcept {
    if (size == nullptr) return kNoBlockSize;
    *size = 0; // the kernel stores an int
    if (ioctl(fd, BLKSSZGET, size) == 0) return 0;
    *size = 0;
    fail(kGeometry, "failed to read block size");
    return kNoBlockSize;
}

int get_number_of_blocks(int fd, uint64_t block_size, uint64_t *count) noexcept {
    if (count == nullptr) return kNoBlockCount;
    if (block_size == 0) (void)get_block_size(fd, &block_size);
    uint64_t bytes = 0;
    if (block_size != 0 && ioctl(fd, BLKGETSIZE64, &bytes) == 0) {
        *count = bytes / block_size;
        return 0;
    }
    unsigned long sectors = 0;
    if (ioctl(fd, BLKGETSIZE, &sectors) == 0) {
        *count = sectors;
        return 0;
    }
    *count = 0;
    fail(kGeometry, "failed to read number of blocks");
    return kNoBlockCount;
}

int torvane::read_device_start(int active, const char *path, uint64_t &start) noexcept {
    if (read_start(active, path, start)) return 0;
    start = 0;
    fail(kGeometry, "failed to read device start");
    return kNoStart;
}

int get_device_start(int fd, const char *path, uint64_t *start) noexcept {
    if (start == nullptr) return kNoStart;
    const int active = validate_fd(fd, path);
    const int result = read_device_start(active, path, *start);
    close_active_fd(fd, active);
    return result;
}

int get_device_rotation(int fd, const char *path, int32_t *rotation) noexcept {
    if (rotation == nullptr) return kNoRotation;
    *rotation = -1;
    const ActiveDescriptor device(fd, path, kGeometry);
    return read_rotation(device.get(), *rotation) ? 0 : kNoRotation;
}
