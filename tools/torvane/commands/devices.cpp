#include "commands/devices.h"

#include "inventory/survey/find.h"
#include "output/text.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace tool {
namespace {

namespace fs = std::filesystem;
using inventory::Thing;

std::string numbers_of(dev_t device) { return std::to_string(major(device)) + ":" + std::to_string(minor(device)); }

std::string last_part_of_link(const std::string &link) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size() - 1);
    if (length <= 0) return {};
    const std::string path(target.data(), static_cast<std::size_t>(length));
    return path.substr(path.find_last_of('/') + 1);
}

// SCSI generic nodes are character devices with the disk's name below them.
std::string disk_of_generic(dev_t device) {
    std::error_code none;
    const fs::path disks = "/sys/dev/char/" + numbers_of(device) + "/device/block";
    for (const fs::directory_entry &entry : fs::directory_iterator(disks, none)) return entry.path().filename();
    return {};
}

bool is_generic(dev_t device) {
    return last_part_of_link("/sys/dev/char/" + numbers_of(device) + "/subsystem") == "scsi_generic";
}

std::string row_of(const Thing &thing) {
    std::string row = name_of(thing);
    for (const char *key : {"serial", "model", "wwn"}) {
        const std::string text = thing.text(key);
        if (!text.empty()) row += "  " + text;
    }
    return row;
}

bool all_have_one(const std::vector<Thing *> &things, const char *key) {
    const std::string first = things.front()->text(key);
    return !first.empty() &&
           std::all_of(things.begin(), things.end(), [&](const Thing *thing) { return thing->text(key) == first; });
}

void tell_candidates(const std::string &text, const std::vector<Thing *> &things) {
    const bool is_one_serial = all_have_one(things, "serial");
    const bool is_one_drive = is_one_serial && all_have_one(things, "wwn");
    const char *advice = is_one_drive    ? "these are paths to one drive; name the device"
                         : is_one_serial ? "different drives with one serial number; name the device or its WWN"
                                         : "give more of it, or the name of the device";
    complain("'" + text + "' fits " + std::to_string(things.size()) + " devices: " + advice);
    for (const Thing *thing : things) std::fprintf(stderr, "  %s\n", printable(row_of(*thing)).c_str());
}

} // namespace

std::string name_of(const Thing &thing) {
    const std::string name = thing.text("name");
    return short_name(name.empty() ? thing.id() : name);
}

bool is_usb(const Thing &thing) {
    return thing.kind() == inventory::ThingKind::kUsbInterface ||
           !thing.related(inventory::RelationKind::kOnUsb).empty();
}

bool is_optical(const Thing &thing) { return thing.kind() == inventory::ThingKind::kOptical; }

bool names_a_file(const std::string &text) {
    struct stat status {};
    return stat(device_path(text).c_str(), &status) == 0;
}

std::string kernel_name_of(const std::string &text, Troubles &troubles) {
    const std::string path = device_path(text);
    const auto refuse_it = [&](const std::string &words) {
        troubles.push_back({path, {}, words, {}, true});
        return std::string();
    };
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return refuse_it(std::strerror(errno));
    if (S_ISBLK(status.st_mode)) {
        std::string name = last_part_of_link("/sys/dev/block/" + numbers_of(status.st_rdev));
        return name.empty() ? refuse_it("a node without a device: the kernel has none of these numbers") : name;
    }
    if (!S_ISCHR(status.st_mode) || !is_generic(status.st_rdev)) {
        return refuse_it("not a device of storage: neither a block device nor a SCSI generic node");
    }
    std::string name = disk_of_generic(status.st_rdev);
    return name.empty() ? refuse_it("a SCSI generic node without a block device") : name;
}

Found look_up(const std::string &text, std::chrono::milliseconds limit, bool (*fits)(const Thing &thing)) {
    Found found;
    const bool is_path = text.starts_with('/') || names_a_file(text);
    if (is_path && kernel_name_of(text, found.troubles).empty()) return found;
    // A place such as c0/e252/s3 is known to the tools alone, and so are drives that no cheaper source has.
    for (const unsigned step : {0U, 1U, 2U}) {
        inventory::Request request;
        request.limit = limit;
        request.all = true;
        request.ask_drives = step == 1;
        request.raid = step == 2;
        found.machine = inventory::survey(request);
        found.troubles = all_troubles(found.machine);
        found.things = inventory::find_things(found.machine, text);
        if (found.other.empty() && !found.things.empty()) found.other = found.things.front()->id();
        if (fits != nullptr) std::erase_if(found.things, [fits](const Thing *thing) { return !fits(*thing); });
        if (!found.things.empty()) break;
    }
    return found;
}

Thing *only_one(const Found &found, const std::string &text, const char *wanted) {
    if (found.things.size() == 1) return found.things.front();
    if (found.things.size() > 1) {
        tell_candidates(text, found.things);
        return nullptr;
    }
    const std::string what = wanted != nullptr ? wanted : "a drive";
    if (!found.other.empty()) {
        complain((found.other == text ? text : "'" + text + "' is " + found.other + ", which") + " is not " + what);
        return nullptr;
    }
    tell(found.troubles);
    if (text.starts_with('/') || names_a_file(text)) {
        if (found.troubles.empty()) complain(device_path(text) + " is not " + what);
    } else {
        complain("'" + text + "': nothing here has this name, serial number, WWN, label, UUID or bay");
    }
    return nullptr;
}

} // namespace tool
