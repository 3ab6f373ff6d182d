#include "identity/usb_serial.h"

#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "foundation/text.h"

#include <climits>
#include <unistd.h>

namespace torvane {
namespace {

// Cuts a link target behind the directory of the USB device, just above its first interface: the component
// that holds a ":". False when there is no interface below.
bool cut_at_interface(char *usb) noexcept {
    for (char *component = usb;;) {
        const char *slash = std::strchr(component, '/');
        const char *colon = std::strchr(component, ':');
        if (slash == nullptr || colon == nullptr) return false;
        if (colon <= slash + 1) {
            *component = '\0';
            return true;
        }
        component += slash - component + 1;
    }
}

// Length of a link target up to and including the component after the first one that contains "usb"; the
// whole target where there is none.
size_t length_to_usb_device(const char *target) noexcept {
    const char *end = std::strchr(std::strstr(target, "usb"), '/');
    if (end == nullptr) return std::strlen(target);
    end = std::strchr(end + 1, '/');
    return end == nullptr ? std::strlen(target) : static_cast<size_t>(end - target);
}

} // namespace

int read_usb_serial(const char *path, char **serial) noexcept {
    if (path == nullptr || *path == '\0') return -1;
    const std::string_view name = last_token(path, "/");
    if (name.empty()) return fail(kIdentity, "failed to allocate usb serial number");
    const CString link = joined({kSysBlock, "/", name});
    if (!link) return fail(kIdentity, "failed to allocate sys path for usb serial number");
    char target[PATH_MAX];
    const ssize_t length = readlink(link.get(), target, sizeof target - 1);
    if (length < 0) return fail(kIdentity, "failed to read link path for '%s'", link.get());
    target[length] = '\0';
    char *usb = std::strstr(target, "usb");
    if (usb == nullptr) return fail(kIdentity, "no usb directory found in '%s'", target);
    if (!cut_at_interface(usb)) return -1;
    const CString attribute = joined({kSysBlock, "/", target, "/serial"});
    if (!attribute) return fail(kIdentity, "failed to alloc usb serial path");
    char *value = nullptr;
    if (allocate_value_from_sys_file(attribute.get(), kWholeLine, &value) != 0) return -1;
    trim_in_place(value);
    *serial = value;
    return 0;
}

int read_usb_serial_into_spec(DeviceSpecification &specification) noexcept {
    if (specification.device_name[0] == '\0') return -1;
    char name[kPathSize] = "";
    if (get_last_token(specification.device_name, "/", sizeof name, name) < 0) return -1;
    char link[kPathSize];
    std::snprintf(link, sizeof link, "%s/%s", kSysBlock, name);
    char target[kPathSize] = "";
    if (readlink(link, target, sizeof target - 1) < 0 || !contains(target, "usb")) return -1;
    target[length_to_usb_device(target)] = '\0';
    const CString attribute = make_text("%s/%s/serial", kSysBlock, target);
    char value[kValueSize] = "";
    if (!attribute || read_value_from_sys_file(attribute.get(), kBoundedLine, value) != 0) return -1;
    copy_text(specification.serial, value);
    return 0;
}

} // namespace torvane
