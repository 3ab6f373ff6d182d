// Where sysfs keeps what, and the two name rules that its paths need.
#ifndef TORVANE_FOUNDATION_SYSFS_H
#define TORVANE_FOUNDATION_SYSFS_H

#include "foundation/owners.h"

namespace torvane {

constexpr const char *kSysBlock = "/sys/block";
constexpr const char *kSysClassBlock = "/sys/class/block";
constexpr const char *kSysGeneric = "/sys/class/scsi_generic";
constexpr const char *kDev = "/dev";

// One whole line, the form of every textual sysfs attribute.
constexpr const char *kWholeLine = "%[^\n]";

// Room for the longest attribute text, its terminator included, and the line that such a buffer takes.
constexpr size_t kValueSize = 168;
constexpr const char *kBoundedLine = "%167[^\n]";
static_assert(kValueSize == 167 + 1);

// Room for the paths that are formatted into fixed buffers, and cut to fit.
constexpr size_t kPathSize = 150;

// The unit of sizes and starts in sysfs and of BLKGETSIZE, whatever a disk's own blocks are.
constexpr int kSectorSize = 512;

// Index of the first decimal digit of a name; -1 without one and for null.
int first_digit_index(const char *name) noexcept;

// The leading characters of a name before its first digit: the disk of sda1.
std::string_view disk_name_prefix(std::string_view name) noexcept;

} // namespace torvane

#endif
