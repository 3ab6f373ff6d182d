#include "options.h"

#include <cmath>
#include <cstdlib>

namespace tool {
namespace {

// A day: more is no time-out any more.
constexpr double kLongestTimeout = 86400;

std::string check_seconds(const std::string &text) {
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool good = end != text.c_str() && *end == '\0' && seconds > 0 && seconds <= kLongestTimeout;
    return good ? "" : "'" + text + "' is no time in seconds (up to a day)";
}

} // namespace

Style OutputOptions::style() const {
    Style style;
    if (json) style.format = Format::kJson;
    if (raw) style.format = Format::kRaw;
    if (pairs) style.format = Format::kPairs;
    style.headings = !no_headings;
    style.bytes = bytes;
    style.paths = paths;
    return style;
}

void add_json_option(CLI::App &command, OutputOptions &options) {
    command.add_flag("-J,--json", options.json, "print JSON");
}

void add_output_options(CLI::App &command, OutputOptions &options) {
    add_json_option(command, options);
    CLI::Option *json = command.get_option("--json");
    CLI::Option *raw = command.add_flag("-r,--raw", options.raw, "print lines that are easy to split");
    CLI::Option *pairs = command.add_flag("-P,--pairs", options.pairs, "print KEY=\"value\" pairs");
    json->excludes(raw)->excludes(pairs);
    raw->excludes(pairs);
    command.add_flag("-b,--bytes", options.bytes, "print sizes in bytes");
    command.add_flag("-n,--noheadings", options.no_headings, "print no headings");
    command.add_flag("-p,--paths", options.paths, "print whole device paths");
}

void add_timeout_option(CLI::App &command, double &seconds) {
    command.add_option("--timeout", seconds, "give up on a device or tool after this long")
        ->option_text("SECONDS")
        ->check(CLI::Validator(check_seconds, ""));
}

std::chrono::milliseconds to_limit(double seconds) {
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(std::ceil(seconds * 1000)));
}

ColumnList parse_columns(const std::string &text) {
    ColumnList list;
    list.adds = text.starts_with('+');
    std::string name;
    for (const char character : text.substr(list.adds ? 1 : 0) + ',') {
        if (character != ',') {
            name += character;
        } else if (!name.empty()) {
            list.names.push_back(std::exchange(name, {}));
        }
    }
    return list;
}

CLI::App &add_command(CLI::App &tool, Action &chosen, const char *name, const char *summary, Action action) {
    CLI::App &command = *tool.add_subcommand(name, summary);
    command.group("Commands");
    command.callback([&chosen, action = std::move(action)] { chosen = action; });
    return command;
}

} // namespace tool
