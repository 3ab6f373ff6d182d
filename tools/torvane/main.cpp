// torvane: the storage devices of this machine.
#include "commands/commands.h"
#include "output/messages.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

namespace tool {
namespace {

// A full disk or a closed pipe behind standard output must not pass for success.
int flushed(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    complain(std::string("cannot write the output: ") + std::strerror(errno));
    return kFailed;
}

// Words that need no memory. Destructors of the JSON library do, and cannot throw.
[[noreturn]] void end_without_memory() {
    std::fputs("torvane: not enough memory\n", stderr);
    std::_Exit(kFailed);
}

void on_terminate() {
    try {
        if (const std::exception_ptr cause = std::current_exception()) std::rethrow_exception(cause);
    } catch (const std::bad_alloc &) {
        end_without_memory();
    } catch (...) { // a fault of the program
    }
    std::abort();
}

} // namespace
} // namespace tool

int main(int argc, char **argv) {
    std::set_terminate(tool::on_terminate);
    // Who ignores it and starts the tool would have the kernel reap its workers, and their ends be unknown.
    std::signal(SIGCHLD, SIG_DFL);
    try {
        return tool::flushed(tool::run_line({argv + 1, argv + argc}, tool::all_commands()));
    } catch (const std::bad_alloc &) {
        tool::end_without_memory();
    } catch (const std::exception &error) {
        tool::complain(error.what());
        return tool::kFailed;
    }
}
