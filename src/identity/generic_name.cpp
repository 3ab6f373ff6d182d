#include "identity/generic_name.h"

#include "foundation/errors.h"
#include "foundation/text.h"
#include "identity/device_kind.h"

#include <fcntl.h>

namespace torvane {

constexpr int kNoPath = -8;

int select_generic_name(DeviceKind kind, const char *path, char **name) noexcept {
    if (path == nullptr) return kNoPath;
    if (kind == DEVICE_KIND_SCSI) {
        (void)allocate_scsi_generic_name(path, name);
        return 0;
    }
    if (kind != DEVICE_KIND_SCSI_GENERIC) return -1;
    *name = duplicate_str(path);
    return *name == nullptr ? -1 : 0;
}

} // namespace torvane

using namespace torvane;

int get_generic_name(DeviceKind kind, const char *path, DeviceSpecification *specification) noexcept {
    if (path == nullptr) {
        fail(kIdentity, "name not specified (NULL)");
        return kNoPath;
    }
    if (specification == nullptr) return -1;
    if (kind >= 1) {
        specification->type = kind;
    } else if (get_device_stat(-1, path, specification) != 0) {
        return -1;
    }
    copy_text(specification->device_name, path);
    if (specification->type == DEVICE_KIND_SCSI) {
        return get_scsi_generic_name(path, sizeof specification->sg_name, specification->sg_name);
    }
    if (specification->type != DEVICE_KIND_SCSI_GENERIC) return 0;
    copy_text(specification->sg_name, path);
    return static_cast<int>(std::strlen(specification->sg_name));
}

int get_device_name_from_generic(const char *path, char *buffer) noexcept {
    constexpr size_t kNameSize = sizeof(DeviceSpecification::device_name);
    if (buffer == nullptr) return -1;
    if (path == nullptr || get_name_from_generic(path, kNameSize, buffer) < 0) {
        return fail(kIdentity, "failed to read name from generic name '%s'", path == nullptr ? "(null)" : path);
    }
    return static_cast<int>(strnlen(buffer, kNameSize));
}

int get_sg_name(const char *path, char **name) noexcept {
    if (path == nullptr || name == nullptr) return -1;
    *name = nullptr;
    const Descriptor device(open(path, O_RDONLY | O_NONBLOCK));
    if (!device) return -1;
    DeviceIdentity identity{};
    (void)stat_device_kind(device.get(), identity);
    return select_generic_name(identity.kind, path, name);
}
