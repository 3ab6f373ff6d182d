// torvane complete: what may stand at the cursor, one candidate a line. Hidden: the shells' completions call it, so
// that they know every command, option and column without a list of their own. No device is opened.
#include "commands/completion.h"

#include "commands/commands.h"
#include "inventory/kernel/kernel.h"
#include "output/text.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <set>

namespace tool {
namespace {

using Words = std::vector<std::string>;

const CLI::App *command_named(const CLI::App &above, const std::string &name) {
    for (const CLI::App *command : above.get_subcommands([](const CLI::App *) { return true; })) {
        if (command->get_name() == name && !command->get_group().empty()) return command;
    }
    return nullptr;
}

const CLI::Option *option_named(const CLI::App &command, const std::string &word) {
    if (!word.starts_with('-')) return nullptr;
    const CLI::Option *option = command.get_option_no_throw(word);
    return option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
}

void add_options(const CLI::App &command, Words &found) {
    for (const CLI::Option *option : command.get_options()) {
        for (const std::string &name : option->get_snames()) found.push_back("-" + name);
        for (const std::string &name : option->get_lnames()) found.push_back("--" + name);
    }
}

void add_commands_below(const CLI::App &command, Words &found) {
    for (const CLI::App *below : command.get_subcommands([](const CLI::App *) { return true; })) {
        if (!below->get_group().empty()) found.push_back(below->get_name());
    }
}

void add_columns(Words &found) {
    for (const Column *column : columns_of(~0U)) found.emplace_back(column->heading);
}

// Names from /sys, serial numbers from the device manager's database.
void add_devices(Words &found) {
    inventory::Machine machine;
    inventory::read_kernel(machine, {false, {"name", "path", "serial"}});
    settle(machine);
    for (const inventory::Thing &thing : machine.things()) {
        if (thing.text("path").empty()) continue;
        found.push_back(short_name(thing.text("name")));
        const std::string serial = thing.text("serial");
        if (!serial.empty() && serial.find(' ') == std::string::npos) found.push_back(serial);
    }
}

// The argument that a plain word at this place would be.
const CLI::Option *argument_at(const CLI::App &command, std::size_t place) {
    const CLI::Option *last = nullptr;
    for (const CLI::Option *option : command.get_options([](const CLI::Option *o) { return o->get_positional(); })) {
        if (place-- == 0) return option;
        last = option;
    }
    return last != nullptr && last->get_expected_max() > 1 ? last : nullptr;
}

void add_argument(const std::string &name, Words &found) {
    static const std::set<std::string> named_devices{"DEVICE", "DEVICE|SERIAL", "SERIAL", "TEXT"};
    if (named_devices.contains(name)) add_devices(found);
    if (name == "STATE") found.insert(found.end(), {"unbound", "bound", "node"});
    if (name == "on|off") found.insert(found.end(), {"on", "off"});
    if (name == "EVENT") found.insert(found.end(), {"created", "deleted"});
}

} // namespace

Words candidates(const CLI::App &tool, const Words &words) {
    const CLI::App *command = &tool;
    const CLI::Option *pending = nullptr;
    std::size_t place = 0;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (std::exchange(pending, nullptr) != nullptr) continue;
        pending = option_named(*command, words[i]);
        if (pending != nullptr || words[i].starts_with('-')) continue;
        const CLI::App *named = command_named(*command, words[i]);
        command = named == nullptr ? command : named;
        place = named == nullptr ? place + 1 : 0;
    }
    Words found;
    if (pending != nullptr) {
        const std::string text = pending->get_option_text();
        if (text.starts_with("COLUMN")) add_columns(found);
        return found;
    }
    if (!words.empty() && words.back().starts_with('-')) {
        add_options(*command, found);
        return found;
    }
    if (place == 0) add_commands_below(*command, found);
    const CLI::Option *argument = argument_at(*command, place);
    if (argument != nullptr) add_argument(argument->get_name(true), found);
    return found;
}

} // namespace tool
