#include "raid/tool.h"

#include "foundation/errors.h"
#include "foundation/interruptions.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstring>

namespace torvane {
namespace {

// Takes the status of waitpid(). False, with errno set, when nobody can tell how the process ended: the kernel has
// forgotten it if the caller ignores SIGCHLD.
bool wait_for(pid_t pid, int &status) noexcept {
    Interruptions interruptions;
    while (waitpid(pid, &status, 0) == -1) {
        if (!interruptions.again()) return false;
    }
    return true;
}

void drain(FILE *stream) noexcept {
    char rest[4096];
    Interruptions interruptions;
    while (std::fread(rest, 1, sizeof rest, stream) == sizeof rest || std::ferror(stream) != 0) {
        if (std::ferror(stream) == 0) continue;
        if (!interruptions.again()) return;
        std::clearerr(stream);
    }
}

bool close_and_wait(RunningTool &running, int &status) noexcept {
    if (running.output) drain(running.output.get());
    running.output.reset();
    return wait_for(running.pid, status);
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
    int status = 0;
    if (pid > 0) (void)wait_for(pid, status);
    return running;
}

int finish_tool(const Tool &tool, RunningTool &running) noexcept {
    int status = 0;
    if (!close_and_wait(running, status)) return fail_end(tool, std::strerror(errno));
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
    int status = 0;
    return pid > 0 && close_and_wait(running, status) && status == 0;
}

} // namespace torvane
