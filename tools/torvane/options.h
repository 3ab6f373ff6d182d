// The command line: what the commands have in common.
#pragma once

#include "output/table.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace tool {

// Options of every command that prints what it found.
struct OutputOptions {
    bool json = false;
    bool raw = false;
    bool pairs = false;
    bool no_headings = false;
    bool bytes = false;
    bool paths = false;

    [[nodiscard]] Style style() const;
};

void add_json_option(CLI::App &command, OutputOptions &options);
void add_output_options(CLI::App &command, OutputOptions &options);

// --timeout SECONDS, fractions allowed.
void add_timeout_option(CLI::App &command, double &seconds);
std::chrono::milliseconds to_limit(double seconds);

// "NAME,SIZE" or "+SIZE" as column names; a leading plus keeps the defaults.
struct ColumnList {
    bool adds = false;
    std::vector<std::string> names;
};
ColumnList parse_columns(const std::string &text);

// What a command does once its line has been read; the result is the exit code.
using Action = std::function<int()>;

// A subcommand whose action runs when it is the one that was named.
CLI::App &add_command(CLI::App &tool, Action &chosen, const char *name, const char *summary, Action action);

} // namespace tool
