#include "usb.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace torvane::world {
namespace {

const std::string kHub = "pci0000:00/0000:00:14.0/usb1/";

std::string driver_of(unsigned type) {
    const char *name = get_driver_name_from_type(type);
    return name == nullptr ? "" : name;
}

} // namespace

UsbTest::UsbTest() {
    category = TORVANE_ERROR_DEVICE;
    for (const std::string driver : {"sd", "st", "sr", "ses"}) {
        for (const char *file : {"bind", "unbind"}) world.file(control(driver, file), "");
    }
    answers().mknod = [this](const char *path, mode_t mode, dev_t number) { return make_node(path, mode, number); };
    answers().system = [this](const char *command) { return answer_command(command); };
    world.remove("/proc/mounts");
    write_mounts();
}

void UsbTest::plug_in(const UsbDevice &device) {
    const std::string port = "1-" + std::to_string(device.port);
    const std::string usb = "/sys/devices/" + kHub + port;
    const std::string interface = port + ":1.0";
    world.file(usb + "/idVendor", "1d6b\n");
    if (!device.serial.empty()) world.file(usb + "/serial", device.serial + "\n");
    if (!device.manufacturer.empty()) world.file(usb + "/manufacturer", device.manufacturer + "\n");
    if (!device.product.empty()) world.file(usb + "/product", device.product + "\n");
    world.directory(usb + "/" + interface);
    world.link("/sys/bus/usb/devices/" + port, usb);
    world.link("/sys/bus/usb/devices/" + interface, usb + "/" + interface);
    world.link("/sys/bus/usb/drivers/usb-storage/" + interface, usb + "/" + interface);
    for (size_t i = 0; i < device.units.size(); ++i) plug_in_unit(device, i);
}

void UsbTest::plug_in_unit(const UsbDevice &device, size_t index) {
    const Unit &unit = device.units[index];
    const std::string port = "1-" + std::to_string(device.port);
    const std::string host = std::to_string(device.port + 1);
    const std::string address = host + ":0:0:" + std::to_string(index);
    const std::string target = kHub + port + "/" + port + ":1.0/host" + host + "/target" + host + ":0:0";
    if (unit.bound && !unit.name.empty()) {
        disks[makedev(unit.major, unit.minor)] = world.disk({.name = unit.name,
                                                             .major = unit.major,
                                                             .minor = unit.minor,
                                                             .vendor = "Maker",
                                                             .model = "Flash",
                                                             .address = address,
                                                             .parent = target,
                                                             .size = unit.size,
                                                             .partitions = unit.partitions,
                                                             .uuid = unit.uuid});
        if (!unit.node) world.remove("/dev/" + unit.name);
    }
    world.file("/sys/devices/" + target + "/" + address + "/type", std::to_string(unit.type) + "\n");
    world.link("/sys/bus/scsi/devices/" + address, "/sys/devices/" + target + "/" + address);
    if (unit.bound) world.link(control(driver_of(unit.type), address), "/sys/devices/" + target + "/" + address);
}

UsbTest::Media UsbTest::read(const std::string &port) {
    MediaList list = empty_media_list;
    MediaRecord *media = add_entry_to_info_list((port + ":1.0").c_str(), &list);
    if (media == nullptr || update_device_information(media) != 0) {
        release_media_list(&list);
        return nullptr;
    }
    return Media(media); // the array of one record is the record
}

std::vector<std::string> UsbTest::names_in(const std::string &directory) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::optional<int> UsbTest::make_node(const char *path, mode_t mode, dev_t number) {
    const Uncounted pause;
    if (file_exists(path) == 1) {
        errno = EEXIST;
        return -1;
    }
    char text[200];
    std::snprintf(text, sizeof text, "%s %u:%u %o", path, major(number), minor(number), mode);
    nodes.emplace_back(text);
    world.device(path, major(number), minor(number), false, disks[number]);
    return 0;
}

std::optional<int> UsbTest::answer_command(const char *command) {
    const Uncounted pause;
    const std::string text = command;
    commands.push_back(text);
    for (const auto &[beginning, status] : statuses) {
        if (text.starts_with(beginning)) return status;
    }
    const std::string mount_point = text.substr(text.rfind(' ') + 1);
    if (text.starts_with("mount ")) mounts.push_back(mount_point);
    if (text.starts_with("umount ")) std::erase(mounts, mount_point);
    write_mounts();
    return 0;
}

void UsbTest::write_mounts() const {
    // Real tables have lines that are longer than a reader's buffer, and escaped blanks.
    std::string lines =
        "overlay /long overlay rw," + std::string(600, 'x') + " 0 0\n" + "/dev/sdz1 /tmp/two\\040words vfat ro 0 0\n";
    for (const std::string &mount_point : mounts) lines += "node " + mount_point + " vfat ro,nosuid 0 0\n";
    world.file("/proc/mounts", lines);
}

} // namespace torvane::world

// Entries that the fixture made block devices are listed as such.
extern "C" int scandir(const char *path, dirent ***entries, int (*filter)(const dirent *),
                       int (*compare)(const dirent **, const dirent **)) {
    if (torvane::world::fails_now(torvane::world::Step::kCall, "scandir")) return -1;
    static auto *real = reinterpret_cast<decltype(&scandir)>(dlsym(RTLD_NEXT, "scandir"));
    const int found = real(path, entries, nullptr, compare);
    int kept = 0;
    for (int i = 0; i < found; ++i) {
        dirent *entry = (*entries)[i];
        char full[PATH_MAX];
        std::snprintf(full, sizeof full, "%s/%s", path, entry->d_name);
        struct stat status = {};
        {
            const torvane::world::Uncounted pause;
            if (lstat(full, &status) == 0 && S_ISBLK(status.st_mode)) entry->d_type = DT_BLK;
        }
        if (filter == nullptr || filter(entry) != 0) {
            (*entries)[kept++] = entry;
        } else {
            std::free(entry);
        }
    }
    return found < 0 ? found : kept;
}
