#include "inventory/kernel/database.h"

#include "inventory/machine.h"

#include <libudev.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>

namespace inventory {
namespace {

using Device = std::unique_ptr<udev_device, udev_device *(*)(udev_device *)>;

void release(udev *context) { udev_unref(context); }

Value plain(const Entry &entry, const char *property) { return entry.text(property); }
Value encoded(const Entry &entry, const char *property) { return decoded(entry.text(property)); }

Value number(const Entry &entry, const char *property) {
    const auto value = parse_number(entry.text(property));
    return value ? Value(*value) : Value();
}

// SCSI's serial numbers have a property of their own; the other one is then a name made of page 83h.
Value serial(const Entry &entry, const char *property) {
    if (entry.text("ID_BUS") == "scsi" || !entry.text("ID_SCSI_SERIAL").empty()) return entry.text("ID_SCSI_SERIAL");
    if (!entry.text(property).empty()) return entry.text(property);
    // A virtio disk has nothing that its serial number could be short of.
    return entry.text("ID_MODEL").empty() && entry.text("ID_BUS").empty() && entry.text("DM_NAME").empty() &&
                   entry.text("MD_UUID").empty()
               ? entry.text("ID_SERIAL")
               : "";
}

Value wwn(const Entry &entry, const char *property) {
    const std::string whole = entry.text(property);
    return whole.empty() ? entry.text("ID_WWN") : whole;
}

Value model(const Entry &entry, const char *property) {
    const std::string whole = decoded(entry.text(property));
    return whole.empty() ? entry.text("ID_MODEL") : whole;
}

struct PropertyRow {
    const char *key;
    const char *property;
    Value (*read)(const Entry &, const char *);
};

constexpr PropertyRow kProperties[] = {
    {"model", "ID_MODEL_ENC", model},           {"vendor", "ID_VENDOR_ENC", encoded},
    {"serial", "ID_SERIAL_SHORT", serial},      {"firmware", "ID_REVISION", plain},
    {"wwn", "ID_WWN_WITH_EXTENSION", wwn},      {"rpm", "ID_ATA_ROTATION_RATE_RPM", number},
    {"fs_type", "ID_FS_TYPE", plain},           {"fs_label", "ID_FS_LABEL_ENC", encoded},
    {"uuid", "ID_FS_UUID_ENC", encoded},        {"pt_type", "ID_PART_TABLE_TYPE", plain},
    {"pt_uuid", "ID_PART_TABLE_UUID", plain},   {"part_type", "ID_PART_ENTRY_TYPE", plain},
    {"part_uuid", "ID_PART_ENTRY_UUID", plain}, {"part_label", "ID_PART_ENTRY_NAME", encoded},
};

struct LinkRow {
    const char *key;
    std::string_view folder;
};
constexpr LinkRow kLinks[] = {{"by_id", "disk/by-id/"}, {"by_path", "disk/by-path/"}};

void tell_links(Thing &thing, const Entry &entry) {
    const std::vector<std::string> links = entry.links();
    for (const LinkRow &row : kLinks) {
        std::vector<std::string> names;
        for (const std::string &link : links) {
            if (link.starts_with(row.folder)) names.push_back(link.substr(row.folder.size()));
        }
        std::sort(names.begin(), names.end());
        if (!names.empty()) thing.tell(row.key, names, Source::kDatabase, "DEVLINKS");
    }
}

} // namespace

std::string Entry::text(std::string_view property) const {
    const std::string beginning = "\nE:" + std::string(property) + "=";
    const std::size_t at = lines.find(beginning);
    if (at == std::string::npos) return "";
    const std::size_t value = at + beginning.size();
    return lines.substr(value, lines.find('\n', value) - value);
}

std::vector<std::string> Entry::links() const {
    constexpr std::string_view kLink = "\nS:";
    std::vector<std::string> found;
    for (std::size_t at = lines.find(kLink); at != std::string::npos; at = lines.find(kLink, at + 1)) {
        const std::size_t value = at + kLink.size();
        found.push_back(lines.substr(value, lines.find('\n', value) - value));
    }
    return found;
}

Database::Database(ReadFailures *failures)
    : failures_(failures), files_("/run/udev/data", failures), udev_(udev_new(), release) {}

// The library opens every folder on the way to a device, thirty calls a disk: six times what all of /sys costs. Files
// of the version that is known here are read as they are, others through the library.
Entry Database::entry(unsigned major, unsigned minor) const {
    const std::string name = "b" + std::to_string(major) + ":" + std::to_string(minor);
    const auto file = files_.bytes(name.c_str());
    if (!file) return {};
    Entry entry{true, "\n" + *file};
    const std::size_t version = entry.lines.find("\nV:");
    const bool is_readable = version == std::string::npos || entry.lines.compare(version, 5, "\nV:1\n") == 0;
    return is_readable ? entry : asked(major, minor);
}

Entry Database::asked(unsigned major, unsigned minor) const {
    Entry entry;
    if (!udev_) {
        failures_->push_back({"database", ENOMEM});
        return entry;
    }
    errno = 0;
    const Device device(udev_device_new_from_devnum(udev_.get(), 'b', makedev(major, minor)), udev_device_unref);
    if (!device) {
        failures_->push_back({"database", errno});
        return entry;
    }
    const int known = udev_device_get_is_initialized(device.get());
    if (known < 0) failures_->push_back({"database", -known});
    entry.known = known > 0;
    // Every device has some.
    udev_list_entry *property = udev_device_get_properties_list_entry(device.get());
    if (property == nullptr) failures_->push_back({"database", errno == 0 ? ENOMEM : errno});
    for (; property != nullptr; property = udev_list_entry_get_next(property)) {
        const char *value = udev_list_entry_get_value(property);
        if (value == nullptr) continue;
        entry.lines.append("\nE:").append(udev_list_entry_get_name(property)).append("=").append(value);
    }
    udev_list_entry *link = nullptr;
    udev_list_entry_foreach(link, udev_device_get_devlinks_list_entry(device.get())) {
        const std::string_view path = udev_list_entry_get_name(link);
        constexpr std::string_view kNodes = "/dev/";
        entry.lines.append("\nS:").append(path.starts_with(kNodes) ? path.substr(kNodes.size()) : path);
    }
    entry.lines += '\n';
    return entry;
}

std::string decoded(std::string_view text) {
    std::string plain_text;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto is_digit = [&](std::size_t place) {
            return place < text.size() && std::isxdigit(static_cast<unsigned char>(text[place])) != 0;
        };
        if (text.substr(i, 2) == "\\x" && is_digit(i + 2) && is_digit(i + 3)) {
            plain_text += static_cast<char>(std::stoi(std::string(text.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        } else {
            plain_text += text[i];
        }
    }
    return plain_text;
}

void tell_entry(Thing &thing, const Entry &entry) {
    for (const PropertyRow &row : kProperties) {
        if ((all_facts()[index_of(row.key)].of & bit(thing.kind())) == 0) continue;
        thing.tell(row.key, row.read(entry, row.property), Source::kDatabase, row.property);
    }
    tell_links(thing, entry);
}

bool is_in_database(std::string_view key) {
    const auto has_key = [key](const auto &row) { return key == row.key; };
    return std::any_of(std::begin(kProperties), std::end(kProperties), has_key) ||
           std::any_of(std::begin(kLinks), std::end(kLinks), has_key);
}

} // namespace inventory
