#include "identity/unit_serial.h"

#include "foundation/errors.h"
#include "foundation/text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <scsi/scsi.h>
#include <scsi/sg.h>

namespace torvane {
namespace {

constexpr unsigned char kVitalProductData = 0x01;
constexpr unsigned char kSupportedPages = 0x00;
constexpr unsigned char kUnitSerialNumber = 0x80;
constexpr unsigned kHeaderSize = 4;
constexpr unsigned kReplySize = 16384; // what the first two commands offer, although they ask for a header only

constexpr unsigned kLongestPage = kHeaderSize + UCHAR_MAX; // and no byte behind it is looked at

using Reply = std::array<unsigned char, kReplySize>;

bool inquire(int fd, unsigned char page, unsigned allocation, unsigned data_length, Reply &reply) noexcept {
    std::fill_n(reply.begin(), kLongestPage + 1, static_cast<unsigned char>(0));
    ScsiCommand command{};
    setup_scsi_cmd(&command, INQUIRY, kVitalProductData, page, 0, static_cast<unsigned char>(allocation), 0, 6,
                   SG_DXFER_FROM_DEV, data_length, reply.data());
    return send_scsi_cmd(fd, &command) == 0;
}

bool is_page(const Reply &reply, unsigned char page) noexcept { return reply[1] == page && reply[2] == 0; }

} // namespace

bool read_unit_serial(int fd, const UnitSerialWords &words, char (&serial)[kSerialSize]) noexcept {
    Reply reply;
    for (const unsigned char page : {kSupportedPages, kUnitSerialNumber}) {
        const bool answered = inquire(fd, page, kHeaderSize, kReplySize, reply);
        if (answered && is_page(reply, page)) continue;
        fail(kIdentity, "%s", answered ? words.bad_format : words.inquiry_failed);
        return false;
    }
    const unsigned size = reply[3] + kHeaderSize;
    if (!inquire(fd, kUnitSerialNumber, size, size, reply)) {
        fail(kIdentity, "%s", words.inquiry_failed);
        return false;
    }
    reply[size] = '\0';
    copy_text(serial, reinterpret_cast<const char *>(reply.data() + kHeaderSize));
    return true;
}

} // namespace torvane
