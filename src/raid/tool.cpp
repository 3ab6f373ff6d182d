#include "raid/tool.h"

#include "foundation/errors.h"

#include <sys/types.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>

namespace torvane {
namespace {

// The status of waitpid(); 0 when the process is nobody's child any more (the caller ignores SIGCHLD).
int wait_for(pid_t pid) noexcept {
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR) return 0;
    }
    return status;
}

void drain(FILE *stream) noexcept {
    char rest[4096];
    while (std::fread(rest, 1, sizeof rest, stream) > 0) {
    }
}

int close_and_wait(RunningTool &running) noexcept {
    drain(running.output.get());
    running.output.reset();
    return wait_for(running.pid);
}

int fail_end(const Tool &tool, const char *reason) noexcept {
    if (tool.end_names_command) return fail(kRaid, "%s '%s' (%s)", tool.end_failure, tool.command, reason);
    return fail(kRaid, "%s (%s)", tool.end_failure, reason);
}

} // namespace

RunningTool start_tool(const Tool &tool) noexcept {
    FILE *output = nullptr;
    const pid_t pid = execute(tool.command, nullptr, &output, nullptr);
    RunningTool running{pid, File(output)};
    if (running.output) return running;
    (void)fail(kRaid, "%s '%s' (%s)", tool.start_failure, tool.command, std::strerror(errno));
    // The shell may run without a pipe to us; nobody else would reap it.
    if (pid > 0) (void)wait_for(pid);
    return running;
}

int finish_tool(const Tool &tool, RunningTool &running) noexcept {
    const int status = close_and_wait(running);
    if (WTERMSIG(status) != 0) return fail_end(tool, "killed process");
    if (WEXITSTATUS(status) == 0) return 0;
    char reason[32];
    (void)std::snprintf(reason, sizeof reason, "exit code %d", WEXITSTATUS(status));
    return fail_end(tool, reason);
}

bool command_succeeds(const char *command) noexcept {
    FILE *output = nullptr;
    const pid_t pid = execute(command, nullptr, &output, nullptr);
    RunningTool running{pid, File(output)};
    if (pid < 1) return false;
    return running.output ? close_and_wait(running) == 0 : wait_for(pid) == 0;
}

} // namespace torvane
