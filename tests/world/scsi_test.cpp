#include "world.h"

#include "torvane.h"

#include <scsi/sg.h>

#include <array>
#include <cerrno>
#include <cstring>

using namespace torvane::world;

namespace {

constexpr Bytes::value_type kFixedFormat = 0x70;

class ScsiCommands : public WorldTest {
  protected:
    // Sends an INQUIRY whose completed request is what `complete` makes of it.
    static int outcome(const std::function<int(sg_io_hdr &)> &complete) {
        std::array<unsigned char, 16> data{};
        ScsiCommand command = {};
        setup_scsi_cmd(&command, 0x12, 1, 0x80, 0, 4, 0, 0x106, SG_DXFER_FROM_DEV, uint64_t{1} << 32 | 16, data.data());
        std::memset(command.sense, 0xEE, sizeof command.sense);
        answers().ioctl = [&](int fd, unsigned long request, void *argument) {
            EXPECT_EQ(fd, 99);
            EXPECT_EQ(request, static_cast<unsigned long>(SG_IO));
            return complete(*static_cast<sg_io_hdr *>(argument));
        };
        const int result = send_scsi_cmd(99, &command);
        EXPECT_EQ(command.sense[0], 0);
        EXPECT_EQ(command.sense[31], 0);
        return result;
    }

    static int outcome_of_sense(Bytes sense, unsigned char status = 2) {
        return outcome([&](sg_io_hdr &request) {
            request.status = status;
            request.sbp = sense.data();
            request.sb_len_wr = static_cast<unsigned char>(sense.size());
            return 0;
        });
    }
};

Bytes fixed_sense(unsigned char key, unsigned char code) {
    return {kFixedFormat, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, code, 0, 0, 0, 0, 0};
}

TEST_F(ScsiCommands, TheRequestIsTheOneThatDevicesHaveAlwaysSeen) {
    int pack_id = 0;
    EXPECT_EQ(outcome([&](sg_io_hdr &request) {
                  pack_id = request.pack_id;
                  EXPECT_EQ(request.interface_id, 'S');
                  EXPECT_EQ(request.dxfer_direction, SG_DXFER_FROM_DEV);
                  EXPECT_EQ(request.cmd_len, 6) << "the low byte of the length";
                  EXPECT_EQ(Bytes(request.cmdp, request.cmdp + 6), (Bytes{0x12, 1, 0x80, 0, 4, 0}));
                  EXPECT_EQ(request.dxfer_len, 16U) << "the low word of the length";
                  EXPECT_EQ(request.timeout, 60000U);
                  EXPECT_EQ(request.mx_sb_len, 32);
                  EXPECT_EQ(request.sbp, nullptr);
                  return 0;
              }),
              0);
    int calls = 0;
    EXPECT_EQ(outcome([&](sg_io_hdr &request) {
                  EXPECT_EQ(request.pack_id, pack_id + 1) << "repeated calls carry the same number";
                  return ++calls < 3 ? 4 : 0;
              }),
              0);
    EXPECT_EQ(calls, 3);
}

TEST_F(ScsiCommands, OutcomesAreClassified) {
    const auto with = [](unsigned char status, uint16_t host, uint16_t driver) {
        return outcome([=](sg_io_hdr &request) {
            request.status = status;
            request.host_status = host;
            request.driver_status = driver;
            return 0;
        });
    };
    EXPECT_EQ(with(0, 0, 0), 0);
    EXPECT_EQ(with(0x81, 0, 0), 0) << "bits that are no status";
    EXPECT_EQ(with(0, 0, 8), 0);
    EXPECT_EQ(with(0, 1, 0), 1);
    EXPECT_EQ(with(0, 0, 1), 1);
    EXPECT_EQ(with(2, 0, 8), 1) << "a check condition without sense data";
    EXPECT_EQ(with(8, 0, 0), 1) << "busy";
    EXPECT_EQ(outcome([](sg_io_hdr &) {
                  errno = ENOTTY;
                  return -1;
              }),
              0)
        << "refused outright";

    EXPECT_EQ(outcome_of_sense(fixed_sense(1, 0)), 0);
    EXPECT_EQ(outcome_of_sense(fixed_sense(1, 0), 0x22), 0);
    EXPECT_EQ(outcome_of_sense(fixed_sense(1, 0), 0x08), 1) << "recovered, but no check condition";
    EXPECT_EQ(outcome_of_sense({0x72, 1}), 1) << "too little to tell a recovered error";
    EXPECT_EQ(outcome_of_sense(fixed_sense(5, 0x20)), 2);
    EXPECT_EQ(outcome_of_sense(fixed_sense(5, 0x24)), 3);
    EXPECT_EQ(outcome_of_sense(fixed_sense(5, 0x26)), 4);
    EXPECT_EQ(outcome_of_sense(fixed_sense(5, 0x21)), 1);
    EXPECT_EQ(outcome_of_sense(fixed_sense(6, 0x29)), 5);
    EXPECT_EQ(outcome_of_sense(fixed_sense(2, 4)), 6);
    EXPECT_EQ(outcome_of_sense(fixed_sense(3, 0x11)), 1);
    EXPECT_EQ(outcome_of_sense({0x72, 6, 0x29, 0}), 5);
    EXPECT_EQ(outcome_of_sense({0x60, 0, 6}), 1);
    EXPECT_EQ(send_scsi_cmd(-1, nullptr), 1);
}

TEST_F(ScsiCommands, SenseDataInBothFormats) {
    const auto decoded = [](const Bytes &sense) {
        SenseSummary s;
        std::memset(&s, 0xEE, sizeof s);
        const int result = decode_sense(sense.data(), static_cast<uint32_t>(sense.size()), &s);
        EXPECT_EQ(result, decode_sense(sense.data(), static_cast<uint32_t>(sense.size()), nullptr));
        EXPECT_EQ(s.reserved[0] + s.reserved[1] + s.reserved[2], 0);
        char text[40];
        std::snprintf(text, sizeof text, "%d: %02x %x %02x/%02x %d", result, s.response_code, s.sense_key,
                      s.additional_sense_code, s.additional_sense_code_qualifier, s.additional_length);
        return std::string(text);
    };
    Bytes fixed = fixed_sense(0xF5, 0x24);
    fixed[13] = 3;
    EXPECT_EQ(decoded(fixed), "1: 70 5 24/03 0");
    fixed[0] = 0xF1;
    EXPECT_EQ(decoded(fixed), "1: 71 5 24/03 0");
    fixed[7] = 5;
    EXPECT_EQ(decoded(fixed), "1: 71 5 24/00 0") << "the additional length ends before the qualifier";
    fixed[7] = 0;
    EXPECT_EQ(decoded(fixed), "1: 71 5 00/00 0");
    EXPECT_EQ(decoded(Bytes(fixed.begin(), fixed.begin() + 12)), "1: 71 5 00/00 0");
    EXPECT_EQ(decoded({0x70, 0}), "1: 70 0 00/00 0");
    EXPECT_EQ(decoded({0x72, 0x16, 0x29, 0x02, 0, 0, 0, 9}), "1: 72 6 29/02 9");
    EXPECT_EQ(decoded({0x73, 0x16, 0x29}), "1: 73 6 29/00 0");
    EXPECT_EQ(decoded(Bytes(64, 0xFF)), "1: 7f f ff/ff 255");
    EXPECT_EQ(decoded({0x60, 0, 5}), "0: 00 0 00/00 0");
    EXPECT_EQ(decoded({}), "0: 00 0 00/00 0");
    EXPECT_EQ(decode_sense(nullptr, 18, nullptr), 0);
}

} // namespace
