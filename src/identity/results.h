// What each missing piece takes from a composite result (see the result bits in torvane.h).
#ifndef TORVANE_IDENTITY_RESULTS_H
#define TORVANE_IDENTITY_RESULTS_H

#include "torvane.h"

namespace torvane {

constexpr int kNoGenericName = -TORVANE_DEVICE_GENERIC_NAME;
constexpr int kNoSerial = -TORVANE_DEVICE_SERIAL;
constexpr int kNoModel = -TORVANE_DEVICE_MODEL;
constexpr int kNoDeviceNumbers = -TORVANE_DEVICE_NUMBERS;

} // namespace torvane

#endif
