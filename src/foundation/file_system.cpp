#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <libudev.h>

using namespace torvane;

namespace {

using Udev = std::unique_ptr<udev, Calls<&udev_unref>>;
using Enumeration = std::unique_ptr<udev_enumerate, Calls<&udev_enumerate_unref>>;
using UdevDevice = std::unique_ptr<udev_device, Calls<&udev_device_unref>>;

} // namespace

int get_file_system_id(const char *name, char **id) noexcept {
    if (name == nullptr || id == nullptr) return -1;
    const Udev context(udev_new());
    if (!context) return -1;
    const Enumeration devices(udev_enumerate_new(context.get()));
    if (!devices) return -1;
    if (udev_enumerate_add_match_subsystem(devices.get(), "block") < 0) return -1;
    if (udev_enumerate_scan_devices(devices.get()) < 0) return -1;
    udev_list_entry *entry = udev_enumerate_get_list_entry(devices.get());
    if (entry == nullptr) return -1;
    for (; entry != nullptr; entry = udev_list_entry_get_next(entry)) {
        const UdevDevice device(udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        const char *kernel_name = device ? udev_device_get_sysname(device.get()) : nullptr;
        if (kernel_name == nullptr || !begins_with(kernel_name, name)) continue;
        const char *uuid = udev_device_get_property_value(device.get(), "ID_FS_UUID");
        char *copy = duplicate_str(uuid);
        if (uuid != nullptr && copy == nullptr) return -1;
        *id = copy;
        return 1;
    }
    return 0;
}

int check_bad_filesystem(const char *name, const char *const * /*partition_names*/, int32_t enable) noexcept {
    if (enable == 0) return 0;
    char *id = nullptr;
    const int found = get_file_system_id(name, &id);
    const CString uuid(id);
    if (found < 0) return -1;
    return uuid ? 1 : 0;
}
