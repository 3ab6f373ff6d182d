// Block devices that come, go and change, as the device manager tells once it is done with them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct udev_monitor;

namespace inventory {

struct DeviceEvent {
    std::string action;                   // "add", "remove", "change", ...
    std::string name;                     // "sda"
    std::optional<std::uint64_t> diskseq; // the kernel's running number of the disk or its medium
};

class DeviceEvents {
  public:
    // From now on; null when the device manager cannot be listened to.
    static std::unique_ptr<DeviceEvents> listen();
    DeviceEvents(const DeviceEvents &) = delete;
    DeviceEvents &operator=(const DeviceEvents &) = delete;
    ~DeviceEvents();

    [[nodiscard]] int descriptor() const; // readable when there is an event
    std::optional<DeviceEvent> next();    // nothing when there is none yet

  private:
    explicit DeviceEvents(udev_monitor *monitor) : monitor_(monitor) {}
    udev_monitor *monitor_;
};

} // namespace inventory
