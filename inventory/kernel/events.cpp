#include "inventory/kernel/events.h"

#include "inventory/kernel/folder.h"

#include <libudev.h>

namespace inventory {
namespace {

struct Unref {
    void operator()(udev *context) const { udev_unref(context); }
    void operator()(udev_monitor *monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_device *device) const { udev_device_unref(device); }
};

// Hundreds of disks behind one controller come in a burst.
constexpr int kBufferBytes = 16 * 1024 * 1024;

std::string text_of(const char *text) { return text == nullptr ? std::string() : std::string(text); }

} // namespace

std::unique_ptr<DeviceEvents> DeviceEvents::listen() {
    const std::unique_ptr<udev, Unref> context(udev_new());
    if (!context) return nullptr;
    std::unique_ptr<udev_monitor, Unref> monitor(udev_monitor_new_from_netlink(context.get(), "udev"));
    if (!monitor) return nullptr;
    udev_monitor_set_receive_buffer_size(monitor.get(), kBufferBytes); // without the right to it, the usual size does
    if (udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "block", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor.get()) < 0) {
        return nullptr;
    }
    return std::unique_ptr<DeviceEvents>(new DeviceEvents(monitor.release()));
}

DeviceEvents::~DeviceEvents() { udev_monitor_unref(monitor_); }

int DeviceEvents::descriptor() const { return udev_monitor_get_fd(monitor_); }

std::optional<DeviceEvent> DeviceEvents::next() {
    const std::unique_ptr<udev_device, Unref> device(udev_monitor_receive_device(monitor_));
    if (!device) return std::nullopt;
    return DeviceEvent{text_of(udev_device_get_action(device.get())), text_of(udev_device_get_sysname(device.get())),
                       parse_number(text_of(udev_device_get_property_value(device.get(), "DISKSEQ")))};
}

} // namespace inventory
