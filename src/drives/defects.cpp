#include "drives/defects.h"

#include "foundation/errors.h"
#include "foundation/files.h"
#include "foundation/owners.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <scsi/sg.h>

using namespace torvane;

namespace {

constexpr int kNoPrimaryList = -TORVANE_DEFECTS_PRIMARY;
constexpr int kNoGrownList = -TORVANE_DEFECTS_GROWN;

// READ DEFECT DATA (SBC-3 clauses 5.10 and 5.11).
constexpr unsigned char kReadDefectData10 = 0x37;
constexpr unsigned char kReadDefectData12 = 0xB7;
constexpr unsigned kFlagMask = 0xF8; // of the header's second byte: which lists follow
constexpr unsigned kFormatMask = 0x07;
constexpr unsigned char kBytesFromIndexFormat = 4;
constexpr uint32_t kHeader10 = 4;
constexpr uint32_t kHeader12 = 8;

constexpr uint32_t kFixedSize = 16384;
constexpr uint32_t kLongestList10 = 65528; // what fits the command's 16-bit allocation length, in whole entries
constexpr uint32_t kLongList = 65520;      // beyond this the 12-byte command reads the list
constexpr uint32_t kFallbackList = 0x80000;
constexpr uint32_t kLongestAllocation12 = 0xFFFFFF;

struct ListKind {
    unsigned char flag;
    const char *label;
};

constexpr ListKind kPrimary = {0x10, "primary(manufacturer)"};
constexpr ListKind kGrown = {0x08, "grown"};

struct Count {
    int32_t entries = -1;
    uint32_t bytes = 0;
};

using Buffer = Block<unsigned char>;

uint32_t number16(const unsigned char *bytes) noexcept { return bytes[0] * 256U + bytes[1]; }
uint32_t number32(const unsigned char *bytes) noexcept { return number16(bytes) << 16U | number16(bytes + 2); }

// One reading of one drive's list: the header tells its length, the list itself its format.
class DefectList {
  public:
    DefectList(int fd, const ListKind &kind) noexcept : fd_(fd), kind_(kind) {}

    bool read_length() noexcept;
    bool read_format() noexcept;
    Count count() const noexcept {
        const uint32_t entry_size = (format_ & kFormatMask) != 0 ? 8 : 4;
        return {static_cast<int32_t>(length_ / entry_size), length_};
    }
    bool is_empty() const noexcept { return length_ == 0; }

  private:
    bool read_10(unsigned char *data, uint32_t size) const noexcept;
    bool read_12(unsigned char *data, uint32_t size) const noexcept;
    void read_long_length() noexcept;
    Buffer make_room() noexcept;
    bool read_format_12(unsigned char *data) noexcept;
    bool has_flag(const unsigned char *header) const noexcept { return (header[1] & kFlagMask) == kind_.flag; }
    unsigned char selection() const noexcept { return kind_.flag | kBytesFromIndexFormat; }

    int fd_;
    const ListKind &kind_;
    uint32_t length_ = 0;
    bool is_length_known_ = true; // false when the list may be longer than the first header can tell
    unsigned char format_ = 0;
};

bool DefectList::read_10(unsigned char *data, uint32_t size) const noexcept {
    ScsiCommand command{};
    setup_scsi_cmd(&command, kReadDefectData10, 0, selection(), 0, 0, 0, 10, SG_DXFER_FROM_DEV, size, data);
    command.cdb[7] = static_cast<unsigned char>(size >> 8U);
    command.cdb[8] = static_cast<unsigned char>(size);
    return send_scsi_cmd(fd_, &command) == 0;
}

bool DefectList::read_12(unsigned char *data, uint32_t size) const noexcept {
    ScsiCommand command{};
    setup_scsi_cmd(&command, kReadDefectData12, selection(), 0, 0, 0, 0, 12, SG_DXFER_FROM_DEV, size, data);
    command.cdb[7] = static_cast<unsigned char>(size >> 16U);
    command.cdb[8] = static_cast<unsigned char>(size >> 8U);
    command.cdb[9] = static_cast<unsigned char>(size);
    return send_scsi_cmd(fd_, &command) == 0;
}

// A list that the 16-bit length of the first header may not tell in full.
void DefectList::read_long_length() noexcept {
    is_length_known_ = false;
    unsigned char header[kHeader12] = {};
    if (!read_12(header, kHeader12)) return;
    if (header[0] != 0 || header[2] != 0 || header[3] != 0 || !has_flag(header)) return;
    length_ = number32(header + 4);
    is_length_known_ = true;
}

bool DefectList::read_length() noexcept {
    unsigned char header[kFixedSize] = {};
    if (!read_10(header, kHeader10)) {
        fail(kDefects, "failed to read %s defect capacity", kind_.label);
        return false;
    }
    if (header[0] != 0 || !has_flag(header)) {
        fail(kDefects, "invalid header for %s defect list", kind_.label);
        return false;
    }
    length_ = number16(header + 2);
    if (length_ >= kLongestList10) read_long_length();
    return true;
}

// Room for the whole of a long list or, without memory for it, for as much as a list is then taken to be long.
Buffer DefectList::make_room() noexcept {
    const auto allocated = [this]() noexcept {
        return Buffer(static_cast<unsigned char *>(std::calloc(size_t{length_} + kHeader12, 1)));
    };
    if (length_ + kHeader12 <= kFixedSize || length_ > kLongestAllocation12 - kHeader12) return nullptr;
    Buffer list = allocated();
    if (list || length_ <= kFallbackList) return list;
    length_ = kFallbackList;
    return allocated();
}

// The 12-byte command, for a list that only it can hold. False where there is none, and where it fails.
bool DefectList::read_format_12(unsigned char *data) noexcept {
    if (data == nullptr || !is_length_known_ || length_ <= kLongList) return false;
    if (!read_12(data, length_ + kHeader12)) return false;
    length_ = number32(data + 4);
    format_ = data[1];
    return true;
}

bool DefectList::read_format() noexcept {
    Buffer list = make_room();
    if (read_format_12(list.get())) return true;
    const uint32_t capped = std::min(length_, kLongestList10);
    // Without a 32-bit length there is no telling how much the capped list leaves out.
    if (!is_length_known_) length_ = capped;
    unsigned char header[kHeader12] = {};
    uint32_t size = capped + kHeader10;
    if (!list && size > sizeof header) list.reset(static_cast<unsigned char *>(std::calloc(size, 1)));
    if (!list && size > sizeof header) {
        // The list then counts as one of four bytes.
        length_ = sizeof header - kHeader10;
        size = sizeof header;
    }
    unsigned char *data = list ? list.get() : header;
    if (!read_10(data, size)) {
        fail(kDefects, "failed to read %s defect count", kind_.label);
        return false;
    }
    format_ = data[1];
    return true;
}

// 0 or -1; the count then says "unknown".
int count_defects(int fd, const ListKind &kind, Count &count) noexcept {
    count = Count{};
    DefectList list(fd, kind);
    if (!list.read_length()) return -1;
    if (!list.is_empty() && !list.read_format()) return -1;
    count = list.count();
    return 0;
}

int count_both(int fd, DefectCounts &defects) noexcept {
    Count primary;
    Count grown;
    int result = count_defects(fd, kPrimary, primary) == 0 ? 0 : kNoPrimaryList;
    if (count_defects(fd, kGrown, grown) != 0) result += kNoGrownList;
    defects = {primary.entries, primary.bytes, grown.entries, grown.bytes};
    return result;
}

int print_count(const char *label, int32_t entries, uint32_t bytes) noexcept {
    if (entries < 0) return std::printf("%sN/A\n", label);
    return std::printf("%s%d entries (%u bytes)\n", label, entries, bytes);
}

} // namespace

int torvane::read_drive_defects(int fd, const char *path, DriveRecord &drive) noexcept {
    if (fd < 0) {
        fail(kDefects, "failed to open '%s'", path);
        return TORVANE_NOT_OPENED;
    }
    DefectCounts defects{};
    const int result = count_both(fd, defects);
    drive.manufacturer_defects = defects.manufacturer_defects;
    drive.manufacturer_defect_bytes = defects.manufacturer_defect_bytes;
    drive.grown_defects = defects.grown_defects;
    drive.grown_defect_bytes = defects.grown_defect_bytes;
    return result;
}

int get_drive_defects(const char *path, DriveRecord *drive) noexcept {
    if (path == nullptr || drive == nullptr) return TORVANE_NOT_OPENED;
    const Descriptor device(open(path, O_RDONLY | O_NONBLOCK));
    return read_drive_defects(device.get(), path, *drive);
}

int get_device_defects(int fd, const char *path, DefectCounts *defects) noexcept {
    if (defects == nullptr) return kNoPrimaryList + kNoGrownList;
    const ActiveDescriptor device(fd, path, kDefects);
    return count_both(device.get(), *defects);
}

int print_defects(const DefectCounts *defects) noexcept {
    if (defects == nullptr) return -1;
    (void)print_count("Manufacturer Defects: ", defects->manufacturer_defects, defects->manufacturer_defect_bytes);
    return print_count("Grown Defects:        ", defects->grown_defects, defects->grown_defect_bytes);
}
