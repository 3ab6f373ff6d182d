// MEMKOR drives: vendor commands through ATA PASS-THROUGH(16), whose registers come back as sense data
// (SAT-3 clause 12.2).
#include "foundation/files.h"
#include "foundation/owners.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"
#include "torvane.h"

#include <climits>
#include <scsi/sg.h>
#include <sys/ioctl.h>

using namespace torvane;

namespace {

constexpr unsigned char kAtaPassThrough16 = 0x85;
constexpr unsigned char kNonData = 3 << 1;       // protocol, CDB byte 1
constexpr unsigned char kPioDataIn = 4 << 1;     // protocol, CDB byte 1
constexpr unsigned char kReturnRegisters = 0x20; // CK_COND, CDB byte 2
constexpr unsigned char kBlocksByCount = 0x0E;   // from the device, in blocks, as many as the count field says
constexpr unsigned kTimeoutMilliseconds = 10000;

// Vendor specific ATA commands.
constexpr unsigned char kReadImage = 0x85;
constexpr unsigned char kReadDeviceRegister = 0x86;
constexpr unsigned char kReadErrorRegister = 0x88;
constexpr unsigned char kImageLength = 1; // features of kReadImage
constexpr unsigned char kImageSector = 2;

class PassThrough {
  public:
    PassThrough(unsigned char command, unsigned char features) noexcept {
        cdb_[0] = kAtaPassThrough16;
        cdb_[4] = features;
        cdb_[14] = command;
    }
    void set_lba(unsigned lba) noexcept {
        cdb_[8] = static_cast<unsigned char>(lba);
        cdb_[10] = static_cast<unsigned char>(lba >> 8U);
        cdb_[12] = static_cast<unsigned char>(lba >> 16U);
    }
    bool send(int fd) noexcept {
        cdb_[1] = kNonData;
        cdb_[2] = kReturnRegisters;
        sg_io_hdr_t request{};
        request.dxfer_direction = SG_DXFER_NONE;
        return issue(fd, request);
    }
    bool read_sector(int fd, unsigned char (&sector)[kSectorSize]) noexcept {
        std::memset(sector, 0, sizeof sector);
        cdb_[1] = kPioDataIn;
        cdb_[2] = kReturnRegisters | kBlocksByCount;
        sg_io_hdr_t request{};
        request.dxfer_direction = SG_DXFER_FROM_DEV;
        request.dxfer_len = sizeof sector;
        request.dxferp = sector;
        request.flags = SG_FLAG_NO_DXFER;
        return issue(fd, request);
    }
    unsigned char error_register() const noexcept { return sense_[11]; }
    unsigned char device_register() const noexcept { return sense_[20]; }

  private:
    bool issue(int fd, sg_io_hdr_t &request) noexcept {
        request.interface_id = 'S';
        request.cmd_len = sizeof cdb_;
        request.cmdp = cdb_;
        request.mx_sb_len = sizeof sense_;
        request.sbp = sense_;
        request.timeout = kTimeoutMilliseconds;
        return ioctl(fd, SG_IO, &request) == 0 && has_registers();
    }
    // The ATA Status Return descriptor, and nothing else, tells that the drive carried the command out.
    bool has_registers() const noexcept {
        constexpr unsigned char kCurrentErrorDescriptors = 0x72;
        return sense_[0] == kCurrentErrorDescriptors && sense_[7] == 0x0E && sense_[8] == 0x09 && sense_[9] == 0x0C &&
               sense_[10] == 0;
    }

    unsigned char cdb_[16] = {};
    unsigned char sense_[32] = {};
};

// The level, 1 to 3; 0 when the drive does not tell it.
int read_level(int fd) noexcept {
    constexpr unsigned char kUpperLevels = 0x08; // DEVICE register
    PassThrough device(kReadDeviceRegister, 0);
    if (!device.send(fd)) return 0;
    PassThrough error(kReadErrorRegister, 0);
    if (!error.send(fd)) return 0;
    const int base = (device.device_register() & kUpperLevels) != 0 ? 2 : 0;
    return error.error_register() == 0 ? base + 1 : 2;
}

int get_permission(int fd, const char *path, int *permission) noexcept {
    if (permission == nullptr) return -1;
    const int active = validate_fd(fd, path);
    *permission = read_level(active);
    close_active_fd(fd, active);
    return *permission == 0 ? -1 : 0;
}

// Sectors of the image; below 1 when the drive does not tell, or tells what no image can be.
int read_image_length(int fd) noexcept {
    unsigned char sector[kSectorSize];
    PassThrough command(kReadImage, kImageLength);
    if (!command.read_sector(fd, sector)) return 0;
    int32_t length = 0;
    std::memcpy(&length, sector, sizeof length);
    return length <= INT_MAX / kSectorSize ? length : 0;
}

bool read_image(int fd, int sectors, unsigned char *image) noexcept {
    for (int i = 0; i < sectors; ++i) {
        unsigned char sector[kSectorSize];
        PassThrough command(kReadImage, kImageSector);
        command.set_lba(static_cast<unsigned>(i));
        if (!command.read_sector(fd, sector)) return false;
        std::memcpy(image + static_cast<ptrdiff_t>(i) * kSectorSize, sector, kSectorSize);
    }
    return true;
}

int get_firmware(int fd, const char * /*path*/, int *size, unsigned char **image) noexcept {
    if (size == nullptr || image == nullptr) return -1;
    *size = 0;
    *image = nullptr;
    const int sectors = read_image_length(fd);
    if (sectors < 1) return -1;
    Block<unsigned char> read(static_cast<unsigned char *>(std::calloc(static_cast<size_t>(sectors), kSectorSize)));
    if (!read || !read_image(fd, sectors, read.get())) return -1;
    *size = sectors * kSectorSize;
    *image = read.release();
    return 0;
}

} // namespace

int device_supports_memkor(const char *model) noexcept {
    return model != nullptr && (contains(model, "MEMKOR") || contains(model, "YATAPDONG")) ? 1 : 0;
}

const VendorProbe memkor_funcs = {get_permission, get_firmware, device_supports_memkor};
