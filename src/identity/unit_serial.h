// The unit serial number of a SCSI device: vital product data page 0x80 (SPC-4 clause 7.8.15).
#ifndef TORVANE_IDENTITY_UNIT_SERIAL_H
#define TORVANE_IDENTITY_UNIT_SERIAL_H

#include <cstddef>

namespace torvane {

// The failures' words, which differ between the two families of readers.
struct UnitSerialWords {
    const char *inquiry_failed;
    const char *bad_format;
};

constexpr size_t kSerialSize = 60;

// Reads the number, untrimmed and cut at 59 characters. False, with the words recorded, when the device has
// none.
bool read_unit_serial(int fd, const UnitSerialWords &words, char (&serial)[kSerialSize]) noexcept;

} // namespace torvane

#endif
