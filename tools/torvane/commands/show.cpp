// torvane show: everything known about one drive, and what could not be read of it.
#include "commands/commands.h"
#include "devices.h"
#include "drive_columns.h"
#include "raid.h"
#include "output/text.h"

#include <algorithm>
#include <functional>
#include <memory>

namespace tool {
namespace {

struct ShowOptions {
    OutputOptions output;
    double timeout = kDefaultLimit.count();
    std::string target;
};

constexpr DriveOptions kEverything =
    DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE | DRIVE_OPTION_USB;

// The lines for people; what a drive does not have is left out.
struct Line {
    const char *label;
    const char *column;
    const char *unit;
};
constexpr Line kLines[] = {
    {"Type", "TYPE", ""},
    {"Model", "MODEL", ""},
    {"Serial number", "SERIAL", ""},
    {"Size", "SIZE", " bytes"},
    {"Logical block", "SECTOR", " bytes"},
    {"Blocks", "BLOCKS", ""},
    {"Rotation", "RPM", " rpm"},
    {"Device numbers", "MAJ:MIN", ""},
    {"Kind", "KIND", ""},
    {"Generic node", "GENERIC", ""},
    {"Start", "START", " sectors of 512 bytes"},
    {"Status", "STATUS", ""},
    {"Permission", "PERMISSION", ""},
    {"Location", "LOCATION", ""},
    {"RAID device", "RAID-DEVICE", ""},
};

void print_line(std::string_view label, std::string_view text) {
    std::printf("  %-16s %s\n", std::string(label).c_str(), printable(text).c_str());
}

void print_defects(const char *label, int32_t entries, uint32_t bytes) {
    if (entries < 0) return;
    print_line(label, std::to_string(entries) + " entries (" + std::to_string(bytes) + " bytes)");
}

std::string value_text(const Line &line, const Drive &drive) {
    const DriveColumn &column = *find_drive_column(line.column);
    Style style;
    style.paths = true;
    style.bytes = true;
    const std::string text = to_text(column.column, column.of_drive(drive), style);
    const bool is_whole_disk = column.of_drive == find_drive_column("START")->of_drive && text == "0";
    if (text.empty() || is_whole_disk) return {};
    const std::optional<uint64_t> size = size_of(*drive.record);
    const bool is_size = column.column.kind == Kind::kBytes && size && *size >= 1024;
    return is_size ? human_size(*size) + " (" + text + line.unit + ")" : text + line.unit;
}

void print_partitions(const PartitionList &partitions) {
    if (partitions.count == 0) return;
    std::printf("\nPartitions:\n");
    for (uint32_t i = 0; i < partitions.count; ++i) {
        const PartitionRecord &partition = partitions.entries[i];
        print_line(partition.name ? partition.name : "", human_size(partition.size));
    }
}

void print_failures(const std::vector<Failure> &failures) {
    if (failures.empty()) return;
    std::printf("\nNot read:\n");
    for (const Failure &failure : failures) {
        print_line(failure.reader.empty() ? "device" : failure.reader,
                   failure.words.empty() ? "not told by this device" : failure.words);
    }
}

void print_drive(const Drive &drive) {
    std::printf("%s\n", printable(drive.record->name != nullptr ? drive.record->name : "(no device node)").c_str());
    for (const Line &line : kLines) {
        const std::string text = value_text(line, drive);
        if (!text.empty()) print_line(line.label, text);
    }
    const DriveRecord &record = *drive.record;
    print_defects("Primary defects", record.manufacturer_defects, record.manufacturer_defect_bytes);
    print_defects("Grown defects", record.grown_defects, record.grown_defect_bytes);
    print_partitions(record.partitions);
    print_failures(drive.failures);
}

Json drive_document(const Drive &drive, const Style &style) {
    DriveColumns columns;
    for (const DriveColumn &column : all_drive_columns()) columns.push_back(&column);
    std::vector<Drive> none;
    Table table = drive_table(columns, none, true);
    table.root.rows.push_back(drive_row(columns, drive, true));
    Json document = {{"schema_version", kSchemaVersion}};
    document["drive"] = to_json(table, style).at("drives").at(0);
    Json failures = Json::array();
    for (const Failure &failure : drive.failures) {
        failures.push_back(
            {{"reader", failure.reader.empty() ? "device" : failure.reader}, {"message", failure.words}});
    }
    document["drive"]["failures"] = std::move(failures);
    return document;
}

void keep_matches(std::vector<Drive> &drives, const std::string &serial) {
    std::erase_if(drives, [&](const Drive &drive) {
        return drive.record->serial == nullptr || !std::string_view(drive.record->serial).starts_with(serial);
    });
    // A whole serial number names one drive even where others begin with it.
    const auto is_whole = [&](const Drive &drive) { return std::string_view(drive.record->serial) == serial; };
    if (std::count_if(drives.begin(), drives.end(), is_whole) == 1) std::erase_if(drives, std::not_fn(is_whole));
}

int refuse_candidates(const std::string &serial, const std::vector<Drive> &drives) {
    complain("'" + serial + "' fits " + std::to_string(drives.size()) + " drives; give more of the serial number:");
    for (const Drive &drive : drives) {
        const DriveRecord &record = *drive.record;
        std::fprintf(stderr, "  %s  %s  %s\n", printable(record.name ? record.name : "-").c_str(),
                     printable(record.serial).c_str(), printable(record.model ? record.model : "").c_str());
    }
    return kFailed;
}

int print(const ShowOptions &options, const Found &found) {
    for (const Drive &drive : found.drives) {
        if (options.output.json) {
            print_json(drive_document(drive, options.output.style()), stdout);
        } else {
            print_drive(drive);
        }
    }
    const std::vector<Failure> failures = all_failures(found);
    tell(failures);
    return exit_code(failures, !found.drives.empty());
}

int show(const ShowOptions &options, const std::string &name) {
    Request request;
    request.options = kEverything;
    request.names = {name};
    request.limit = to_limit(options.timeout);
    request.every_failure = true;
    return print(options, find_drives(request));
}

// Drives of the kernel first; what only USB or a RAID maker's tool knows is looked for when none of them fits.
Found find_by_serial(const ShowOptions &options, std::vector<Failure> &failures) {
    const DriveOptions wider = DRIVE_OPTION_USB | (has_raid_tool() ? DRIVE_OPTION_RAID : 0);
    Found found;
    for (const DriveOptions more : {0, wider}) {
        Request request;
        request.options |= more;
        request.limit = to_limit(options.timeout);
        found = find_drives(request);
        failures = all_failures(found);
        keep_matches(found.drives, options.target);
        if (!found.drives.empty()) break;
    }
    return found;
}

int show_by_serial(const ShowOptions &options) {
    std::vector<Failure> failures;
    Found found = find_by_serial(options, failures);
    if (found.drives.size() > 1) return refuse_candidates(options.target, found.drives);
    if (found.drives.size() == 1) {
        const DriveRecord &record = *found.drives.front().record;
        const bool has_node = record.name != nullptr && record.drive_type != DRIVE_TYPE_RAID_MEMBER;
        found.failures.clear(); // of the search, which was successful
        return has_node ? show(options, record.name) : print(options, found);
    }
    failures.push_back({options.target, {}, "no device of this name, and no serial number begins with it", {}, true});
    tell(failures);
    return kFailed;
}

int run(const ShowOptions &options) {
    if (!names_a_file(options.target)) return show_by_serial(options);
    std::vector<Failure> failures;
    const std::vector<std::string> paths = resolve_devices({options.target}, false, failures);
    if (!paths.empty()) return show(options, paths.front());
    tell(failures);
    return kFailed;
}

} // namespace

void add_show_command(CLI::App &tool, Action &chosen) {
    const auto options = std::make_shared<ShowOptions>();
    CLI::App &command = add_command(tool, chosen, "show", "Show everything known about one drive.",
                                    [options] { return run(*options); });
    command.add_option("DEVICE|SERIAL", options->target, "a device, or the beginning of one serial number")->required();
    add_json_option(command, options->output);
    add_timeout_option(command, options->timeout);
}

} // namespace tool
