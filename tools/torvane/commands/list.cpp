// torvane list: the machine's drives as a table, a tree or for programs.
#include "commands/commands.h"
#include "devices.h"
#include "drive_columns.h"

#include <memory>

namespace tool {
namespace {

struct ListOptions {
    OutputOptions output;
    std::string columns;
    bool all_columns = false;
    bool list_columns = false;
    bool defects = false;
    bool state = false;
    bool raid = false;
    bool usb = false;
    bool no_partitions = false;
    double timeout = kDefaultLimit.count();
    std::vector<std::string> devices;
};

constexpr const char *kDefaultColumns[] = {"NAME", "TYPE", "MODEL", "SERIAL", "SIZE", "SECTOR", "RPM"};
constexpr DriveOptions kReadings =
    DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE;

// A flag that asks for more brings its columns with it.
struct Extra {
    bool ListOptions::*flag;
    DriveOptions option;
    std::vector<const char *> columns;
};

const std::vector<Extra> &extras() {
    static const std::vector<Extra> list = {
        {&ListOptions::defects, DRIVE_OPTION_DEFECTS, {"MDEFECTS", "GDEFECTS"}},
        {&ListOptions::state, DRIVE_OPTION_STATE, {"PERMISSION"}},
        {&ListOptions::raid, DRIVE_OPTION_RAID, {"LOCATION", "RAID-DEVICE"}},
        {&ListOptions::usb, DRIVE_OPTION_USB, {"STATUS"}},
    };
    return list;
}

void add_column(DriveColumns &columns, std::string_view name) {
    const DriveColumn *column = find_drive_column(name);
    if (!column) throw CLI::ValidationError("unknown column '" + std::string(name) + "' (see --list-columns)");
    if (std::find(columns.begin(), columns.end(), column) == columns.end()) columns.push_back(column);
}

DriveColumns default_columns(const ListOptions &options) {
    DriveColumns columns;
    for (const char *name : kDefaultColumns) add_column(columns, name);
    for (const Extra &extra : extras()) {
        if (!(options.*extra.flag)) continue;
        for (const char *name : extra.columns) add_column(columns, name);
    }
    return columns;
}

DriveColumns chosen_columns(const ListOptions &options) {
    DriveColumns columns;
    if (options.all_columns) {
        for (const DriveColumn &column : all_drive_columns()) columns.push_back(&column);
        return columns;
    }
    const ColumnList asked = parse_columns(options.columns);
    if (asked.adds || options.columns.empty()) columns = default_columns(options);
    for (const std::string &name : asked.names) add_column(columns, name);
    if (columns.empty()) throw CLI::ValidationError("--output names no column");
    return columns;
}

DriveOptions wanted_options(const ListOptions &options, const DriveColumns &columns) {
    DriveOptions wanted = DRIVE_OPTION_GEOMETRY; // for the partitions, whatever the columns
    for (const DriveColumn *column : columns) {
        // All columns means all that is read from drives; the RAID tools run only when somebody asks for them.
        wanted |= options.all_columns ? column->needs & kReadings : column->needs;
    }
    for (const Extra &extra : extras()) {
        if (options.*extra.flag) wanted |= extra.option;
    }
    if (options.devices.empty()) wanted |= DRIVE_OPTION_SYSTEM | DRIVE_OPTION_OPTICAL;
    return wanted;
}

int list_columns(const OutputOptions &output) {
    static constexpr Column kShown[] = {{"COLUMN", "column", Kind::kText, "", 1},
                                        {"KEY", "key", Kind::kText, "", 1},
                                        {"HOLDS", "holds", Kind::kText, "", 1}};
    Table table{{&kShown[0], &kShown[1], &kShown[2]}, {"columns", {}}};
    for (const DriveColumn &column : all_drive_columns()) {
        const Column &shown = column.column;
        table.root.rows.push_back(
            {0, {std::string(shown.name), std::string(shown.key), std::string(shown.help)}, {}, false});
    }
    print_table(table, output.style(), stdout);
    return kDone;
}

int run(const ListOptions &options) {
    if (options.list_columns) return list_columns(options.output);
    const DriveColumns columns = chosen_columns(options);
    Request request;
    request.options = wanted_options(options, columns);
    request.limit = to_limit(options.timeout);
    std::vector<Failure> failures;
    request.names = resolve_devices(options.devices, (request.options & DRIVE_OPTION_RAID) != 0, failures);
    Found found;
    if (options.devices.empty() || !request.names.empty()) found = find_drives(request);
    const bool is_json = options.output.json;
    if (is_json || !found.drives.empty()) {
        print_table(drive_table(columns, found.drives, !options.no_partitions), options.output.style(), stdout);
    }
    for (Failure &failure : all_failures(found)) failures.push_back(std::move(failure));
    tell(failures);
    if (found.drives.empty() && failures.empty() && !is_json) complain("no drives found");
    return exit_code(failures, !found.drives.empty());
}

} // namespace

void add_list_command(CLI::App &tool, Action &chosen) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App &command = add_command(tool, chosen, "list", "List the drives of this machine (the default).",
                                    [options] { return run(*options); });
    command.add_option("DEVICE", options->devices, "only these devices: sda, /dev/sda, /dev/disk/by-id/...");
    add_output_options(command, options->output);
    command.add_option("-o,--output", options->columns, "these columns; +COLUMN,... adds to the usual ones")
        ->option_text("COLUMN,...");
    command.add_flag("-O,--output-all", options->all_columns, "all columns");
    command.add_flag("-H,--list-columns", options->list_columns, "list the columns there are");
    command.add_flag("-d,--nodeps", options->no_partitions, "leave out partitions");
    command.add_flag("--defects", options->defects, "read the defect lists");
    command.add_flag("--state", options->state, "read the permission level, where the maker is known");
    command.add_flag("--raid", options->raid, "show RAID member drives instead of logical drives");
    command.add_flag("--usb", options->usb, "complete and add USB drives");
    add_timeout_option(command, options->timeout);
}

} // namespace tool
