#include "inventory/raid/locate.h"

#include "inventory/raid/tools.h"
#include "inventory/reading/command.h"

#include <filesystem>
#include <vector>

namespace inventory {
namespace {

using Words = std::vector<std::string>;

// The place of a drive as its tool names it.
struct Place {
    std::string controller;
    std::string enclosure; // "" when there is none
    std::string slot;
};

Words storcli(const Place &place, bool on) {
    const std::string enclosure = place.enclosure.empty() ? "" : "/e" + place.enclosure;
    return {"/c" + place.controller + enclosure + "/s" + place.slot, on ? "start" : "stop", "locate"};
}

Words megacli(const Place &place, bool on) {
    return {"-PdLocate", on ? "-start" : "-stop", "-physdrv[" + place.enclosure + ":" + place.slot + "]",
            "-a" + place.controller, "-NoLog"};
}

Words ssacli(const Place &place, bool on) {
    const std::string drive = place.enclosure + ":" + place.slot;
    return {"ctrl", "slot=" + place.controller, "pd", drive, "modify", on ? "led=on" : "led=off"};
}

Words sasircu(const Place &place, bool on) {
    return {place.controller, "LOCATE", place.enclosure + ":" + place.slot, on ? "ON" : "OFF"};
}

struct Language {
    const raid::Tool *tool;
    Words (*words)(const Place &place, bool on);
};
const Language kLanguages[] = {
    {&raid::kStorcli2, storcli}, {&raid::kPerccli2, storcli}, {&raid::kStorcli, storcli},  {&raid::kPerccli, storcli},
    {&raid::kMegacli, megacli},  {&raid::kSsacli, ssacli},    {&raid::kSas3ircu, sasircu}, {&raid::kSas2ircu, sasircu},
};

std::string path_of(const raid::Tool &tool, const std::string &binary) {
    for (const std::string &path : raid::binaries_of(tool)) {
        if (std::filesystem::path(path).filename() == binary) return path;
    }
    return {};
}

std::string number_of(const Thing &thing) {
    const auto number = thing.number("number");
    return number ? std::to_string(*number) : thing.text("number");
}

std::string first_words(const CommandResult &result) {
    for (const std::string &text : {result.output, result.errors}) {
        const std::size_t begin = text.find_first_not_of(" \r\n");
        if (begin != std::string::npos) return text.substr(begin, text.find_first_of("\r\n", begin) - begin);
    }
    return "exit status " + std::to_string(result.status);
}

std::string run(const std::string &path, const Words &words, std::chrono::milliseconds limit) {
    const ToolLock lock(limit);
    if (!lock.trouble().empty()) return lock.trouble();
    Words command{path};
    command.insert(command.end(), words.begin(), words.end());
    CommandLimits limits;
    limits.time = limit;
    const CommandResult result = run_command(command, limits);
    if (!result.trouble.empty()) return result.trouble;
    return result.status == 0 ? "" : first_words(result);
}

} // namespace

std::string set_locate_by_tool(const Thing &drive, bool on, std::chrono::milliseconds limit) {
    const std::vector<Thing *> controllers = drive.related(RelationKind::kBehind);
    const std::string binary = drive.text("tool");
    if (controllers.empty() || binary.empty()) return "no tool tells about it";
    const Place place{number_of(*controllers.front()), drive.text("enclosure"), drive.text("bay")};
    if (place.slot.empty()) return binary + " does not tell its slot";
    for (const Language &language : kLanguages) {
        const std::string path = path_of(*language.tool, binary);
        if (!path.empty()) return run(path, language.words(place, on), limit);
    }
    return "how " + binary + " switches lights is not known here";
}

} // namespace inventory
