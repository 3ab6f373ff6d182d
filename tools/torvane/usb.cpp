#include "usb.h"

#include "records.h"
#include "output/text.h"

#include <cstdio>

namespace tool {
namespace {

void put_text(Wire &wire, const char *key, const char *text) {
    wire[key] = text ? Wire(std::string(text)) : Wire(nullptr);
}

Wire device_to_wire(const ScsiDeviceInfo &device) {
    Wire wire = {{"state", device.state}, {"type", device.type}, {"sectors", device.size}};
    put_text(wire, "name", device.name);
    put_text(wire, "address", device.address);
    put_text(wire, "model", device.model);
    put_text(wire, "serial", device.serial);
    put_text(wire, "driver", get_driver_name_from_type(device.type));
    return wire;
}

Wire interface_to_wire(const MediaRecord &media) {
    Wire wire = {{"status", media.status}, {"has_enclosure", media.has_enclosure != 0}};
    put_text(wire, "name", media.name);
    put_text(wire, "model", media.model);
    put_text(wire, "serial", media.serial);
    wire["devices"] = Wire::array();
    for (uint32_t i = 0; i < media.devices.count; ++i)
        wire["devices"].push_back(device_to_wire(media.devices.devices[i]));
    return wire;
}

Wire read_interfaces() {
    MediaList list = empty_media_list;
    if (get_usb_mass_storage_devices(&list) != 0) return {{"error", words_about({TORVANE_ERROR_DEVICE})}};
    Wire interfaces = Wire::array();
    for (uint32_t i = 0; i < list.count; ++i) interfaces.push_back(interface_to_wire(list.media[i]));
    release_media_list(&list);
    return {{"interfaces", std::move(interfaces)}};
}

bool begins(const Wire &record, const std::string &serial) {
    const Wire &own = record.at("serial");
    return !own.is_null() && own.get_ref<const std::string &>().starts_with(serial);
}

std::string shown(const Wire &record, const char *key) {
    const Wire &value = record.at(key);
    return value.is_null() ? "-" : printable(value.get_ref<const std::string &>());
}

} // namespace

Wire find_interfaces(std::chrono::milliseconds limit, std::vector<Failure> &failures) {
    const Outcome outcome = run_isolated(read_interfaces, limit);
    const bool done = outcome.state == Outcome::State::kDone;
    if (done && outcome.result.contains("interfaces")) return outcome.result.at("interfaces");
    const std::string words = done ? outcome.result.at("error").get<std::string>() : outcome.words;
    failures.push_back({"USB devices", {}, words, {}, true});
    return Wire::array();
}

std::vector<Selected> select_by_serial(const Wire &interfaces, const std::string &serial) {
    std::vector<Selected> selected;
    for (const Wire &interface : interfaces) {
        const Wire &devices = interface.at("devices");
        if (begins(interface, serial)) {
            selected.push_back({interface, {devices.begin(), devices.end()}});
            continue;
        }
        for (const Wire &device : devices) {
            if (begins(device, serial)) selected.push_back({interface, {device}});
        }
    }
    return selected;
}

int refuse_candidates(const std::string &serial, const std::vector<Selected> &candidates) {
    complain("'" + serial + "' fits " + std::to_string(candidates.size()) +
             " devices; the serial number must be the beginning of one alone:");
    for (const Selected &candidate : candidates) {
        const Wire &shown_record =
            begins(candidate.interface, serial) ? candidate.interface : candidate.devices.front();
        std::fprintf(stderr, "  %s  %s  %s\n", shown(candidate.interface, "name").c_str(),
                     shown(shown_record, "serial").c_str(), shown(shown_record, "model").c_str());
    }
    return kFailed;
}

bool select_one(const std::string &serial, std::chrono::milliseconds limit, Selected &selected) {
    std::vector<Failure> failures;
    std::vector<Selected> candidates = select_by_serial(find_interfaces(limit, failures), serial);
    tell(failures);
    if (candidates.size() == 1) {
        selected = std::move(candidates.front());
        return true;
    }
    if (candidates.size() > 1) refuse_candidates(serial, candidates);
    if (candidates.empty() && failures.empty()) {
        complain("no USB storage has a serial number that begins with '" + serial + "': 'torvane usb' lists them");
    }
    return false;
}

} // namespace tool
