#include "commands/usb_units.h"

#include "commands/calls.h"

#include <cerrno>
#include <cstring>

namespace tool {
namespace {

std::uint32_t state_of(ScsiDeviceInfo &unit) {
    if (is_bound_to_driver(&unit) != 1) return STATE_UNBOUND;
    return has_device_node(&unit) == 1 ? STATE_NODE : STATE_BOUND;
}

} // namespace

std::string words_of_failure() {
    const int error = errno;
    return words_about({TORVANE_ERROR_MOUNT, TORVANE_ERROR_DEVICE}, error == 0 ? "failed" : std::strerror(error));
}

UsbUnits::UsbUnits(const UsbChoice &choice) {
    for (const inventory::Thing *device : choice.devices) {
        if (add_scsi_device_to_list(&media_.devices, device->text("hctl").c_str()) != 0) trouble_ = words_of_failure();
    }
    if (trouble_.empty() && get_driver_information(&media_) != 0) trouble_ = words_of_failure();
    for (ScsiDeviceInfo &unit : all()) unit.state = state_of(unit);
    // What the looks above found missing is no failure of what comes.
    for (const auto category : {TORVANE_ERROR_MOUNT, TORVANE_ERROR_DEVICE}) set_error_str(category, "%s", "");
}

std::string UsbUnits::for_each(const std::function<int(ScsiDeviceInfo &unit)> &action) const {
    std::string trouble = trouble_;
    for (ScsiDeviceInfo &unit : all()) {
        if (!trouble_.empty()) break;
        errno = 0;
        if (action(unit) != 0 && trouble.empty()) trouble = words_of_failure();
    }
    return trouble;
}

} // namespace tool
