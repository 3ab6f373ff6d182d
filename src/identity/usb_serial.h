// The serial number that a USB device reports, found from the sysfs directory of the disk behind it.
#ifndef TORVANE_IDENTITY_USB_SERIAL_H
#define TORVANE_IDENTITY_USB_SERIAL_H

#include "torvane.h"

namespace torvane {

// As a trimmed heap string: 0, or -1 when the disk is not behind USB.
int read_usb_serial(const char *path, char **serial) noexcept;

// For the device that the record names, into the record: 0 or -1.
int read_usb_serial_into_spec(DeviceSpecification &specification) noexcept;

} // namespace torvane

#endif
