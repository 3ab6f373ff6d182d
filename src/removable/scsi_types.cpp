#include "foundation/errors.h"
#include "torvane.h"

#include <cstdlib>

using namespace torvane;

namespace {

struct TypeDriver {
    uint32_t type;
    const char *driver;
};

constexpr TypeDriver kTypeDrivers[] = {
    {SCSI_TYPE_DISK, "sd"},
    {SCSI_TYPE_TAPE, "st"},
    {SCSI_TYPE_OPTICAL, "sr"},
    {SCSI_TYPE_ENCLOSURE, "ses"},
};

} // namespace

const char *get_driver_name_from_type(uint32_t type) noexcept {
    for (const TypeDriver &entry : kTypeDrivers) {
        if (entry.type == type) return entry.driver;
    }
    return nullptr;
}

int get_driver_from_type(const char *text, ScsiDeviceInfo *device) noexcept {
    const long type = text == nullptr ? -1 : std::strtol(text, nullptr, 10);
    const bool known =
        type >= 0 && type <= SCSI_TYPE_ENCLOSURE && get_driver_name_from_type(static_cast<uint32_t>(type)) != nullptr;
    if (!known || device == nullptr) return fail(kDevice, "found invalid driver type '%s'", text);
    device->type = static_cast<uint32_t>(type);
    return 0;
}
