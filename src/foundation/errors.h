// The failure idiom: record the words, return the result, in one statement.
#ifndef TORVANE_FOUNDATION_ERRORS_H
#define TORVANE_FOUNDATION_ERRORS_H

#include "torvane.h"

#include <cstddef>
#include <cstdint>

namespace torvane {

constexpr uint32_t kGeometry = TORVANE_ERROR_GEOMETRY;
constexpr uint32_t kIdentity = TORVANE_ERROR_IDENTITY;
constexpr uint32_t kDefects = TORVANE_ERROR_DEFECTS;
constexpr uint32_t kSysfs = TORVANE_ERROR_SYSFS;
constexpr uint32_t kState = TORVANE_ERROR_STATE;
constexpr uint32_t kRaid = TORVANE_ERROR_RAID;
constexpr uint32_t kDriveList = TORVANE_ERROR_DRIVE_LIST;
constexpr uint32_t kDevice = TORVANE_ERROR_DEVICE;
constexpr uint32_t kMount = TORVANE_ERROR_MOUNT;

// Records the message and returns -1.
[[gnu::format(printf, 2, 3)]] int fail(uint32_t category, const char *format, ...) noexcept;

// Records the message and returns null.
[[gnu::format(printf, 2, 3)]] std::nullptr_t fail_null(uint32_t category, const char *format, ...) noexcept;

} // namespace torvane

#endif
