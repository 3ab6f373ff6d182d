// The SCSI devices behind one USB interface, as the library's calls take them.
#pragma once

#include "commands/usb_devices.h"

#include <torvane.h>

#include <functional>
#include <span>
#include <string>

namespace tool {

// Read from /sys alone, and only those of the choice: no command goes to a device, so that neither one that hangs nor
// one that has only just been plugged in holds up another.
class UsbUnits {
  public:
    explicit UsbUnits(const UsbChoice &choice);
    UsbUnits(const UsbUnits &) = delete;
    UsbUnits &operator=(const UsbUnits &) = delete;
    ~UsbUnits() { release_scsi_list(&media_.devices); }

    [[nodiscard]] std::span<ScsiDeviceInfo> all() const { return {media_.devices.devices, media_.devices.count}; }

    // Goes on after failures; "", or the first one's words.
    std::string for_each(const std::function<int(ScsiDeviceInfo &unit)> &action) const;

  private:
    MediaRecord media_{};
    std::string trouble_;
};

// What a call of the library that has just failed says, or the system's words where it says nothing.
std::string words_of_failure();

} // namespace tool
