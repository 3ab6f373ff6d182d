#include "removable/records.h"
#include "torvane.h"

#include <algorithm>

using namespace torvane;

DriveType convert_to_drive_type(int type) noexcept {
    switch (type) {
    case 2: return DRIVE_TYPE_ADAPTER;
    case SCSI_TYPE_OPTICAL: return DRIVE_TYPE_OPTICAL;
    default: return DRIVE_TYPE_REMOVABLE;
    }
}

int set_removable_drive_attributes(DriveRecord *drive, const MediaRecord *device) noexcept {
    if (drive == nullptr || device == nullptr) return -1;
    (device->status == USB_STATUS_ADAPTER ? set_adapter_status : set_removable_drive_status)(drive, device);
    return 0;
}

void set_adapter_status(DriveRecord *drive, const MediaRecord *device) noexcept {
    if (drive == nullptr || device == nullptr) return;
    drive->drive_type = DRIVE_TYPE_ADAPTER;
    // Whatever state a medium is in, an adapter with a bound one is in use as a whole.
    for (const ScsiDeviceInfo &medium : devices_of(*device)) {
        if (medium.state != STATE_UNBOUND) drive->status = STATE_NODE;
    }
}

void set_removable_drive_status(DriveRecord *drive, const MediaRecord *device) noexcept {
    if (drive == nullptr || device == nullptr) return;
    int32_t type = 0;
    int32_t status = STATE_UNBOUND;
    for (const ScsiDeviceInfo &disk : devices_of(*device)) {
        type = std::max(type, static_cast<int32_t>(convert_to_drive_type(static_cast<int>(disk.type))));
        status = std::max(status, static_cast<int32_t>(disk.state));
    }
    drive->drive_type = static_cast<DriveType>(type);
    drive->status = status;
}
