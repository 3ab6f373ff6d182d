// The command line: what the commands have in common. The parser itself is known to command_line.cpp alone.
#pragma once

#include "output/listing.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace tool {

// What a command does once its line has been read; the result is the exit code.
using Action = std::function<int()>;

// A command, its options and arguments. What is given on the line is put into the variables, which must live until
// the action has run.
class Command {
  public:
    Command(CLI::App &app, Action &chosen) : app_(app), chosen_(chosen) {}

    // A command below this one. It may have commands below itself when `action` can do without them.
    Command add(const char *name, const char *summary, Action action) const;

    // "-J,--json"
    const Command &flag(const char *names, bool &value, const char *help) const;
    // "-o,--output" with what its value is called, "" where help needs none.
    const Command &option(const char *names, std::string &value, const char *value_name, const char *help,
                          bool required = false) const;
    // The option must be one of these words; a wrong one is answered with the nearest.
    const Command &argument(const char *name, std::string &value, const char *help, bool required = true,
                            std::vector<std::string> words = {}) const;
    const Command &arguments(const char *name, std::vector<std::string> &values, const char *help,
                             bool required = false) const;

    // -o -O -H -J --ndjson -r -P -n -b -p -x --filter --tree: of every listing.
    const Command &listing(ListingOptions &options) const;
    const Command &json(bool &value) const;
    // --timeout SECONDS, fractions allowed.
    const Command &timeout(double &seconds) const;

  private:
    CLI::App &app_;
    Action &chosen_;
};

constexpr double kDefaultSeconds = 30;
std::chrono::milliseconds to_limit(double seconds);

// The help of a command: {"usb", "unbind"}; of all for none. WrongUsage for a name that is none.
std::string help_of(const std::vector<std::string> &names);

// A file of commands: their names, and what adds them with their options.
struct CommandRow {
    std::vector<std::string_view> names;
    void (*add)(const Command &tool);
};

// Reads the line and runs what it names.
int run_line(const std::vector<std::string> &words, const std::vector<CommandRow> &commands);

} // namespace tool
