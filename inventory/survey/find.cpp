#include "inventory/survey/find.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>

namespace inventory {
namespace {

using Things = std::vector<Thing *>;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Printed labels and tools differ in case, blanks, dashes and underscores.
std::string bare(const std::string &text) {
    std::string kept;
    for (const char c : lower(text)) {
        if (c != ' ' && c != '-' && c != '_') kept += c;
    }
    return kept;
}

// Digits of a WWN however it is written: 0x5000c500a1b2c3d4, naa.5000..., 50:00:c5:...
std::string wwn_digits(const std::string &text) {
    std::string digits = lower(text);
    for (const std::string_view prefix : {"wwn-", "0x", "naa.", "eui.", "uuid.", "nvme."}) {
        if (digits.starts_with(prefix)) digits.erase(0, prefix.size());
    }
    std::erase_if(digits, [](char c) { return c == ':' || c == '-'; });
    return digits;
}

template <class Test> Things those(Machine &machine, Test test) {
    Things found;
    for (Thing &thing : machine.things()) {
        if (test(thing)) found.push_back(&thing);
    }
    return found;
}

bool has_word(const Thing &thing, const char *key, const std::string &text) {
    const auto *words = std::get_if<std::vector<std::string>>(&thing.value(key));
    return words != nullptr && std::find(words->begin(), words->end(), text) != words->end();
}

// Any node or link to one. Nothing is opened.
Things by_path(Machine &machine, const std::string &text) {
    struct stat about = {};
    if (!text.starts_with("/") || stat(text.c_str(), &about) != 0) return {};
    const std::string numbers = std::to_string(major(about.st_rdev)) + ":" + std::to_string(minor(about.st_rdev));
    if (S_ISBLK(about.st_mode)) {
        return those(machine, [&](const Thing &thing) { return thing.text("maj_min") == numbers; });
    }
    return {};
}

Things by_name(Machine &machine, const std::string &text) {
    Things found = those(machine, [&](const Thing &thing) {
        if (thing.id() == text) return true;
        for (const char *key : {"name", "path", "generic", "dm_name", "maj_min", "hctl"}) {
            if (thing.text(key) == text) return true;
        }
        return "/dev/" + thing.id() == text;
    });
    if (found.empty()) found = by_path(machine, text);
    // Without a device manager the links may be missing, or be those of another machine's list.
    const std::string link = text.substr(text.rfind('/') + 1);
    if (found.empty()) {
        found = those(machine, [&](const Thing &thing) {
            return has_word(thing, "by_id", link) || has_word(thing, "by_path", link);
        });
    }
    return found;
}

bool is_in_bay(const Thing &thing, const std::string &text) {
    const std::string enclosure = thing.text("enclosure");
    const std::string bay = thing.text("bay");
    if (enclosure.empty() || bay.empty()) return false;
    return text == enclosure + "/" + bay || text == enclosure + ":" + bay;
}

Things by_whole_text(Machine &machine, const std::string &text) {
    return those(machine, [&](const Thing &thing) {
        for (const char *key : {"serial", "fs_label", "part_label", "label"}) {
            if (thing.text(key) == text) return true;
        }
        for (const char *key : {"uuid", "part_uuid", "pt_uuid"}) {
            if (!text.empty() && lower(thing.text(key)) == lower(text)) return true;
        }
        const std::string wwn = thing.text("wwn");
        return is_in_bay(thing, text) || (!wwn.empty() && wwn_digits(wwn) == wwn_digits(text));
    });
}

bool has_serial_like(const Thing &thing, const std::string &text) {
    // A tool may have cut what the label says, but a few characters fit too much.
    constexpr std::size_t kTelling = 8;
    const std::string serial = bare(thing.text("serial"));
    const std::string wanted = bare(text);
    if (serial.empty() || wanted.empty()) return false;
    return serial.starts_with(wanted) || (serial.size() >= kTelling && wanted.starts_with(serial));
}

// Behind a maker's prefix ("WD-WCC4E1234567") is what the label shows.
bool has_serial_behind_prefix(const Thing &thing, const std::string &text) {
    const std::string serial = thing.text("serial");
    const std::string wanted = bare(text);
    const std::size_t dash = serial.find('-');
    return dash != std::string::npos && !wanted.empty() && bare(serial.substr(dash + 1)).starts_with(wanted);
}

Things by_beginning(Machine &machine, const std::string &text) {
    const std::string digits = wwn_digits(text);
    return those(machine, [&](const Thing &thing) {
        constexpr std::size_t kTelling = 6; // digits: fewer are a maker's, not a drive's
        const std::string wwn = thing.text("wwn");
        const bool has_wwn = digits.size() >= kTelling && !wwn.empty() && wwn_digits(wwn).starts_with(digits);
        return has_wwn || has_serial_like(thing, text) || has_serial_behind_prefix(thing, text);
    });
}

Things by_model(Machine &machine, const std::string &text) {
    constexpr std::size_t kTelling = 3; // a letter or two stand in many models
    const auto is_of = [&](bool whole) {
        return those(machine, [&](const Thing &thing) {
            const std::string model = bare(thing.text("model"));
            const std::string both = bare(thing.text("vendor")) + model;
            const std::string wanted = bare(text);
            if (model.empty() || wanted.empty()) return false;
            if (whole) return model == wanted || both == wanted;
            return wanted.size() >= kTelling && both.find(wanted) != std::string::npos;
        });
    };
    Things found = is_of(true);
    return found.empty() ? is_of(false) : found;
}

bool contains(const Things &things, const Thing *thing) {
    return std::find(things.begin(), things.end(), thing) != things.end();
}

// What stands for a thing among the found: its first path, the kernel's device of it.
bool has_better(const Things &things, const Thing &thing) {
    for (const RelationKind kind : {RelationKind::kPathOf, RelationKind::kKnownAs}) {
        for (const Thing *other : thing.related(kind)) {
            if (contains(things, other)) return true;
        }
    }
    const bool is_container = thing.kind() == ThingKind::kUsbInterface || thing.kind() == ThingKind::kBay;
    if (!is_container) return false;
    const auto holds = [&](RelationKind kind) {
        const Things inside = thing.related_to(kind);
        return std::any_of(inside.begin(), inside.end(), [&](const Thing *one) { return contains(things, one); });
    };
    return holds(RelationKind::kOnUsb) || holds(RelationKind::kInBay);
}

Things without_doubles(const Things &things) {
    Things kept;
    std::copy_if(things.begin(), things.end(), std::back_inserter(kept),
                 [&](const Thing *thing) { return !has_better(things, *thing); });
    return kept;
}

// A bay's name means the drive in it.
Things drives_in_bays(const Things &things) {
    Things found;
    for (Thing *thing : things) {
        const Things inside = thing->kind() == ThingKind::kBay ? thing->related_to(RelationKind::kInBay) : Things();
        if (inside.empty()) found.push_back(thing);
        found.insert(found.end(), inside.begin(), inside.end());
    }
    return without_doubles(found);
}

} // namespace

std::vector<Thing *> find_things(Machine &machine, const std::string &text) {
    if (text.empty()) return {};
    const Things named = by_name(machine, text);
    if (!named.empty()) return drives_in_bays(named);
    // A path that is none of this machine's is no beginning of a serial number either.
    if (text.starts_with("/")) return {};
    for (const auto find : {by_whole_text, by_beginning, by_model}) {
        const Things found = find(machine, text);
        if (!found.empty()) return without_doubles(found);
    }
    return {};
}

} // namespace inventory
