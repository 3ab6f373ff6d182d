// torvane: the storage devices of this machine.
#include "commands/commands.h"
#include "output/messages.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

namespace tool {
namespace {

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
        return tool::flushed(tool::run_line({argv + 1, argv + argc}, tool::add_commands));
    } catch (const std::exception &error) {
        tool::complain(error.what());
        return tool::kFailed;
    }
}
