#include "foundation/owners.h"
#include "torvane.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

using namespace torvane;

namespace {

// Both ends close when a program is run, so that no child but the one that is meant holds them: a reader waits
// for its end of file until the last copy of the other end is gone.
struct Pipe {
    Descriptor read_end{-1};
    Descriptor write_end{-1};

    bool open() noexcept {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return false;
        read_end = Descriptor(ends[0]);
        write_end = Descriptor(ends[1]);
        return true;
    }
};

// Makes a descriptor one of the standard ones. A caller that has closed its own may have been given a pipe's end
// under the very number: that end must survive the shell's start.
void become(const Descriptor &end, int standard) noexcept {
    if (end.get() == standard) {
        fcntl(standard, F_SETFD, 0);
    } else {
        dup2(end.get(), standard);
    }
}

[[noreturn]] void become_shell(const char *command, const Pipe &input, const Pipe &output, const Pipe &error) noexcept {
    become(input.read_end, STDIN_FILENO);
    become(output.write_end, STDOUT_FILENO);
    become(error.write_end, STDERR_FILENO);
    std::signal(SIGPIPE, SIG_IGN);
    execlp("/bin/sh", "/bin/sh", "-c", command, nullptr);
    _exit(1);
}

void hand_over(Descriptor &end, const char *mode, FILE **place) noexcept {
    if (place == nullptr) return;
    *place = fdopen(end.get(), mode);
    if (*place != nullptr) (void)end.release();
}

} // namespace

pid_t execute(const char *command, FILE **input, FILE **output, FILE **error) noexcept {
    for (FILE **place : {input, output, error}) {
        if (place != nullptr) *place = nullptr;
    }
    if (command == nullptr) return -1;
    Pipe to_child;
    Pipe from_child;
    Pipe complaints;
    // Without its pipe a command would use the caller's own stream.
    if (!to_child.open() || !from_child.open() || !complaints.open()) return -1;
    const pid_t child = fork();
    // Ending the process here is part of the interface.
    if (child < 0) std::exit(1);
    if (child == 0) become_shell(command, to_child, from_child, complaints);
    hand_over(to_child.write_end, "wb", input);
    hand_over(from_child.read_end, "rb", output);
    hand_over(complaints.read_end, "rb", error);
    return child;
}
