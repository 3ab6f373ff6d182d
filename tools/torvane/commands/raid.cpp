// torvane raid: controllers, their logical drives and member drives as a tree.
#include "commands/commands.h"
#include "drives.h"
#include "raid.h"

#include <memory>

namespace tool {
namespace {

struct RaidOptions {
    OutputOptions output;
    double timeout = kDefaultLimit.count();
};

constexpr unsigned kController = 1;
constexpr unsigned kLogical = 2;
constexpr unsigned kDrive = 4;

constexpr Column kColumns[] = {
    {"NAME", "name", Kind::kName, "", kController | kLogical | kDrive},
    {"TYPE", "type", Kind::kText, "", kController | kLogical | kDrive},
    {"NUMBER", "number", Kind::kNumber, "", kController | kLogical | kDrive},
    {"LABEL", "label", Kind::kText, "", kLogical},
    {"MODEL", "model", Kind::kText, "", kDrive, true},
    {"SERIAL", "serial", Kind::kText, "", kDrive, true},
    {"SIZE", "size", Kind::kBytes, "", kLogical | kDrive},
    {"LOCATION", "location", Kind::kText, "", kDrive},
    {"MATCH", "match", Kind::kText, "", kLogical | kDrive},
};

Value text(const Wire &record, const char *key) {
    const Wire &value = record.at(key);
    return value.is_null() ? Value() : Value(value.get<std::string>());
}
Value number(const Wire &record) { return record.at("number").get<std::int64_t>(); }
Value size(const Wire &record) { return record.at("size").get<std::uint64_t>(); }
Value word(const char *word) { return std::string(word); }

Row drive_row(const Wire &drive, const char *type, unsigned level) {
    return {level,
            {text(drive, "device"),
             word(type),
             number(drive),
             {},
             text(drive, "model"),
             text(drive, "serial"),
             size(drive),
             text(drive, "location"),
             text(drive, "match")},
            {},
            false};
}

Branch drives_of(const Wire &drives, const char *type) {
    Branch branch{"drives", {}};
    for (const Wire &drive : drives) branch.rows.push_back(drive_row(drive, type, 2));
    return branch;
}

Row logical_row(const Wire &group) {
    return {1,
            {text(group, "device"),
             word("logical"),
             number(group),
             text(group, "name"),
             {},
             {},
             size(group),
             {},
             text(group, "match")},
            {drives_of(group.at("drives"), "member")},
            false};
}

Row controller_row(const Wire &controller) {
    const std::string name =
        controller.at("maker").get<std::string>() + " " + std::to_string(controller.at("number").get<std::int64_t>());
    Branch logical{"logical_drives", {}};
    for (const Wire &group : controller.at("groups")) logical.rows.push_back(logical_row(group));
    return {0,
            {name, word("controller"), number(controller), {}, {}, {}, {}, {}, {}},
            {std::move(logical), drives_of(controller.at("drives"), "unassigned")},
            false};
}

int run(const RaidOptions &options) {
    std::vector<Failure> failures;
    const Wire controllers = find_controllers(to_limit(options.timeout), failures);
    Table table;
    for (const Column &column : kColumns) table.columns.push_back(&column);
    table.root.key = "controllers";
    for (const Wire &controller : controllers) table.root.rows.push_back(controller_row(controller));
    if (options.output.json || !controllers.empty()) print_table(table, options.output.style(), stdout);
    tell(failures);
    if (controllers.empty() && failures.empty() && !options.output.json) complain("no RAID controllers found");
    // Without a tool nothing was looked at, and the empty answer is no more than a part.
    return exit_code(failures, true);
}

} // namespace

void add_raid_command(CLI::App &tool, Action &chosen) {
    const auto options = std::make_shared<RaidOptions>();
    CLI::App &command = add_command(tool, chosen, "raid", "Show RAID controllers, logical drives and member drives.",
                                    [options] { return run(*options); });
    add_output_options(command, options->output);
    add_timeout_option(command, options->timeout);
}

} // namespace tool
