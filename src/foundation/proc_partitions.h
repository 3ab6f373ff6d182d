// The kernel's table of block devices, of which every reader takes its own columns.
#ifndef TORVANE_FOUNDATION_PROC_PARTITIONS_H
#define TORVANE_FOUNDATION_PROC_PARTITIONS_H

#include "foundation/owners.h"

namespace torvane {

constexpr const char *kProcPartitions = "/proc/partitions";
constexpr int kHeaderLines = 2; // the column names and a blank line

// The open file with a buffer, on the heap when there is memory, large enough that the kernel need not walk its
// devices for every kilobyte again.
class PartitionsFile {
  public:
    PartitionsFile() noexcept
        : buffer_(static_cast<char *>(std::malloc(kBufferSize))), stream_(std::fopen(kProcPartitions, "r")) {
        if (buffer_ && stream_) (void)std::setvbuf(stream_.get(), buffer_.get(), _IOFBF, kBufferSize);
    }
    explicit operator bool() const noexcept { return stream_ != nullptr; }
    std::FILE *get() const noexcept { return stream_.get(); }

  private:
    static constexpr size_t kBufferSize = 1U << 16U;
    CString buffer_;
    File stream_; // closed before its buffer goes
};

} // namespace torvane

#endif
