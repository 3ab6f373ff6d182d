#include "commands/command_line.h"

#include "commands/completion.h"
#include "output/messages.h"
#include "output/suggest.h"
#include "output/text.h"

#include <CLI/CLI.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <set>

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

std::vector<const CLI::App *> with_descendants(const CLI::App &tool) {
    std::vector<const CLI::App *> all{&tool};
    for (const CLI::App *command : tool.get_subcommands([](const CLI::App *) { return true; })) {
        const std::vector<const CLI::App *> below = with_descendants(*command);
        all.insert(all.end(), below.begin(), below.end());
    }
    return all;
}

std::vector<std::string> names_of_commands(const CLI::App &tool) {
    std::vector<std::string> names;
    for (const CLI::App *command : tool.get_subcommands([](const CLI::App *) { return true; })) {
        if (!command->get_group().empty()) names.push_back(command->get_name());
    }
    return names;
}

// Of any command: an option before the command's name belongs to the command that follows.
bool takes_value(const CLI::App &tool, const std::string &word) {
    if (word.find('=') != std::string::npos) return false;
    for (const CLI::App *command : with_descendants(tool)) {
        const CLI::Option *option = command->get_option_no_throw(word);
        if (option != nullptr && !option->get_positional()) return option->get_items_expected_max() > 0;
    }
    return false;
}

// The place of the first word that is neither an option nor the value of one.
std::size_t first_word(const CLI::App &tool, const std::vector<std::string> &words) {
    std::size_t at = 0;
    while (at < words.size() && words[at].starts_with('-') && words[at] != "--")
        at += takes_value(tool, words[at]) ? 2 : 1;
    return std::min(at, words.size());
}

bool names_a_device(const std::string &word) {
    struct stat status {};
    return word.find('/') != std::string::npos || stat(device_path(word).c_str(), &status) == 0;
}

std::vector<std::string> options_of(const CLI::App &command) {
    std::vector<std::string> names;
    for (const CLI::Option *option : command.get_options()) {
        for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

const CLI::App &innermost(const CLI::App &tool) {
    const CLI::App *command = &tool;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    return *command;
}

std::string about_extras(const CLI::App &tool, const std::vector<std::string> &words) {
    const CLI::App &command = innermost(tool);
    if (&command == &tool) {
        const std::string &word = words.front();
        return "unknown command or device '" + word + "'" + did_you_mean(word, names_of_commands(tool));
    }
    const std::vector<std::string> left = tool.remaining(true);
    const std::string unknown = left.empty() ? words.back() : left.front();
    if (unknown.starts_with('-') && unknown.size() > 1) {
        // Those of the tool stand before a command.
        std::vector<std::string> options = options_of(command);
        const std::vector<std::string> above = options_of(tool);
        options.insert(options.end(), above.begin(), above.end());
        return "unknown option '" + unknown + "'" + did_you_mean(unknown.substr(0, unknown.find('=')), options);
    }
    std::vector<std::string> below = names_of_commands(command);
    return "unexpected argument '" + unknown + "'" + did_you_mean(unknown, below);
}

constexpr const char *kFooter = "Exit codes: 0 done, 1 failed, 2 wrong usage, 64 done in part.\n"
                                "'torvane help COMMAND' tells more; so does 'man torvane'.";

constexpr std::size_t kLongestName = 8; // of a command: "firmware"

// Help in the shape that people know from other tools of the trade.
class HelpFormatter : public CLI::Formatter {
  public:
    HelpFormatter() {
        column_width(29);
        label("Positionals", "Arguments");
    }

    std::string make_usage(const CLI::App *app, std::string name) const override {
        std::string usage = "Usage: " + name;
        if (app->get_parent() == nullptr) return usage + " [COMMAND] [OPTION...]\n";
        for (const CLI::Option *option : app->get_options([](const CLI::Option *o) { return o->get_positional(); })) {
            const bool many = option->get_expected_max() > 1;
            const std::string shown = option->get_name(true) + (many ? "..." : "");
            usage += option->get_required() ? " " + shown : " [" + shown + "]";
        }
        return usage + (names_of_commands(*app).empty() ? "" : " [COMMAND]") + " [OPTION...]\n";
    }

    // Beside the names, which are short, a sentence has room on a line of 80 characters.
    std::string make_subcommand(const CLI::App *command) const override {
        const std::string name = "  " + command->get_name() + std::string(kLongestName, ' ');
        return name.substr(0, kLongestName + 4) + command->get_description() + "\n";
    }

    std::string make_option_name(const CLI::Option *option, bool is_positional) const override {
        if (is_positional) return option->get_name(true);
        const std::string names = option->get_name(false, true);
        const std::size_t comma = names.find(',');
        // Options without a letter line up with those that have one.
        return comma == std::string::npos ? "    " + names : names.substr(0, comma) + ", " + names.substr(comma + 1);
    }

    std::string make_footer(const CLI::App *app) const override {
        return app->get_footer().empty() ? "" : CLI::Formatter::make_footer(app);
    }

    std::string make_description(const CLI::App *app) const override { return app->get_description() + "\n\n"; }

    std::string make_option_opts(const CLI::Option *option) const override {
        return option->get_option_text().empty() ? "" : "=" + option->get_option_text();
    }
};

CLI::Option *named(CLI::Option *option, const char *value_name) {
    if (*value_name != '\0') option->option_text(value_name);
    return option;
}

CLI::Validator one_of(std::vector<std::string> words) {
    const auto check = [words = std::move(words)](const std::string &word) {
        if (std::find(words.begin(), words.end(), word) != words.end()) return std::string();
        std::string all;
        for (const std::string &known : words) all += (all.empty() ? "" : ", ") + known;
        return "'" + word + "' is none of: " + all + did_you_mean(word, words);
    };
    return {check, ""};
}

// The words as the parser wants them, the command first: 'list' may be left out, a device alone is listed, and
// options may stand before the command's name.
std::vector<std::string> arranged(const CLI::App &tool, const std::vector<std::string> &words) {
    static const std::set<std::string> own_options{"-h", "--help", "-V", "--version"};
    std::vector<std::string> result = words;
    const std::size_t at = first_word(tool, words);
    if (at == words.size()) {
        const bool own =
            std::any_of(words.begin(), words.end(), [](const std::string &w) { return own_options.contains(w); });
        if (!own) result.insert(result.begin(), "list");
        return result;
    }
    const auto is_it = [&](const CLI::App *command) { return command->get_name() == words[at]; };
    if (!tool.get_subcommands(is_it).empty()) {
        std::rotate(result.begin(), result.begin() + static_cast<std::ptrdiff_t>(at),
                    result.begin() + static_cast<std::ptrdiff_t>(at) + 1);
    } else if (words[at] == "--" || names_a_device(words[at])) {
        result.insert(result.begin(), "list");
    }
    return result;
}

// "usb unbind", "" when none was named.
std::string command_of(const CLI::App &tool) {
    std::string names;
    const CLI::App *command = &tool;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        names += (names.empty() ? "" : " ") + command->get_name();
    }
    return names;
}

// What was wrong with the line, in words of people; the parser's own name types of this program.
std::string wording(const CLI::ParseError &error, const CLI::App &tool, const std::vector<std::string> &words) {
    std::string text = error.what();
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error)) return text.substr(0, text.find(':')) + " needs a value";
    if (dynamic_cast<const CLI::RequiredError *>(&error)) {
        if (command_of(tool).empty()) return about_extras(tool, words);
        return text.substr(0, text.find(' ')) + " is missing";
    }
    if (dynamic_cast<const CLI::ExtrasError *>(&error)) return about_extras(tool, words);
    // "NAME: words of the check": the words say it all.
    const bool is_checked = dynamic_cast<const CLI::ValidationError *>(&error) != nullptr;
    const std::size_t quote = text.find(": '");
    return is_checked && quote != std::string::npos ? text.substr(quote + 2) : text;
}

// An empty text names nothing, and as the beginning of a serial number it would fit everything.
void refuse_empty_values(const CLI::App &command) {
    for (const CLI::Option *option : command.get_options()) {
        const std::vector<std::string> &values = option->results();
        if (std::find(values.begin(), values.end(), "") != values.end()) {
            throw CLI::ValidationError(option->get_name() + " is empty", CLI::ExitCodes::ValidationError);
        }
    }
    for (const CLI::App *named : command.get_subcommands()) refuse_empty_values(*named);
}

// The parser of the line that runs, for help of other commands.
const CLI::App *running = nullptr;

} // namespace

Command Command::add(const char *name, const char *summary, Action action) const {
    CLI::App &command = *app_.add_subcommand(name, summary);
    command.group(*summary == '\0' ? "" : "Commands"); // a group without a name is hidden
    command.require_subcommand(0, 1);
    command.footer("");
    // Of a command and one below it, the one below is meant, and its words end first.
    command.parse_complete_callback([&chosen = chosen_, action = std::move(action)] {
        if (!chosen) chosen = action;
    });
    return {command, chosen_};
}

const Command &Command::flag(const char *names, bool &value, const char *help) const {
    app_.add_flag(names, value, help);
    return *this;
}

const Command &Command::option(const char *names, std::string &value, const char *value_name, const char *help,
                               bool required) const {
    named(app_.add_option(names, value, help), value_name)->required(required);
    return *this;
}

const Command &Command::argument(const char *name, std::string &value, const char *help, bool required,
                                 std::vector<std::string> words) const {
    CLI::Option *option = app_.add_option(name, value, help)->required(required);
    if (!words.empty()) option->check(one_of(std::move(words)));
    return *this;
}

const Command &Command::arguments(const char *name, std::vector<std::string> &values, const char *help,
                                  bool required) const {
    app_.add_option(name, values, help)->required(required);
    return *this;
}

const Command &Command::json(bool &value) const { return flag("-J,--json", value, "print JSON"); }

const Command &Command::listing(ListingOptions &options) const {
    json(options.json);
    std::vector<CLI::Option *> formats{
        app_.get_option("--json"), app_.add_flag("--ndjson", options.ndjson, "print a line of JSON for each"),
        app_.add_flag("-r,--raw", options.raw, "print lines that are easy to split"),
        app_.add_flag("-P,--pairs", options.pairs, "print KEY=\"value\" pairs"),
        app_.add_flag("--tree", options.tree, "draw what belongs to what, as on a terminal")};
    for (std::size_t i = 0; i < formats.size(); ++i) {
        for (std::size_t j = i + 1; j < formats.size(); ++j) formats[i]->excludes(formats[j]);
    }
    option("-o,--output", options.columns, "COLUMN,...", "these columns; +COLUMN,... adds");
    flag("-O,--output-all", options.all_columns, "all columns");
    flag("-H,--list-columns", options.list_columns, "list the columns there are");
    option("-x,--sort", options.sort, "COLUMN", "order by a column; COLUMN:desc turns it");
    option("--filter", options.filter, "EXPR", "only what fits: 'size > 1T and rpm > 0'");
    flag("-b,--bytes", options.bytes, "print sizes in bytes");
    flag("-n,--noheadings", options.no_headings, "print no headings");
    return flag("-p,--paths", options.paths, "print whole device paths");
}

const Command &Command::timeout(double &seconds) const {
    named(app_.add_option("--timeout", seconds, "give up on a device or tool after this"), "SECONDS")
        ->check(CLI::Validator(check_seconds, ""));
    return *this;
}

std::chrono::milliseconds to_limit(double seconds) {
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(std::ceil(seconds * 1000)));
}

std::string help_of(const std::vector<std::string> &names) {
    const CLI::App *about = running;
    std::string above;
    for (const std::string &name : names) {
        const auto is_it = [&name](const CLI::App *command) { return command->get_name() == name; };
        const std::vector<const CLI::App *> found = about->get_subcommands(is_it);
        if (found.empty()) {
            throw WrongUsage("unknown command '" + name + "'" + did_you_mean(name, names_of_commands(*about)));
        }
        above += (above.empty() ? "" : " ") + about->get_name();
        about = found.front();
    }
    above += (above.empty() ? "" : " ") + about->get_name();
    // Not by the parser's own help(), which goes on to the command of this line.
    return about->get_formatter()->make_help(about, above, CLI::AppFormatMode::Normal);
}

// "complete" has words behind it that are no line yet, and the parser must not judge them.
static int complete(const CLI::App &tool, const std::vector<std::string> &words) {
    for (const Candidate &candidate : candidates(tool, {words.begin() + 1, words.end()})) {
        std::printf("%s\t%s\n", printable(candidate.word).c_str(), printable(candidate.about).c_str());
    }
    return kDone;
}

namespace {

// The rows that the line needs if it says nothing unusual: making the options of all commands takes longer than listing
// a few drives. Empty: all.
std::vector<CommandRow> rows_for(const std::vector<std::string> &words, const std::vector<CommandRow> &commands) {
    constexpr std::array<std::string_view, 5> kNeedAll{"help", "schema", "complete", "-h", "--help"};
    const CommandRow *needed = nullptr;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (std::find(kNeedAll.begin(), kNeedAll.end(), words[i]) != kNeedAll.end()) return {};
        for (const CommandRow &row : commands) {
            if (std::find(row.names.begin(), row.names.end(), words[i]) == row.names.end()) continue;
            if (i > 0) return {}; // an option's value, a second command, or options before the command
            needed = &row;
        }
    }
    return {needed == nullptr ? commands.front() : *needed};
}

// One reading of the line: the parser, what was chosen, and how it went.
class Line {
  public:
    Line(const std::vector<std::string> &words, const std::vector<CommandRow> &commands) : words_(words) {
        tool_.formatter(std::make_shared<HelpFormatter>());
        tool_.footer(kFooter);
        tool_.require_subcommand(1); // one command a line
        tool_.set_help_flag("-h,--help", "print this help");
        tool_.set_version_flag("-V,--version", "torvane " TORVANE_TOOL_VERSION, "print the version");
        for (const CommandRow &row : commands) row.add({tool_, chosen_});
        running = &tool_;
    }

    // Throws what is wrong with the line.
    void parse() {
        given_ = arranged(tool_, words_);
        std::vector<std::string> reversed(given_.rbegin(), given_.rend());
        tool_.parse(reversed);
        refuse_empty_values(tool_);
    }

    // Without a word when not: who knows all commands words it best.
    bool parses() {
        try {
            parse();
            return true;
        } catch (const CLI::Error &) {
            return false;
        }
    }

    int run() {
        try {
            return chosen_();
        } catch (const WrongUsage &error) {
            return refuse(error.what(), command_of(tool_));
        }
    }

    int parse_and_run() {
        if (!words_.empty() && words_.front() == "complete") return complete(tool_, words_);
        try {
            parse();
        } catch (const CLI::Success &request) {
            tool_.exit(request);
            return kDone;
        } catch (const CLI::ParseError &error) {
            return refuse(wording(error, tool_, given_), command_of(tool_));
        }
        return run();
    }

  private:
    const std::vector<std::string> &words_;
    CLI::App tool_{"List and look after the storage devices of this machine.", "torvane"};
    Action chosen_;
    std::vector<std::string> given_;
};

} // namespace

int run_line(const std::vector<std::string> &words, const std::vector<CommandRow> &commands) {
    if (const std::vector<CommandRow> needed = rows_for(words, commands); !needed.empty()) {
        Line line(words, needed);
        if (line.parses()) return line.run();
    }
    return Line(words, commands).parse_and_run();
}

} // namespace tool
