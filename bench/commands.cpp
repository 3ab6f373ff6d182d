// How long whole commands take, in turn: each process from its start to its end.
//   commands ROUNDS 'COMMAND ARGUMENT...'...      milliseconds of its fastest run and exit status of each
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Command {
    std::string line;
    std::vector<std::string> words;
    double fastest = HUGE_VAL;
    int status = 0;
};

Command command_of(const char *line) {
    Command command{.line = line, .words = {}};
    std::istringstream stream(line);
    for (std::string word; stream >> word;) command.words.push_back(word);
    return command;
}

// The exit status; -1 when the command could not be started or was killed.
int run(const Command &command) {
    std::vector<char *> arguments;
    for (const std::string &word : command.words) arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t silence;
    posix_spawn_file_actions_init(&silence);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&silence, fd, "/dev/null", O_WRONLY, 0);
    }
    pid_t child = -1;
    int status = -1;
    const bool started = posix_spawnp(&child, arguments[0], &silence, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&silence);
    if (!started || waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void measure(Command &command) {
    const auto begin = std::chrono::steady_clock::now();
    command.status = run(command);
    const auto end = std::chrono::steady_clock::now();
    command.fastest = std::min(command.fastest, std::chrono::duration<double, std::milli>(end - begin).count());
}

} // namespace

int main(int argc, char **argv) {
    const long rounds = argc > 2 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (rounds < 1) {
        std::fputs("usage: commands ROUNDS 'COMMAND ARGUMENT...'...\n", stderr);
        return 2;
    }
    std::vector<Command> commands;
    for (int i = 2; i < argc; ++i) commands.push_back(command_of(argv[i]));
    for (Command &command : commands) (void)run(command); // not counted: it fills the caches
    for (long round = 0; round < rounds; ++round) std::ranges::for_each(commands, measure);
    for (const Command &command : commands) {
        std::printf("%s\t%.3f\t%d\n", command.line.c_str(), command.fastest, command.status);
    }
}
