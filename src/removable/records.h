// Owners of what describes removable devices, and the choice of devices by serial number.
#ifndef TORVANE_REMOVABLE_RECORDS_H
#define TORVANE_REMOVABLE_RECORDS_H

#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <span>

namespace torvane {

constexpr const char *kScsiDevices = "/sys/bus/scsi/devices";
constexpr const char *kScsiDrivers = "/sys/bus/scsi/drivers";

using Media = std::unique_ptr<MediaRecord, Calls<&release_media>>;

// A list of interfaces that is gone when its owner ends.
class OwnedMediaList {
  public:
    OwnedMediaList() noexcept = default;
    OwnedMediaList(const OwnedMediaList &) = delete;
    OwnedMediaList &operator=(const OwnedMediaList &) = delete;
    ~OwnedMediaList() { release_media_list(&list_); }

    MediaList *get() noexcept { return &list_; }
    std::span<MediaRecord> records() const noexcept { return {list_.media, list_.count}; }

  private:
    MediaList list_{};
};

// The kernel names of a disk's partitions.
class PartitionNames {
  public:
    PartitionNames() noexcept = default;
    PartitionNames(const PartitionNames &) = delete;
    PartitionNames &operator=(const PartitionNames &) = delete;
    ~PartitionNames() { release_partition_names(names_, &count_); }

    // Reads them once; failure leaves its words in the device category.
    int read(const char *disk) noexcept;
    std::span<char *const> get() const noexcept { return {names_, count_}; }

  private:
    char **names_ = nullptr;
    uint32_t count_ = 0;
};

inline std::span<ScsiDeviceInfo> devices_of(const ScsiDeviceList &list) noexcept {
    return {list.devices, list.devices == nullptr ? 0 : list.count};
}
inline std::span<ScsiDeviceInfo> devices_of(const MediaRecord &media) noexcept { return devices_of(media.devices); }

// Frees the four strings of a device and makes them null.
void clear_strings(ScsiDeviceInfo &device) noexcept;

// Whether a wanted text begins the serial number of an interface or of a device, which may have none.
template <class Record> bool has_serial(const Record &record, const char *wanted) noexcept {
    return record.serial != nullptr && begins_with(record.serial, wanted);
}

// Whether a device is meant by a serial number: its interface's, or its own.
inline bool is_selected(const MediaRecord &media, const ScsiDeviceInfo &device, const char *serial) noexcept {
    return has_serial(media, serial) || has_serial(device, serial);
}

} // namespace torvane

#endif
