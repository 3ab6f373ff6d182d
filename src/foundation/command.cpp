#include "foundation/owners.h"
#include "torvane.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

using namespace torvane;

namespace {

struct Pipe {
    int read_end = -1;
    int write_end = -1;

    Pipe() noexcept {
        int ends[2] = {-1, -1};
        // A pipe that cannot be made leaves both ends at -1: the command then runs without that stream.
        if (pipe(ends) != 0) return;
        read_end = ends[0];
        write_end = ends[1];
    }
};

void close_end(int fd) noexcept {
    if (fd >= 0) close(fd);
}

[[noreturn]] void become_shell(const char *command, const Pipe &input, const Pipe &output, const Pipe &error) noexcept {
    close_end(input.write_end);
    close_end(output.read_end);
    close_end(error.read_end);
    dup2(input.read_end, STDIN_FILENO);
    dup2(output.write_end, STDOUT_FILENO);
    dup2(error.write_end, STDERR_FILENO);
    std::signal(SIGPIPE, SIG_IGN);
    execlp("/bin/sh", "/bin/sh", "-c", command, nullptr);
    _exit(1);
}

void hand_over(int fd, const char *mode, FILE **place) noexcept {
    FILE *stream = place == nullptr || fd < 0 ? nullptr : fdopen(fd, mode);
    if (stream == nullptr) close_end(fd);
    if (place != nullptr) *place = stream;
}

} // namespace

pid_t execute(const char *command, FILE **input, FILE **output, FILE **error) noexcept {
    if (command == nullptr) return -1;
    const Pipe to_child;
    const Pipe from_child;
    const Pipe complaints;
    const pid_t child = fork();
    // A machine that cannot fork cannot tell its storage either: callers rely on ending here.
    if (child < 0) std::exit(1);
    if (child == 0) become_shell(command, to_child, from_child, complaints);
    close_end(to_child.read_end);
    close_end(from_child.write_end);
    close_end(complaints.write_end);
    hand_over(to_child.write_end, "wb", input);
    hand_over(from_child.read_end, "rb", output);
    hand_over(complaints.read_end, "rb", error);
    return child;
}
