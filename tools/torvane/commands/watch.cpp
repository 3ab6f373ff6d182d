// torvane watch: devices that are plugged, pulled and changed; with --files, what happens in a directory.
#include "commands/commands.h"
#include "commands/ending.h"
#include "commands/watch_files.h"
#include "inventory/kernel/events.h"
#include "inventory/survey/survey.h"
#include "output/messages.h"
#include "output/table.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <poll.h>

#include <array>
#include <iterator>
#include <limits>
#include <map>
#include <memory>

namespace tool {
namespace {

using inventory::Thing;

struct WatchOptions {
    bool json = false;
    bool initial = false;
    std::string directory;
};

constexpr std::array<const char *, 5> kShown{"type", "model", "serial", "wwn", "size"};

// By name and the kernel's running number of disks (0: not known). A drive that is gone tells nothing any more: what it
// told before is kept, even when another one has its name before its end is told.
using Known = std::map<std::pair<std::string, std::uint64_t>, Json>;

std::uint64_t disk_number(const Thing &thing) {
    const std::vector<Thing *> whole = thing.related(inventory::RelationKind::kPartOf);
    return (whole.empty() ? thing : *whole.front()).number("diskseq").value_or(0);
}

// A medium that is changed takes the next number: the latest up to the event's is the one.
Known::const_iterator find(const Known &known, const inventory::DeviceEvent &event) {
    constexpr std::uint64_t kLatest = std::numeric_limits<std::uint64_t>::max();
    const auto next = known.upper_bound({event.name, event.diskseq.value_or(kLatest)});
    if (next == known.begin() || std::prev(next)->first.first != event.name) return known.end();
    return std::prev(next);
}

Json facts_of(const Thing &thing) {
    Json facts = {{"name", thing.id()}};
    for (const char *key : kShown) facts[key] = to_json(*inventory::find_fact(key), thing.value(key), {});
    return facts;
}

Known look() {
    Known known;
    inventory::Request request;
    request.all = true;
    const inventory::Machine machine = inventory::survey(request);
    for (const Thing &thing : machine.things()) {
        if (!thing.text("path").empty()) known[{thing.id(), disk_number(thing)}] = facts_of(thing);
    }
    return known;
}

void print_event(const char *event, const Json &facts, bool json) {
    if (json) {
        Json line = {{"event", event}};
        line.update(facts);
        print_json_line(line, stdout);
    } else {
        std::string text;
        for (const char *key : kShown) {
            const Json &value = facts.at(key);
            if (value.is_null()) continue;
            text += "  " + (value.is_string() ? value.get<std::string>() : human_size(value.get<std::uint64_t>()));
        }
        std::printf("%-8s %s%s\n", event, printable(facts.at("name").get<std::string>()).c_str(),
                    printable(text).c_str());
    }
    std::fflush(stdout);
}

// One event, with what is known of the device before and after it.
void tell_event(const inventory::DeviceEvent &event, const Known &before, const Known &now, bool json) {
    const auto old = find(before, event);
    const auto found = find(now, event);
    if (event.action == "remove") {
        if (old != before.end()) print_event("removed", old->second, json);
    } else if (found != now.end()) {
        const char *word = event.action == "add" ? "added" : "changed";
        print_event(word, found->second, json);
    }
}

int watch_devices(const WatchOptions &options) {
    const Ending ending;
    // Listening begins before the first look, so that nothing is missed between the two.
    const std::unique_ptr<inventory::DeviceEvents> events = inventory::DeviceEvents::listen();
    if (!events || ending.descriptor() < 0) {
        complain("the device manager's events cannot be listened to");
        return kFailed;
    }
    Known known = look();
    if (options.initial) {
        for (const auto &[key, facts] : known) print_event("present", facts, options.json);
    }
    while (true) {
        std::array<pollfd, 2> polled{{{ending.descriptor(), POLLIN, 0}, {events->descriptor(), POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) return kFailed;
        if (polled[0].revents != 0) return kDone;
        std::vector<inventory::DeviceEvent> batch;
        while (std::optional<inventory::DeviceEvent> event = events->next()) batch.push_back(std::move(*event));
        if (batch.empty()) continue;
        Known now = look();
        for (const inventory::DeviceEvent &event : batch) {
            // A stick pulled right after it came is in neither look.
            if (event.action == "add" && find(now, event) == now.end()) continue;
            tell_event(event, known, now, options.json);
        }
        for (const inventory::DeviceEvent &event : batch) {
            const auto gone = event.action == "remove" ? find(known, event) : known.end();
            if (gone != known.end()) known.erase(known.lower_bound({event.name, 0}), std::next(gone));
        }
        // A change is told at times when the device is gone already: what was known is kept for the event that says so.
        now.merge(known);
        known = std::move(now);
    }
}

int run(const WatchOptions &options) {
    if (options.directory.empty()) return watch_devices(options);
    if (options.initial) throw WrongUsage("--initial is of devices, not of --files");
    return watch_files(options.directory, options.json);
}

} // namespace

void add_watch_command(const Command &tool) {
    const auto options = std::make_shared<WatchOptions>();
    tool.add("watch", "Tell which devices come, go and change, until interrupted.", [options] { return run(*options); })
        .option("--files", options->directory, "DIRECTORY", "tell what happens to files there and below")
        .flag("--initial", options->initial, "first list the devices that are there")
        .flag("-J,--json", options->json, "print each event as a line of JSON");
}

} // namespace tool
