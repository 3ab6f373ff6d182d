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

// WWN and serial together: neither is beyond doubt alone.
std::string identity_of(const Json &drive) {
    const std::string wwn = text_of(drive, "wwn");
    const std::string serial = text_of(drive, "serial");
    return wwn.empty() && serial.empty() ? "name " + text_of(drive, "name") : wwn + "\n" + serial;
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

// Several paths lead to one drive: each is compared with its like.
using Drives = std::multimap<std::string, const Json *>;

Drives by_identity(const Json &document) {
    Drives drives;
    for (const Json &drive : document.at("drives")) drives.emplace(identity_of(drive), &drive);
    return drives;
}

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
        const bool both_tell = before.contains(compared.key) && after.contains(compared.key);
        const std::string old = text_of(before, compared.key);
        const std::string now = text_of(after, compared.key);
        if (!both_tell || old == now) continue;
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
        if (found == old.end() || found->second.contains(text_of(drive, "serial"))) continue;
        Difference difference = about("changed", drive);
        difference.fact = "serial of bay " + found->first;
        difference.before = *found->second.begin();
        difference.after = text_of(drive, "serial");
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
    Drives old = by_identity(before);
    for (const Json &drive : after.at("drives")) {
        const auto found = old.find(identity_of(drive));
        if (found == old.end()) {
            differences.push_back(about("new", drive));
            continue;
        }
        compare_drive(*found->second, drive, differences);
        old.erase(found);
    }
    for (const auto &[identity, drive] : old) differences.push_back(about("missing", *drive));
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
