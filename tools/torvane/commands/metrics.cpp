// torvane metrics: the machine's drives as OpenMetrics text, for a collector of text files.
#include "output/metrics.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "inventory/raid/health.h"
#include "output/messages.h"
#include "output/new_file.h"
#include "output/text.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

namespace tool {
namespace {

using inventory::Machine;
using inventory::Thing;
using inventory::ThingKind;

struct MetricsOptions {
    double timeout = kDefaultSeconds;
    bool defects = false;
    std::string file;
};

constexpr unsigned kMeasuredDrives =
    inventory::bit(ThingKind::kDrive) | inventory::bit(ThingKind::kOptical) | inventory::bit(ThingKind::kMember);
constexpr unsigned kMeasuredArrays =
    inventory::bit(ThingKind::kArray) | inventory::bit(ThingKind::kLogical) | inventory::bit(ThingKind::kController);

// What stays the same when names change from boot to boot.
Labels labels_of(const Thing &thing) {
    return {{"device", name_of(thing)}, {"serial", thing.text("serial")}, {"wwn", thing.text("wwn")}};
}

template <class Use> void for_each(const Machine &machine, unsigned kinds, Use use) {
    for (const Thing &thing : machine.things()) {
        if ((inventory::bit(thing.kind()) & kinds) != 0) use(thing);
    }
}

void add_numbers(Metrics &metrics, const Machine &machine, const char *name, const char *key, const char *help,
                 const char *unit = "") {
    metrics.family(name, "gauge", help, unit);
    for_each(machine, kMeasuredDrives, [&](const Thing &thing) {
        const auto number = thing.number(key);
        if (number) metrics.sample(labels_of(thing), static_cast<double>(*number));
    });
}

void add_drives(Metrics &metrics, const Machine &machine, bool defects) {
    metrics.family("torvane_drive", "info", "What each drive is and where it sits.");
    for_each(machine, kMeasuredDrives, [&](const Thing &thing) {
        Labels labels = labels_of(thing);
        for (const char *key : {"type", "model", "firmware", "tran", "media", "enclosure", "bay"}) {
            labels.emplace_back(key, thing.text(key));
        }
        metrics.info(labels);
    });
    add_numbers(metrics, machine, "torvane_drive_size_bytes", "size", "Size of the drive.", "bytes");
    if (defects) {
        add_numbers(metrics, machine, "torvane_drive_manufacturer_defects", "manufacturer_defects",
                    "Entries of the manufacturer's defect list.");
        add_numbers(metrics, machine, "torvane_drive_grown_defects", "grown_defects",
                    "Entries of the grown defect list.");
    }
    add_numbers(metrics, machine, "torvane_drive_media_errors", "media_errors",
                "Errors of the medium, as a RAID tool tells.");
    metrics.family("torvane_drive_unanswered", "gauge", "1 when something of the drive could not be read.");
    for_each(machine, kMeasuredDrives, [&](const Thing &thing) {
        const auto *failed = std::get_if<std::vector<std::string>>(&thing.value("failed"));
        metrics.sample(labels_of(thing), failed != nullptr && !failed->empty() ? 1 : 0);
    });
    metrics.family("torvane_drive_duplicate_serial", "gauge", "1 when another drive has the same serial number.");
    for_each(machine, kMeasuredDrives,
             [&](const Thing &thing) { metrics.sample(labels_of(thing), thing.flag("duplicate_serial") ? 1 : 0); });
}

void add_arrays(Metrics &metrics, const Machine &machine) {
    metrics.family("torvane_raid", "info", "RAID controllers, logical drives and md arrays.");
    for_each(machine, kMeasuredArrays, [&](const Thing &thing) {
        Labels labels{{"device", name_of(thing)}};
        for (const char *key : {"type", "level", "state", "model", "serial"}) labels.emplace_back(key, thing.text(key));
        metrics.info(labels);
    });
    metrics.family("torvane_raid_problem", "gauge", "Problems of RAID arrays, controllers and their drives.");
    for (const inventory::Problem &problem : inventory::problems_of(machine)) {
        Labels labels{{"device", name_of(*problem.thing)}, {"problem", problem.kind}, {"id", problem.thing->id()}};
        metrics.sample(labels, 1);
    }
}

int write(const MetricsOptions &options, const std::string &text) {
    if (options.file.empty()) {
        std::fputs(text.c_str(), stdout);
        return kDone;
    }
    if (NewFile(options.file).keep(text.data(), text.size(), true)) return kDone;
    complain(options.file + ": cannot be written: " + std::strerror(errno));
    return kFailed;
}

int run(const MetricsOptions &options) {
    const auto begin = std::chrono::steady_clock::now();
    inventory::Request request;
    request.ask_drives = true;
    request.raid = true;
    request.defects = options.defects;
    request.limit = to_limit(options.timeout);
    const Machine machine = inventory::survey(request);
    Metrics metrics;
    add_drives(metrics, machine, options.defects);
    add_arrays(metrics, machine);
    metrics.family("torvane_scan_seconds", "gauge", "Time that reading all of this took.", "seconds");
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    metrics.sample({}, taken.count());
    const int status = write(options, metrics.text());
    const Troubles troubles = told_troubles(machine, {});
    tell(troubles);
    return status == kDone ? exit_code(troubles, true) : status;
}

} // namespace

void add_metrics_command(const Command &tool) {
    const auto options = std::make_shared<MetricsOptions>();
    tool.add("metrics", "Print OpenMetrics text for monitoring.", [options] { return run(*options); })
        .option("-o,--output", options->file, "FILE", "write this file, whole or not at all")
        .flag("--defects", options->defects, "read the defect lists too")
        .timeout(options->timeout);
}

} // namespace tool
