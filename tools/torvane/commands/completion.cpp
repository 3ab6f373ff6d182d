// torvane complete: what may stand at the cursor, one candidate a line. Hidden: the shells' completions call it, so
// that they know every command, option and column without a list of their own. No device is opened.
#include "commands/completion.h"

#include "commands/commands.h"
#include "commands/devices.h"
#include "inventory/bays/bays.h"
#include "inventory/kernel/kernel.h"
#include "inventory/usb/usb.h"
#include "output/text.h"

#include <CLI/CLI.hpp>

#include <strings.h>

#include <algorithm>

namespace tool {
namespace {

using inventory::Thing;
using inventory::ThingKind;
using Words = std::vector<std::string>;

// What is being typed: of "--output=NAME,ser" the head is "--output=NAME,", and "ser" is to be completed.
struct Typed {
    std::string head;
    std::string tail;
};

class Candidates {
  public:
    explicit Candidates(Typed typed) : typed_(std::move(typed)) {}

    // Columns and names may be typed in any case.
    void add(const std::string &word, const std::string &about) {
        const bool fits = strncasecmp(word.c_str(), typed_.tail.c_str(), typed_.tail.size()) == 0;
        if (fits && !word.empty() && word.find(' ') == std::string::npos) found_.push_back({typed_.head + word, about});
    }
    void add_files() { found_.insert(found_.begin(), {kFilesToo, {}}); }
    void start_after(std::size_t length) {
        typed_ = {typed_.head + typed_.tail.substr(0, length), typed_.tail.substr(length)};
    }
    [[nodiscard]] const Typed &typed() const { return typed_; }
    [[nodiscard]] std::vector<Candidate> take() { return std::move(found_); }

  private:
    Typed typed_;
    std::vector<Candidate> found_;
};

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

void add_options(const CLI::App &command, Candidates &found) {
    for (const CLI::Option *option : command.get_options()) {
        for (const std::string &name : option->get_snames()) found.add("-" + name, option->get_description());
        for (const std::string &name : option->get_lnames()) found.add("--" + name, option->get_description());
    }
}

void add_commands_below(const CLI::App &command, Candidates &found) {
    for (const CLI::App *below : command.get_subcommands([](const CLI::App *) { return true; })) {
        if (!below->get_group().empty()) found.add(below->get_name(), below->get_description());
    }
}

// Of a list the last name is being typed; an expression has columns among its words.
void add_columns(const char *separators, Candidates &found) {
    const std::size_t last = found.typed().tail.find_last_of(separators);
    found.start_after(last == std::string::npos ? 0 : last + 1);
    for (const Column *column : columns_of(kAnything)) found.add(column->heading, column->meaning);
}

bool has_node(const Thing &thing) { return !thing.text("path").empty(); }
bool is_any(const Thing & /*thing*/) { return true; }

// Names from /sys; serial numbers, where they will do, from there and from the device manager's database.
void add_devices(bool (*fits)(const Thing &thing), Candidates &found) {
    inventory::Machine machine;
    inventory::read_kernel(machine, {false, {"name", "path", "serial", "type"}});
    inventory::read_usb(machine);
    inventory::read_bays(machine);
    settle(machine);
    for (const Thing &thing : machine.things()) {
        if (!fits(thing)) continue;
        const std::string name = short_name(thing.text("name"));
        const std::string serial = thing.text("serial");
        const std::string type = thing.text("type");
        const bool has_name = has_node(thing) || thing.kind() == ThingKind::kBay;
        if (has_name) found.add(name, type + (serial.empty() ? "" : " " + serial));
        if (fits != has_node) found.add(serial, type + " " + name);
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

// By what help calls it, argument or value of an option.
struct WordKind {
    const char *name;
    void (*add)(Candidates &found);
};
constexpr WordKind kKinds[] = {
    {"DEVICE", [](Candidates &found) { add_devices(has_node, found); }},
    {"DEVICE|SERIAL", [](Candidates &found) { add_devices(is_any, found); }},
    {"TEXT", [](Candidates &found) { add_devices(is_any, found); }},
    {"SERIAL", [](Candidates &found) { add_devices(is_usb, found); }},
    {"DRIVE", [](Candidates &found) { add_devices(is_optical, found); }},
    {"PATH",
     [](Candidates &found) {
         add_devices(is_any, found);
         found.add_files();
     }},
    {"DIRECTORY|SERIAL",
     [](Candidates &found) {
         add_devices(is_usb, found);
         found.add_files();
     }},
    {"FILE", [](Candidates &found) { found.add_files(); }},
    {"OLD", [](Candidates &found) { found.add_files(); }},
    {"NEW", [](Candidates &found) { found.add_files(); }},
    {"DIRECTORY", [](Candidates &found) { found.add_files(); }},
    {"COLUMN,...", [](Candidates &found) { add_columns(",+", found); }},
    {"COLUMN", [](Candidates &found) { add_columns("", found); }},
    {"EXPR", [](Candidates &found) { add_columns(" (", found); }},
    {"STATE",
     [](Candidates &found) {
         found.add("unbound", "no driver");
         found.add("bound", "its driver");
         found.add("node", "its driver, and a node in /dev");
     }},
    {"on|off",
     [](Candidates &found) {
         found.add("on", "the light is on");
         found.add("off", "the light is off");
     }},
    {"EVENT",
     [](Candidates &found) {
         found.add("created", "until it is there");
         found.add("deleted", "until it is gone");
     }},
};

void add_values(const std::string &name, Candidates &found) {
    const auto *kind =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&](const WordKind &k) { return k.name == name; });
    if (kind != std::end(kKinds)) kind->add(found);
}

// Where the words before the cursor lead: the command, the option that wants a value, the arguments so far.
struct Place {
    const CLI::App *command;
    const CLI::Option *pending = nullptr;
    std::size_t arguments = 0;
};

Place place_of(const CLI::App &tool, const Words &words) {
    Place place{&tool};
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (std::exchange(place.pending, nullptr) != nullptr) continue;
        place.pending = option_named(*place.command, words[i]);
        if (place.pending != nullptr || words[i].starts_with('-')) continue;
        const CLI::App *named = place.arguments == 0 ? command_named(*place.command, words[i]) : nullptr;
        place.arguments = named == nullptr ? place.arguments + 1 : 0;
        if (named == nullptr) continue;
        place.command = named;
        // Behind help the commands themselves are what is asked about.
        if (named->get_name() == "help") place = {&tool};
    }
    return place;
}

} // namespace

std::vector<Candidate> candidates(const CLI::App &tool, const Words &words) {
    Place place = place_of(tool, words);
    const std::string last = words.empty() ? "" : words.back();
    Candidates found({"", last});
    const std::size_t equals = last.starts_with("--") ? last.find('=') : std::string::npos;
    if (equals != std::string::npos) {
        place.pending = option_named(*place.command, last.substr(0, equals));
        found.start_after(equals + 1);
    }
    if (place.pending != nullptr) {
        add_values(place.pending->get_option_text(), found);
    } else if (last.starts_with('-')) {
        add_options(*place.command, found);
    } else {
        if (place.arguments == 0) add_commands_below(*place.command, found);
        const CLI::Option *argument = argument_at(*place.command, place.arguments);
        if (argument != nullptr) add_values(argument->get_name(true), found);
    }
    return found.take();
}

} // namespace tool
