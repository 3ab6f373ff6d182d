// torvane: the storage devices of this machine.
#include "commands/commands.h"
#include "output/messages.h"

#include <torvane.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

namespace tool {
namespace {

constexpr const char *kFooter = "Exit codes: 0 done, 1 failed, 2 wrong usage, 64 done in part.\n"
                                "'torvane COMMAND --help' tells more; so does 'man torvane'.";

constexpr void (*kCommands[])(CLI::App &, Action &) = {
    add_list_command,   add_show_command,  add_raid_command,     add_usb_command,
    add_mount_commands, add_wait_commands, add_firmware_command,
};

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
        return usage + " [OPTION...]\n";
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

// `torvane -J` and `torvane /dev/sda` are the list command, whose name may be left out.
std::vector<std::string> with_command(int argc, char **argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    constexpr std::array<std::string_view, 4> kOwn{"-h", "--help", "-V", "--version"};
    const bool own = !words.empty() && std::find(kOwn.begin(), kOwn.end(), words.front()) != kOwn.end();
    const bool plain = words.empty() || words.front().starts_with('-') || words.front().starts_with('/');
    if (plain && !own) words.insert(words.begin(), "list");
    return words;
}

std::string command_of(const CLI::App &tool) {
    const std::vector<CLI::App *> named = tool.get_subcommands();
    return named.empty() ? std::string() : named.front()->get_name();
}

// The parser's own words name types of this program.
std::string wording(const CLI::ParseError &error, const CLI::App &tool, const std::vector<std::string> &words) {
    std::string text = error.what();
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error)) return text.substr(0, text.find(':')) + " needs a value";
    if (dynamic_cast<const CLI::RequiredError *>(&error)) return text.substr(0, text.find(' ')) + " is missing";
    if (dynamic_cast<const CLI::ExtrasError *>(&error) == nullptr) return text;
    if (command_of(tool).empty()) return "unknown command '" + words.front() + "'";
    std::string unknown;
    for (const std::string &word : tool.remaining(true)) unknown = unknown.empty() ? word : unknown;
    return "unexpected argument '" + unknown + "'";
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

int parse_and_run(int argc, char **argv) {
    CLI::App tool("List and look after the storage devices of this machine.", "torvane");
    Action chosen;
    tool.formatter(std::make_shared<HelpFormatter>());
    tool.footer(kFooter);
    tool.set_help_flag("-h,--help", "print this help");
    tool.set_version_flag("-V,--version", "torvane " TORVANE_TOOL_VERSION, "print the version");
    for (const auto add : kCommands) add(tool, chosen);
    for (CLI::App *command : tool.get_subcommands({})) command->footer("");
    std::vector<std::string> words = with_command(argc, argv);
    const std::vector<std::string> as_given = words;
    std::reverse(words.begin(), words.end());
    try {
        tool.parse(words);
        refuse_empty_values(tool);
        return chosen();
    } catch (const CLI::Success &request) {
        tool.exit(request);
        return kDone;
    } catch (const CLI::ParseError &error) {
        return refuse(wording(error, tool, as_given), command_of(tool));
    }
}

// A full disk or a closed pipe behind standard output must not pass for success.
int flushed(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    complain(std::string("cannot write the output: ") + std::strerror(errno));
    return kFailed;
}

} // namespace
} // namespace tool

int main(int argc, char **argv) {
    // Who ignores it and starts the tool would have the kernel reap its workers, and their ends be unknown.
    std::signal(SIGCHLD, SIG_DFL);
    try {
        return tool::flushed(tool::parse_and_run(argc, argv));
    } catch (const std::exception &error) {
        tool::complain(error.what());
        return tool::kFailed;
    }
}
