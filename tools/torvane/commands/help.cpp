// torvane help: the same as --help, where people look for it first.
#include "commands/commands.h"
#include "output/messages.h"

#include <cstdio>
#include <memory>

namespace tool {

void add_help_command(const Command &tool) {
    const auto names = std::make_shared<std::vector<std::string>>();
    tool.add("help", "Print the help of a command.",
             [names] {
                 std::fputs(help_of(*names).c_str(), stdout);
                 return static_cast<int>(kDone);
             })
        .arguments("COMMAND", *names, "the command; none: all of them");
}

} // namespace tool
