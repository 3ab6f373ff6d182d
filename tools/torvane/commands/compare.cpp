#include "commands/compare.h"

#include "output/messages.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <istream>
#include <map>
#include <set>

namespace tool {
namespace {

struct Compared {
    const char *key;
    const char *kind;
};
// Where a drive sits, and what it is.
constexpr Compared kCompared[] = {{"enclosure", "moved"}, {"bay", "moved"},        {"port", "moved"},
                                  {"location", "moved"},  {"firmware", "changed"}, {"size", "changed"},
                                  {"model", "changed"}};

std::string text_of(const Json &drive, const char *key) {
    const auto found = drive.find(key);
    if (found == drive.end() || found->is_null()) return {};
    return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string bay_of(const Json &drive) {
    const std::string bay = text_of(drive, "bay");
    return bay.empty() ? "" : text_of(drive, "enclosure") + "/" + bay;
}

// Of a value that is nested deeper than any listing's nothing is kept: printing it would nest as many calls.
Json parse(std::istream &stream) {
    constexpr int kDeepest = 100;
    bool is_too_deep = false;
    Json document = Json::parse(
        stream,
        [&is_too_deep](int depth, Json::parse_event_t /*event*/, Json & /*parsed*/) {
            is_too_deep = is_too_deep || depth > kDeepest;
            return depth <= kDeepest;
        },
        false);
    return is_too_deep ? Json() : document;
}

bool is_listing(const Json &document) {
    if (!document.is_object()) return false;
    const auto version = document.find("schema_version");
    const auto drives = document.find("drives");
    if (version == document.end() || drives == document.end() || *version != kSchemaVersion) return false;
    return drives->is_array() &&
           std::all_of(drives->begin(), drives->end(), [](const Json &drive) { return drive.is_object(); });
}

// A column that one of the listings was made without tells nothing of a drive.
bool can_be_told(const Json &one, const Json &other, const char *key) {
    return one.contains(key) && other.contains(key);
}

// WWN and serial number together: neither is beyond doubt alone. What only one of the listings has, because the other
// was made without that column or the drive did not answer, speaks neither for nor against it.
bool is_same(const Json &one, const Json &other) {
    bool is_told = false;
    bool can_tell = false;
    for (const char *key : {"wwn", "serial"}) {
        const std::string a = text_of(one, key);
        const std::string b = text_of(other, key);
        if (!a.empty() && !b.empty() && a != b) return false;
        is_told = is_told || (!a.empty() && a == b);
        can_tell = can_tell || (a != b && can_be_told(one, other, key));
    }
    return is_told || (!can_tell && text_of(one, "name") == text_of(other, "name"));
}

// The drives of the older listing that have not been found again yet.
class Older {
  public:
    explicit Older(const Json &document) {
        for (const Json &drive : document.at("drives")) {
            left_.insert(&drive);
            for (const char *key : kKeys) places_[key].emplace(text_of(drive, key), &drive);
        }
    }

    // Null for a new one.
    const Json *take(const Json &drive) {
        for (const char *key : kKeys) {
            const std::vector<const Json *> same = those_like(drive, key);
            if (same.empty()) continue;
            const auto named = std::find_if(same.begin(), same.end(), [&drive](const Json *other) {
                return text_of(*other, "name") == text_of(drive, "name");
            });
            // Several paths lead to one drive: each is compared with its like.
            const Json *found = named != same.end() ? *named : same.front();
            left_.erase(found);
            return found;
        }
        return take_equal(drive);
    }

    [[nodiscard]] bool is_left(const Json &drive) const { return left_.contains(&drive); }

  private:
    static constexpr const char *kKeys[] = {"wwn", "serial", "name"};

    // Of drives that nothing names, the one that all the same is said of.
    const Json *take_equal(const Json &drive) {
        const auto equal =
            std::find_if(left_.begin(), left_.end(), [&drive](const Json *other) { return *other == drive; });
        if (equal == left_.end()) return nullptr;
        const Json *found = *equal;
        left_.erase(equal);
        return found;
    }

    std::vector<const Json *> those_like(const Json &drive, const char *key) {
        std::vector<const Json *> same;
        const std::string text = text_of(drive, key);
        const auto [begin, end] = places_[key].equal_range(text);
        for (auto place = begin; place != end && !text.empty(); ++place) {
            if (left_.contains(place->second) && is_same(*place->second, drive)) same.push_back(place->second);
        }
        return same;
    }

    std::set<const Json *> left_;
    std::map<std::string, std::multimap<std::string, const Json *>> places_;
};

Difference about(const char *kind, const Json &drive) {
    Difference difference;
    difference.kind = kind;
    difference.name = text_of(drive, "name");
    difference.serial = text_of(drive, "serial");
    difference.wwn = text_of(drive, "wwn");
    return difference;
}

void compare_drive(const Json &before, const Json &after, std::vector<Difference> &differences) {
    for (const Compared &compared : kCompared) {
        const std::string old = text_of(before, compared.key);
        const std::string now = text_of(after, compared.key);
        if (!can_be_told(before, after, compared.key) || old == now) continue;
        // A drive that did not answer has not become another one; one that sits nowhere any more has moved.
        const bool is_place = compared.kind == std::string_view("moved");
        if (!is_place && (old.empty() || now.empty())) continue;
        Difference difference = about(compared.kind, after);
        difference.fact = compared.key;
        difference.before = old;
        difference.after = now;
        differences.push_back(std::move(difference));
    }
}

// The drives of each bay by their serial numbers: controllers count their bays alike, and several paths lead to a drive.
std::map<std::string, std::set<std::string>> by_bay(const Json &document) {
    std::map<std::string, std::set<std::string>> bays;
    for (const Json &drive : document.at("drives")) bays[bay_of(drive)].insert(text_of(drive, "serial"));
    bays.erase("");
    return bays;
}

void compare_bays(const Json &before, const Json &after, std::vector<Difference> &differences) {
    const auto old = by_bay(before);
    for (const Json &drive : after.at("drives")) {
        const auto found = old.find(bay_of(drive));
        const std::string serial = text_of(drive, "serial");
        // One that does not tell it is told about as a drive, if it is another one.
        if (serial.empty() || found == old.end() || found->second.contains("") || found->second.contains(serial))
            continue;
        Difference difference = about("changed", drive);
        difference.fact = "serial of bay " + found->first;
        difference.before = *found->second.begin();
        difference.after = serial;
        differences.push_back(std::move(difference));
    }
}

} // namespace

Json listing_in(std::istream &stream, const std::string &file) {
    Json document = parse(stream);
    if (!is_listing(document)) throw WrongUsage(file + ": not what 'torvane list --json' prints");
    return document;
}

std::vector<Difference> compare(const Json &before, const Json &after) {
    std::vector<Difference> differences;
    Older old(before);
    for (const Json &drive : after.at("drives")) {
        const Json *same = old.take(drive);
        if (same == nullptr) {
            differences.push_back(about("new", drive));
        } else {
            compare_drive(*same, drive, differences);
        }
    }
    for (const Json &drive : before.at("drives")) {
        if (old.is_left(drive)) differences.push_back(about("missing", drive));
    }
    compare_bays(before, after, differences);
    return differences;
}

std::string sentence_of(const Difference &difference) {
    std::string text = difference.name.empty() ? "(no name)" : difference.name;
    if (!difference.serial.empty()) text += " (" + difference.serial + ")";
    text += ": " + difference.kind;
    if (difference.fact.empty()) return text;
    const auto shown = [](const std::string &value) { return value.empty() ? std::string("nothing") : value; };
    return text + ": " + difference.fact + " " + shown(difference.before) + " -> " + shown(difference.after);
}

Json to_json(const Difference &difference) {
    Json json = {{"difference", difference.kind},
                 {"name", difference.name},
                 {"serial", difference.serial},
                 {"wwn", difference.wwn}};
    if (difference.fact.empty()) return json;
    json["fact"] = difference.fact;
    json["before"] = difference.before;
    json["after"] = difference.after;
    return json;
}

} // namespace tool
