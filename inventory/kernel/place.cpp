#include "inventory/kernel/place.h"

#include <algorithm>
#include <cctype>

namespace inventory {
namespace {

// '#' stands for one or more decimal digits, '%' for hexadecimal ones, '*' for whatever follows; all else for itself.
bool fits(std::string_view text, std::string_view pattern) {
    const auto is_of = [](char kind, char c) {
        const auto value = static_cast<unsigned char>(c);
        return kind == '#' ? std::isdigit(value) != 0 : std::isxdigit(value) != 0;
    };
    for (const char wanted : pattern) {
        if (wanted == '*') return true;
        if (wanted != '#' && wanted != '%') {
            if (text.empty() || text.front() != wanted) return false;
            text.remove_prefix(1);
            continue;
        }
        const auto end = std::find_if_not(text.begin(), text.end(), [&](char c) { return is_of(wanted, c); });
        if (end == text.begin()) return false;
        text.remove_prefix(static_cast<std::size_t>(end - text.begin()));
    }
    return text.empty();
}

struct PartRule {
    std::string_view pattern;
    std::string Place::*part;
};

// The first that fits decides.
constexpr PartRule kRules[] = {
    {"%:%:%.%", &Place::pci},          {"ata#", &Place::ata_port},           {"host#", &Place::scsi_host},
    {"#:#:#:#", &Place::scsi_address}, {"end_device-*", &Place::sas_device}, {"rport-*", &Place::remote_port},
    {"session#", &Place::session},     {"mmc#", &Place::mmc_host},
};

// "1-2:1.0", "3-1.4.2:1.1"
bool is_usb_interface(std::string_view part) {
    if (std::isdigit(static_cast<unsigned char>(part.front())) == 0) return false; // most
    const std::size_t colon = part.find(':');
    if (colon == std::string_view::npos || !fits(part.substr(colon), ":#.#")) return false;
    return fits(part.substr(0, colon), "#-#*");
}

void take_part(Place &place, std::string_view part) {
    if (is_usb_interface(part)) {
        place.usb_interface = part;
        place.usb_port = part.substr(0, part.find(':'));
        return;
    }
    for (const PartRule &rule : kRules) {
        const char first = rule.pattern.front();
        const bool is_literal = first != '#' && first != '%';
        if (is_literal && part.front() != first) continue; // most
        if (!fits(part, rule.pattern)) continue;
        place.*rule.part = part; // the one nearest to the device stays
        return;
    }
}

} // namespace

Place place_of(std::string_view path) {
    Place place;
    place.virtual_device = path.find("/devices/virtual/") != std::string_view::npos;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        if (slash == std::string_view::npos) break; // the device's own folder
        path.remove_prefix(slash + 1);
        if (part.empty()) continue;
        place.parent = part;
        take_part(place, part);
    }
    return place;
}

} // namespace inventory
