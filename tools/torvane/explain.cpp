#include "explain.h"

#include "records.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tool {
namespace {

using Ask = void (*)(int fd, const DriveRecord &record);

// One bit of a result, and how to hear the library about it alone.
struct Piece {
    uint32_t bit;
    const char *name;
    bool essential;
    uint32_t category;
    Ask ask;
};

void ask_block_size(int fd, const DriveRecord &) {
    uint64_t size = 0;
    get_block_size(fd, &size);
}

void ask_block_count(int fd, const DriveRecord &record) {
    uint64_t count = 0;
    get_number_of_blocks(fd, record.block_size, &count);
}

void ask_start(int fd, const DriveRecord &record) {
    uint64_t start = 0;
    get_device_start(fd, record.name, &start);
}

void ask_rotation(int fd, const DriveRecord &record) {
    int32_t rotation = -1;
    get_device_rotation(fd, record.name, &rotation);
}

void ask_partitions(int, const DriveRecord &record) {
    const Record scratch = unread_record(record.name);
    get_partitions(record.name, &scratch->partitions);
}

void ask_model(int fd, const DriveRecord &record) {
    char *model = nullptr;
    get_drive_model(fd, record.device_type, record.name, &model);
    std::free(model);
}

void ask_serial(int fd, const DriveRecord &record) {
    char *serial = nullptr;
    get_drive_serial_number(fd, record.name, &serial);
    std::free(serial);
}

void ask_device_numbers(int fd, const DriveRecord &record) {
    DeviceSpecification specification{};
    get_device_stat(fd, record.name, &specification);
}

constexpr Piece kGeometry[] = {
    {1, "block size", true, TORVANE_ERROR_GEOMETRY, ask_block_size},
    {2, "number of blocks", true, TORVANE_ERROR_GEOMETRY, ask_block_count},
    {4, "start", false, TORVANE_ERROR_GEOMETRY, ask_start},
    {8, "rotation speed", false, TORVANE_ERROR_GEOMETRY, ask_rotation},
    {16, "partitions", false, TORVANE_ERROR_GEOMETRY, ask_partitions},
};

// The library counts a missing serial number and a missing generic name alike; explain_identity() sorts them out.
enum : uint32_t { kSerialBit = 1, kGenericBit = 2, kModelBit = 4, kNumbersBit = 16 };
constexpr Piece kIdentity[] = {
    {kModelBit, "model", false, TORVANE_ERROR_IDENTITY, ask_model},
    {kSerialBit, "serial number", false, TORVANE_ERROR_IDENTITY, ask_serial},
    {kGenericBit, "generic name", false, TORVANE_ERROR_IDENTITY, nullptr},
    {kNumbersBit, "device numbers", true, TORVANE_ERROR_IDENTITY, ask_device_numbers},
};

class Device {
  public:
    explicit Device(const char *path) : fd_(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    ~Device() {
        if (fd_ >= 0) close(fd_);
    }
    [[nodiscard]] int fd() const { return fd_; }

  private:
    int fd_;
};

std::string remedy_for(int error) {
    switch (error) {
    case EACCES:
    case EPERM:
        return geteuid() == 0 ? "not even root may open the device here: is this a container without it?"
                              : "reading devices needs root: try again with sudo";
    case ENOENT:
    case ENODEV:
    case ENXIO: return "a device may have been unplugged, or its node in /dev may be stale";
    default: return {};
    }
}

// The library says that it could not open the device; why, the kernel says to the same call now.
Failure explain_open(const DriveRecord &record) {
    set_error_str(TORVANE_ERROR_IDENTITY, "%s", "");
    const Record scratch = unread_record(record.name);
    get_drive_specification(record.name, scratch.get());
    std::string words = words_about({TORVANE_ERROR_IDENTITY});
    errno = 0;
    const Device device(record.name);
    const int error = device.fd() < 0 ? errno : 0;
    if (error != 0) words += std::string(words.empty() ? "" : ": ") + std::strerror(error);
    return {record.name, "device", words, remedy_for(error), true};
}

std::string ask_alone(const Piece &piece, int fd, const DriveRecord &record) {
    if (!piece.ask || fd < 0) return {};
    set_error_str(piece.category, "%s", "");
    piece.ask(fd, record);
    return words_about({piece.category});
}

template <std::size_t N>
void explain_bits(uint32_t bits, const Piece (&pieces)[N], const DriveRecord &record, bool essential_only,
                  std::vector<Failure> &failures) {
    std::vector<const Piece *> failed;
    for (const Piece &piece : pieces) {
        if ((bits & piece.bit) != 0 && (piece.essential || !essential_only)) failed.push_back(&piece);
    }
    if (failed.empty()) return;
    const Device device(record.name);
    for (const Piece *piece : failed) {
        failures.push_back({record.name, piece->name, ask_alone(*piece, device.fd(), record), {}, piece->essential});
    }
}

// A sum of negative powers of two as its bits; positive results are not sums.
uint32_t bits_of(uint32_t result) { return static_cast<int32_t>(result) < 0 ? 0U - result : 0U; }

uint32_t identity_bits(const DriveRecord &record) {
    const uint32_t bits = bits_of(record.specification_result);
    if ((bits & kNumbersBit) != 0) return kNumbersBit; // nothing else was tried
    const bool has_generic_kind =
        record.device_type == DEVICE_KIND_SCSI || record.device_type == DEVICE_KIND_SCSI_GENERIC;
    const uint32_t ones = bits & 3U;
    const uint32_t generic = ones > 0 && !has_generic_kind ? 1U : 0U;
    return (bits & kModelBit) | (ones > generic ? kSerialBit : 0U) | (generic != 0 ? kGenericBit : 0U);
}

void explain_defects(const DriveRecord &record, std::vector<Failure> &failures) {
    constexpr const char *kLists[] = {"primary defect list", "grown defect list", "defect lists"};
    const uint32_t bits = bits_of(record.defects_result);
    if (bits < 1 || bits > 3) return;
    failures.push_back({record.name, kLists[bits - 1], words_about({TORVANE_ERROR_DEFECTS}), {}, false});
}

void explain_state(const DriveRecord &record, std::vector<Failure> &failures) {
    if (bits_of(record.state_result) == 0) return;
    failures.push_back({record.name, "permission", words_about({TORVANE_ERROR_STATE}), {}, false});
}

} // namespace

std::vector<Failure> explain(const DriveRecord &record, bool essential_only) {
    std::vector<Failure> failures;
    if (!record.name) return failures;
    for (const uint32_t result :
         {record.specification_result, record.geometry_result, record.defects_result, record.state_result}) {
        if (static_cast<int32_t>(result) <= 0) continue;
        failures.push_back(explain_open(record));
        return failures;
    }
    if (!essential_only) {
        explain_defects(record, failures);
        explain_state(record, failures);
    }
    explain_bits(identity_bits(record), kIdentity, record, essential_only, failures);
    explain_bits(bits_of(record.geometry_result), kGeometry, record, essential_only, failures);
    return failures;
}

} // namespace tool
