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

// Index of the first decimal digit of a name; -1 without one and for null.
int first_digit_index(const char *name) noexcept;

// The leading characters of a name before its first digit: the disk of sda1. Null without memory.
CString disk_name_prefix(const char *name) noexcept;

} // namespace torvane

#endif
