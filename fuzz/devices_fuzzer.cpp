// A device that answers every command with any bytes: INQUIRY, vital product data, ATA identity, defect lists, sense
// data, vendor states.
#include "stream.h"

#include "torvane.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/scsi_ioctl.h>
#include <scsi/sg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <span>

using namespace torvane::fuzz;

namespace {

std::span<const uint8_t> script; // what is left of the device's answers

uint8_t next_byte() {
    if (script.empty()) return 0;
    const uint8_t byte = script.front();
    script = script.subspan(1);
    return byte;
}

void answer(void *place, size_t room) {
    const size_t count = std::min(room, script.size());
    if (count > 0) std::memcpy(place, script.data(), count);
    script = script.subspan(count);
}

void answer_scsi(sg_io_hdr &request) {
    request.status = next_byte();
    request.host_status = next_byte() & 1U;
    auto *data = static_cast<unsigned char *>(request.dxferp);
    answer(data, request.dxfer_len);
    // An image's length in sectors: a shorter one is read the same way as one of gigabytes.
    if (request.cmdp[0] == 0x85 && request.cmdp[4] == 1 && request.dxfer_len >= 4) data[1] = data[2] = data[3] = 0;
    static unsigned char own_sense[64];
    if (request.sbp == nullptr) request.sbp = own_sense;
    request.sb_len_wr = static_cast<unsigned char>(std::min<unsigned>(next_byte() % 65U, request.mx_sb_len));
    answer(request.sbp, request.sb_len_wr);
}

} // namespace

extern "C" int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    auto *place = va_arg(arguments, unsigned char *);
    va_end(arguments);
    if (script.empty() || next_byte() == 0xFF) {
        errno = EIO;
        return -1;
    }
    switch (request) {
    case SG_IO: answer_scsi(*reinterpret_cast<sg_io_hdr *>(place)); break;
    case BLKSSZGET: answer(place, sizeof(int)); break;
    case BLKGETSIZE64: answer(place, sizeof(uint64_t)); break;
    case BLKGETSIZE: answer(place, sizeof(unsigned long)); break;
    case HDIO_GETGEO: answer(place, sizeof(hd_geometry)); break;
    case HDIO_GET_IDENTITY: answer(place, 512); break;
    case HDIO_DRIVE_CMD: answer(place + 4, size_t{place[3]} * 512); break;
    case SCSI_IOCTL_SEND_COMMAND: answer(place + 8, 96); break;
    default: errno = ENOTTY; return -1;
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    script = {data, size};
    (void)decode_sense(data, static_cast<uint32_t>(std::min<size_t>(size, 64)), nullptr);
    DefectCounts defects = {};
    const int result = get_device_defects(fd, nullptr, &defects);
    require((-result & 1) == 0 || defects.manufacturer_defects == -1);
    require((-result & 2) == 0 || defects.grown_defects == -1);
    int32_t rotation = 0;
    (void)get_device_rotation(fd, "/dev/null", &rotation);
    require(rotation == -1 || rotation % 10 == 0);
    for (const DeviceKind kind : {DEVICE_KIND_IDE, DEVICE_KIND_SCSI}) {
        DeviceSpecification specification = {};
        specification.type = kind;
        (void)(get_device_serial_number(fd, &specification) + get_device_model(fd, &specification));
        char *text = nullptr;
        require((get_drive_model(fd, kind, "/dev/null", &text) == 0) == (text != nullptr));
        std::free(text);
        require((get_drive_serial_number(fd, "/dev/null", &text) == 0) == (text != nullptr));
        std::free(text);
    }
    uint64_t number = 0;
    (void)(get_block_size(fd, &number) + get_number_of_blocks(fd, 0, &number) +
           get_device_start(fd, "/dev/null", &number));
    int permission = 0;
    for (const VendorProbe *probe : {&innodisk_funcs, &memkor_funcs}) {
        (void)probe->get_permission(fd, "/dev/null", &permission);
        int bytes = 0;
        unsigned char *image = nullptr;
        const bool is_read = probe->get_firmware(fd, "/dev/null", &bytes, &image) == 0;
        require(is_read == (image != nullptr) &&
                (probe == &memkor_funcs ? bytes % 512 == 0 : !is_read || bytes == 40960));
        std::free(image);
    }
    return 0;
}
