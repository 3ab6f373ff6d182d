// torvane list: the machine's drives as a table, a tree or for programs.
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "commands/trees.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

namespace tool {
namespace {

using inventory::Machine;
using inventory::Thing;
using inventory::ThingKind;

struct ListOptions {
    ListingOptions output;
    bool defects = false;
    bool state = false;
    bool raid = false;
    bool usb = false;
    bool all = false;
    bool no_partitions = false;
    double timeout = kDefaultSeconds;
    std::vector<std::string> devices;
};

// A flag that asks for more brings its columns with it.
struct Extra {
    bool ListOptions::*flag;
    std::vector<const char *> columns;
};

const std::vector<Extra> &extras() {
    static const std::vector<Extra> list = {
        {&ListOptions::defects, {"MDEFECTS", "GDEFECTS"}},
        {&ListOptions::state, {"PERMISSION"}},
        {&ListOptions::raid, {"LOCATION", "RAID-DEVICE"}},
        {&ListOptions::usb, {"STATUS"}},
    };
    return list;
}

ListingKind kind_of(const ListOptions &options) {
    ListingKind kind{
        "drives", kListedKinds, {"NAME", "TYPE", "MODEL", "SERIAL", "SIZE", "SECTOR", "RPM", "TRAN", "USED-BY"}};
    for (const Extra &extra : extras()) {
        if (options.*extra.flag) kind.usual.insert(kind.usual.end(), extra.columns.begin(), extra.columns.end());
    }
    return kind;
}

inventory::Request request_for(const ListOptions &options, const Listing &listing, std::vector<std::string> only) {
    inventory::Request request = look_for(listing);
    request.all = request.all || options.all;
    request.defects = request.defects || options.defects;
    request.state = request.state || options.state;
    request.ask_drives = request.ask_drives || request.defects || request.state;
    // All columns means all that is read from drives; the RAID tools run only when somebody asks for them.
    request.raid = options.raid || (request.raid && !options.output.all_columns);
    request.only = std::move(only);
    request.limit = to_limit(options.timeout);
    return request;
}

// Devices that were named; names that only the RAID tools give are looked up when they have run.
std::vector<Node> named_nodes(const Machine &machine, const std::vector<std::string> &names,
                              const ListOptions &options) {
    std::vector<Node> nodes;
    for (const std::string &name : names) {
        const Thing *thing = machine.find(name);
        if (thing != nullptr) nodes.push_back(list_node(*thing, !options.no_partitions, options.output.wants_tree()));
    }
    return nodes;
}

bool has_failed(const Thing &thing) {
    return std::any_of(thing.troubles.begin(), thing.troubles.end(), [](const Trouble &t) { return t.essential; });
}

// Who asked for a column that costs commands is told why it is empty; who asked for all columns is not.
Troubles empty_cells(const Machine &machine, const Listing &listing, const ListOptions &options) {
    Troubles troubles;
    if (options.output.all_columns || options.output.is_json()) return troubles;
    for (const Column *column : listing.columns()) {
        if (!is_costly(*column)) continue;
        for (const Thing &thing : machine.things()) {
            const bool is_shown = !thing.text("path").empty() && listing.keeps(thing);
            if (!is_shown || thing.kind() != ThingKind::kDrive) continue;
            const Cell cell = cell_of(thing, *column);
            if (inventory::is_missing(cell.value) && !cell.reason.empty() && !has_failed(thing)) {
                troubles.push_back({thing.text("path"), column->heading, cell.reason, {}, false});
            }
        }
    }
    return troubles;
}

int run(const ListOptions &options) {
    if (options.output.list_columns) {
        print_columns(options.output, kListedKinds, stdout);
        return kDone;
    }
    const Listing listing(options.output, kind_of(options));
    Troubles troubles;
    std::vector<std::string> names;
    for (const std::string &device : options.devices) {
        if (options.raid && !names_a_file(device)) {
            names.push_back(device);
            continue;
        }
        const std::string name = kernel_name_of(device, troubles);
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    const bool is_named = !options.devices.empty();
    if (is_named && names.empty()) {
        tell(troubles);
        return kFailed;
    }
    inventory::Request request = request_for(options, listing, names);
    request.all = request.all || is_named;
    // The process ends behind it, which frees thousands of drives faster than they are taken apart.
    static Machine &machine = *new Machine(inventory::survey(request));
    mark_members(machine);
    const bool has_tree = options.output.wants_tree();
    std::vector<Node> nodes = is_named ? named_nodes(machine, names, options)
                                       : list_nodes(machine, {!options.no_partitions, has_tree, options.usb});
    const bool any = !nodes.empty();
    const bool shown = listing.print(std::move(nodes), stdout);
    for (Trouble &trouble : told_troubles(machine, names)) troubles.push_back(std::move(trouble));
    // Without root one line says it for all.
    if (geteuid() == 0) {
        for (Trouble &trouble : empty_cells(machine, listing, options)) troubles.push_back(std::move(trouble));
    }
    tell(troubles);
    tell_duplicates(machine);
    if (!any && exit_code(troubles, false) == kDone && !options.output.is_json()) complain("no drives found");
    return exit_code(troubles, shown || any);
}

} // namespace

void add_list_command(const Command &tool) {
    const auto options = std::make_shared<ListOptions>();
    tool.add("list", "List the drives of this machine (the default).", [options] { return run(*options); })
        .arguments("DEVICE", options->devices, "only these devices: sda, /dev/sda, ...")
        .listing(options->output)
        .flag("-d,--nodeps", options->no_partitions, "leave out partitions")
        .flag("-a,--all", options->all, "loop, zram, ram and nbd devices in use too")
        .flag("--defects", options->defects, "read the defect lists")
        .flag("--state", options->state, "read the permission level of known makers")
        .flag("--raid", options->raid, "show the member drives of RAID controllers too")
        .flag("--usb", options->usb, "show USB drives without a node too")
        .timeout(options->timeout);
}

} // namespace tool
