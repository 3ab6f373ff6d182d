#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

using namespace torvane::world;

namespace {

using Commands = WorldTest;

// What a stream gives to its end; closes it.
std::string drained(FILE *stream) {
    std::string text;
    for (int c = fgetc(stream); c != EOF; c = fgetc(stream)) text += static_cast<char>(c);
    fclose(stream);
    return text;
}

int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST_F(Commands, DescriptorsAreTakenOrOpenedAndOnlyOpenedOnesClosed) {
    world.file("/dev/sda", "x");
    EXPECT_EQ(validate_fd(5, nullptr), 5);
    EXPECT_EQ(validate_fd(-1, nullptr), -1);
    EXPECT_EQ(validate_fd(-1, "/dev/sdb"), -1);
    for (const int none : {0, -1}) {
        const int fd = validate_fd(none, "/dev/sda");
        ASSERT_GT(fd, 0);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
        EXPECT_EQ(close_valid_fd(7, fd), fd) << "the caller's own stays open";
        EXPECT_NE(fcntl(fd, F_GETFD), -1);
        EXPECT_EQ(close_valid_fd(none, fd), 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    }
    EXPECT_EQ(close_valid_fd(-1, -1), -1);
    EXPECT_EQ(close_valid_fd(-1, 0), 0);
}

TEST_F(Commands, ADeviceOpenedAsDescriptor0IsNone) {
    world.file("/dev/sda", "x");
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(validate_fd(-1, "/dev/sda"), -1);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "left open";
    dup2(kept, STDIN_FILENO);
    close(kept);
}

TEST_F(Commands, FilesAreWrittenWholeOrFail) {
    world.file("/sys/bind", "longer than before");
    EXPECT_EQ(write_to_file("/sys/bind", "1"), 0);
    EXPECT_EQ(read_file("/sys/bind"), "1");
    EXPECT_EQ(write_to_file("/sys/new", ""), 0);
    EXPECT_EQ(read_file("/sys/new"), "");
    EXPECT_EQ(write_to_file("/dev/full", "1"), -1) << "refused by the kernel";
    EXPECT_EQ(write_to_file("/sys/none/bind", "1"), -1);
    EXPECT_EQ(write_to_file("/sys", "1"), -1);
    EXPECT_EQ(write_to_file(nullptr, "1"), -1);
    EXPECT_EQ(write_to_file("/sys/bind", nullptr), -1);
    EXPECT_EQ(read_file("/sys/bind"), "1");
}

TEST_F(Commands, StreamsReachTheChild) {
    world.program("arcconf", "read line; echo \"got $line\"; echo oops >&2; exit 3");
    FILE *input = nullptr;
    FILE *output = nullptr;
    FILE *error = nullptr;
    const pid_t child = execute("arcconf", &input, &output, &error);
    ASSERT_GT(child, 0);
    fputs("hello\n", input);
    fclose(input);
    EXPECT_EQ(drained(output), "got hello\n");
    EXPECT_EQ(drained(error), "oops\n");
    EXPECT_EQ(WEXITSTATUS(status_of(child)), 3);
}

TEST_F(Commands, UnwantedOutputNeitherBlocksNorKills) {
    const pid_t child = execute("i=0; while [ $i -lt 3000 ]; do echo 'a line that fills the pipe in time'; "
                                "echo more >&2; i=$((i+1)); done; exit 5",
                                nullptr, nullptr, nullptr);
    EXPECT_EQ(WEXITSTATUS(status_of(child)), 5);
    EXPECT_EQ(WTERMSIG(status_of(execute("kill -9 $$", nullptr, nullptr, nullptr))), SIGKILL);
    EXPECT_EQ(WEXITSTATUS(status_of(execute("no-such-command", nullptr, nullptr, nullptr))), 127);
    EXPECT_EQ(execute(nullptr, nullptr, nullptr, nullptr), -1);
}

TEST_F(Commands, AChildHoldsItsThreeEndsAndNoMore) {
    const int kept = dup(STDIN_FILENO);
    for (const bool has_input : {true, false}) { // without one, a pipe's end is descriptor 0
        if (!has_input) close(STDIN_FILENO);
        FILE *input = nullptr;
        FILE *output = nullptr;
        // What the tool leaves behind has its own streams: the reader must not wait for its end.
        const pid_t child =
            execute("sleep 60 </dev/null >/dev/null 2>&1 & read line; echo $line $!", &input, &output, nullptr);
        fputs("hello\n", input);
        fclose(input);
        int left_behind = 0;
        EXPECT_EQ(sscanf(drained(output).c_str(), "hello %d", &left_behind), 1);
        EXPECT_EQ(kill(left_behind, SIGKILL), 0) << "ended before its reader";
        EXPECT_EQ(status_of(child), 0);
        dup2(kept, STDIN_FILENO);
    }
    close(kept);
}

TEST_F(Commands, WithoutItsPipesACommandDoesNotRun) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const std::set<int> open = open_descriptors();
    for (const rlim_t free : {0U, 2U, 3U, 4U, 5U}) {
        FILE *places[] = {stdin, stdin, stdin};
        rlimit few = {free, limit.rlim_max};
        for (const int fd : open) few.rlim_cur += static_cast<rlim_t>(fd) < few.rlim_cur ? 1 : 0;
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_EQ(execute("touch /tmp/ran", &places[0], &places[1], &places[2]), -1) << free;
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(places[0] == nullptr && places[1] == nullptr && places[2] == nullptr, true) << free;
    }
    EXPECT_EQ(file_exists("/tmp/ran"), 0);
}

TEST_F(Commands, AMachineThatCannotForkEndsTheProcess) {
    EXPECT_EXIT(
        {
            answers().fork = [] { return -1; };
            execute("true", nullptr, nullptr, nullptr);
        },
        testing::ExitedWithCode(1), "");
}

} // namespace
