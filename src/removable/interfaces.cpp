// What sysfs says about one USB mass-storage interface: its USB device and the SCSI devices behind it.
#include "foundation/directory.h"
#include "foundation/errors.h"
#include "foundation/sysfs.h"
#include "removable/records.h"
#include "torvane.h"

#include <glob.h>

#include <cstring>

using namespace torvane;

namespace {

constexpr const char *kUsbDevices = "/sys/bus/usb/devices";
constexpr const char *kScsiTargets = "host*/target*/";
constexpr const char *kNoMedia = "unable to read info (NULL)";

// The paths that match a pattern.
class Matches {
  public:
    explicit Matches(const char *pattern) noexcept : result_(glob(pattern, 0, nullptr, &paths_)) {}
    Matches(const Matches &) = delete;
    Matches &operator=(const Matches &) = delete;
    ~Matches() { globfree(&paths_); }

    bool found() const noexcept { return result_ == 0; }
    size_t count() const noexcept { return paths_.gl_pathc; }
    const char *first() const noexcept { return paths_.gl_pathv[0]; }

  private:
    glob_t paths_{};
    int result_;
};

int add_devices_of_target(MediaRecord &media, const char *path) noexcept {
    Directory target(path);
    while (const dirent *entry = target ? target.next() : nullptr) {
        if (!contains(entry->d_name, ":")) continue;
        if (add_scsi_device_to_list(&media.devices, entry->d_name) != 0) return -1;
    }
    return target && !target.failed() ? 0 : fail(kDevice, "failed to open %s", path);
}

// The USB device of an interface: 1-1 of 1-1:1.0.
CString usb_device_of(const char *interface) noexcept {
    CString device(duplicate_str(interface));
    if (!device) return CString(fail_null(kDevice, "failed to duplicate '%s'", interface));
    device.get()[std::strcspn(device.get(), ":")] = '\0';
    return device;
}

CString read_usb_text(const char *usb_device, const char *attribute) noexcept {
    char *text = nullptr;
    get_info_type(&text, usb_device, attribute);
    return CString(text);
}

int read_type(ScsiDeviceInfo &device) noexcept {
    const CString path = make_text("%s/%s/type", kScsiDevices, device.address);
    if (!path) return fail(kDevice, "failed to allocate driver path");
    char *line = nullptr;
    if (allocate_value_from_sys_file(path.get(), kWholeLine, &line) != 0) {
        return fail(kDevice, "failed to read driver information from %s", path.get());
    }
    const CString text(line);
    return get_driver_from_type(line, &device);
}

bool is_disk_and_enclosure(const ScsiDeviceInfo &disk, const ScsiDeviceInfo &enclosure) noexcept {
    return disk.type == SCSI_TYPE_DISK && enclosure.type == SCSI_TYPE_ENCLOSURE;
}

int drop_second_device(ScsiDeviceList &list) noexcept {
    clear_strings(list.devices[1]);
    void *shrunk = std::realloc(list.devices, sizeof(ScsiDeviceInfo));
    if (shrunk == nullptr) return fail(kDevice, "failed to allocate scsi device");
    list.devices = static_cast<ScsiDeviceInfo *>(shrunk);
    list.count = 1;
    return 0;
}

} // namespace

int get_scsi_addresses(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, kNoMedia);
    const CString pattern = make_text("%s/%s/%s", kUsbDevices, media->name, kScsiTargets);
    if (!pattern) return fail(kDevice, "failed to allocate path for scsi address");
    const Matches targets(pattern.get());
    if (!targets.found()) return fail(kDevice, "failed to glob for matches in %s", pattern.get());
    if (targets.count() > 1) return fail(kDevice, "found more than 1 match for glob");
    return add_devices_of_target(*media, targets.first());
}

int get_info_type(char **out, const char *usb_device, const char *attribute) noexcept {
    if (out == nullptr || usb_device == nullptr || attribute == nullptr) {
        return fail(kDevice, "failed to allocate info path");
    }
    const CString path = make_text("%s/%s/%s", kUsbDevices, usb_device, attribute);
    if (!path) return fail(kDevice, "failed to allocate info path");
    char *line = nullptr;
    if (allocate_value_from_sys_file(path.get(), kWholeLine, &line) != 0) {
        *out = duplicate_str("");
        return *out == nullptr ? -1 : 0;
    }
    *out = nullptr;
    CString text(line);
    if (trim_in_place(line) != 0) return fail(kDevice, "failed to trim whitespace from '%s'", line);
    *out = text.release();
    return 0;
}

int get_usb_information(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, kNoMedia);
    std::free(media->serial);
    media->serial = nullptr;
    const CString device = usb_device_of(media->name);
    if (!device) return -1;
    CString serial = read_usb_text(device.get(), "serial");
    if (!serial) return -1;
    const CString product = read_usb_text(device.get(), "product");
    if (!product) return -1;
    const CString manufacturer = read_usb_text(device.get(), "manufacturer");
    if (!manufacturer) return -1;
    CString model = make_text("%s %s", manufacturer.get(), product.get());
    if (!model) return fail(kDevice, "failed to create model from manufacturer and product");
    std::free(media->model);
    media->model = model.release();
    media->serial = serial.release();
    return 0;
}

int get_driver_information(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, kNoMedia);
    for (ScsiDeviceInfo &device : devices_of(*media)) {
        if (read_type(device) != 0) return -1;
    }
    return 0;
}

int check_ses_enclosure(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, kNoMedia);
    ScsiDeviceInfo *const devices = media->devices.devices;
    if (media->devices.count != 2) return 0;
    const bool enclosure_first = is_disk_and_enclosure(devices[1], devices[0]);
    if (!enclosure_first && !is_disk_and_enclosure(devices[0], devices[1])) return 0;
    media->has_enclosure = 1;
    if (enclosure_first && copy_scsi_device_info(&devices[0], &devices[1]) != 0) return -1;
    if (drop_second_device(media->devices) != 0) return -1;
    // A bridge's disk often gives a serial number of its own or none; the USB one is what users know.
    ScsiDeviceInfo &disk = media->devices.devices[0];
    std::free(disk.serial);
    disk.serial = duplicate_str(media->serial);
    if (disk.serial == nullptr && media->serial != nullptr) return fail(kDevice, "failed to allocate scsi device");
    return 0;
}

int update_device_information(MediaRecord *media) noexcept {
    if (media == nullptr) return fail(kDevice, kNoMedia);
    for (char **text : {&media->serial, &media->model}) {
        std::free(*text);
        *text = nullptr;
    }
    release_scsi_list(&media->devices);
    media->has_enclosure = 0; // a disk may have left its enclosure since
    constexpr int (*kSteps[])(MediaRecord *) noexcept = {
        get_scsi_addresses, get_usb_information, get_driver_information, check_ses_enclosure, get_device_status};
    for (const auto step : kSteps) {
        if (step(media) != 0) return -1;
    }
    return 0;
}
