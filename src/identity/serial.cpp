#include "foundation/errors.h"
#include "foundation/text.h"
#include "identity/ata.h"
#include "identity/device_kind.h"
#include "identity/results.h"
#include "identity/unit_serial.h"
#include "identity/usb_serial.h"
#include "torvane.h"

using namespace torvane;

namespace {

int fail_serial(const char *words) noexcept {
    fail(kIdentity, "%s", words);
    return kNoSerial;
}

int hand_out_trimmed(const char *text, char **serial) noexcept {
    char *copy = duplicate_str(text);
    if (copy == nullptr) return fail_serial("failed to allocate serial number");
    trim_in_place(copy);
    *serial = copy;
    return 0;
}

} // namespace

int get_device_serial_number(int fd, DeviceSpecification *specification) noexcept {
    constexpr UnitSerialWords kWords = {"no serial number (error doing INQUIRY)", "no serial number (bad format)"};
    if (specification == nullptr) return kNoSerial;
    specification->serial[0] = '\0';
    char text[kSerialSize];
    if (read_unit_serial(fd, kWords, text)) return trim(text, specification->serial);
    AtaIdentity identity;
    if (read_ata_identity(fd, identity)) {
        copy_text(specification->serial, identity.serial());
        return 0;
    }
    return read_usb_serial_into_spec(*specification) == 0 ? 0 : kNoSerial;
}

int get_drive_serial_number(int fd, const char *path, char **serial) noexcept {
    constexpr UnitSerialWords kWords = {"failed to read scsi serial number (INQUIRY error)",
                                        "failed to read scsi serial number (bad format)"};
    if (serial == nullptr) return kNoSerial;
    *serial = nullptr;
    if (read_usb_serial(path, serial) == 0) return 0;
    char text[kSerialSize];
    if (read_unit_serial(fd, kWords, text)) return hand_out_trimmed(text, serial);
    AtaIdentity identity;
    if (read_ata_identity(fd, identity)) return hand_out_trimmed(identity.serial(), serial);
    return fail_serial("failed to get hdio identity for ide serial number");
}

int get_drive_serial(int fd, const char *path, const char *model, char **serial) noexcept {
    if (serial == nullptr) return -1;
    char *read_model = nullptr;
    DeviceIdentity identity{};
    if (model == nullptr && stat_device_kind(fd, identity) == 0) get_drive_model(fd, identity.kind, path, &read_model);
    const CString owned(read_model);
    if (get_drive_serial_number(fd, path, serial) != 0) return -1;
    truncate_seagate_serial(*serial, model != nullptr ? model : read_model);
    return 0;
}
