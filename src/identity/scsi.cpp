#include "torvane.h"

#include <cstring>
#include <scsi/sg.h>
#include <sys/ioctl.h>

namespace {

// Sense keys and additional sense codes, SPC-4 clause 4.5.6.
constexpr uint8_t kRecoveredError = 1;
constexpr uint8_t kNotReady = 2;
constexpr uint8_t kIllegalRequest = 5;
constexpr uint8_t kUnitAttention = 6;
constexpr uint8_t kInvalidOperationCode = 0x20;
constexpr uint8_t kInvalidFieldInCdb = 0x24;
constexpr uint8_t kInvalidFieldInParameters = 0x26;

// SCSI status bytes, SAM-5 clause 5.3; the lowest bit is not part of the status.
constexpr unsigned kStatusMask = 0x7e;
constexpr unsigned kCheckCondition = 0x02;
constexpr unsigned kCommandTerminated = 0x22;
constexpr unsigned kDriverFailureBits = 0x03;

constexpr unsigned kTimeoutMilliseconds = 60000;
constexpr int kRepeat = 4; // an interrupted call, on the interfaces that return EINTR itself

enum Outcome : int {
    kGood = 0,
    kFailed = 1,
    kBadOperationCode = 2,
    kBadCdbField = 3,
    kBadParameterField = 4,
    kAttention = 5,
    kUnready = 6,
};

uint32_t last_pack_id = 0;

Outcome outcome_of(const SenseSummary &sense) noexcept {
    if (sense.sense_key == kUnitAttention) return kAttention;
    if (sense.sense_key == kNotReady) return kUnready;
    if (sense.sense_key != kIllegalRequest) return kFailed;
    switch (sense.additional_sense_code) {
    case kInvalidOperationCode: return kBadOperationCode;
    case kInvalidFieldInCdb: return kBadCdbField;
    case kInvalidFieldInParameters: return kBadParameterField;
    default: return kFailed;
    }
}

// Where the request carries no sense buffer there is nothing to decode, and a check condition is just failed.
Outcome classify(const sg_io_hdr_t &request) noexcept {
    const unsigned status = request.status & kStatusMask;
    const bool driver_is_fine = (request.driver_status & kDriverFailureBits) == 0;
    if (driver_is_fine && status == 0 && request.host_status == 0) return kGood;
    SenseSummary sense;
    const bool decoded = decode_sense(request.sbp, request.sb_len_wr, &sense) == 1;
    const bool checked = status == kCheckCondition || status == kCommandTerminated;
    if (checked && request.sb_len_wr > 2 && decoded && sense.sense_key == kRecoveredError) return kGood;
    return decoded ? outcome_of(sense) : kFailed;
}

void decode_descriptor_format(const unsigned char *sense, uint32_t count, SenseSummary &summary) noexcept {
    if (count > 1) summary.sense_key = sense[1] & 0x0f;
    if (count > 2) summary.additional_sense_code = sense[2];
    if (count > 3) summary.additional_sense_code_qualifier = sense[3];
    if (count > 7) summary.additional_length = sense[7];
}

void decode_fixed_format(const unsigned char *sense, uint32_t count, SenseSummary &summary) noexcept {
    if (count > 2) summary.sense_key = sense[2] & 0x0f;
    if (count > 7 && count > sense[7] + 8U) count = sense[7] + 8U;
    if (count > 12) summary.additional_sense_code = sense[12];
    if (count > 13) summary.additional_sense_code_qualifier = sense[13];
}

} // namespace

void setup_scsi_cmd(ScsiCommand *command, unsigned char byte0, unsigned char byte1, unsigned char byte2,
                    unsigned char byte3, unsigned char byte4, unsigned char byte5, uint64_t cdb_length,
                    int32_t direction, uint64_t data_length, void *data) noexcept {
    if (command == nullptr) return;
    const unsigned char bytes[] = {byte0, byte1, byte2, byte3, byte4, byte5};
    std::memcpy(command->cdb, bytes, sizeof bytes);
    command->cdb_length = cdb_length;
    command->direction = direction;
    command->data_length = data_length;
    command->data = data;
}

int send_scsi_cmd(int fd, ScsiCommand *command) noexcept {
    if (command == nullptr) return kFailed;
    std::memset(command->sense, 0, sizeof command->sense);
    sg_io_hdr_t request{};
    request.interface_id = 'S';
    request.dxfer_direction = command->direction;
    request.cmd_len = static_cast<unsigned char>(command->cdb_length);
    request.mx_sb_len = sizeof command->sense;
    request.dxfer_len = static_cast<unsigned>(command->data_length);
    request.dxferp = command->data;
    request.cmdp = command->cdb;
    request.timeout = kTimeoutMilliseconds;
    request.pack_id = static_cast<int>(++last_pack_id);
    // No sense buffer is handed over: every check condition is to come out as the same failure.
    while (ioctl(fd, SG_IO, &request) == kRepeat) {
    }
    return classify(request);
}

int decode_sense(const unsigned char *sense, uint32_t count, SenseSummary *summary) noexcept {
    constexpr unsigned kSenseDataBits = 0x70;
    constexpr unsigned kResponseCodeMask = 0x7f;
    constexpr unsigned kFirstDescriptorFormat = 0x72;
    if (summary != nullptr) *summary = SenseSummary{};
    if (sense == nullptr || count == 0 || (sense[0] & kSenseDataBits) != kSenseDataBits) return 0;
    if (summary == nullptr) return 1;
    summary->response_code = sense[0] & kResponseCodeMask;
    const bool descriptors = summary->response_code >= kFirstDescriptorFormat;
    (descriptors ? decode_descriptor_format : decode_fixed_format)(sense, count, *summary);
    return 1;
}
