#include "torvane.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Stream = std::unique_ptr<FILE, decltype(&fclose)>;

Stream stream_of(const std::string &text) {
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    return {stream, &fclose};
}

// The lengths that get_line() gives, with the final 0, and that each text is as long as its length says.
std::vector<int> lengths(FILE *stream) {
    std::vector<int> found;
    for (;;) {
        char *line = nullptr;
        const int length = get_line(&line, stream);
        found.push_back(length);
        EXPECT_EQ(line == nullptr ? -1 : static_cast<int>(strlen(line)), length);
        free(line);
        if (length < 1) return found;
    }
}

} // namespace

TEST(Lines, AreReadWholeWhateverTheirLength) {
    const auto line = [](size_t length) { return std::string(length - 1, 'x') + '\n'; };
    const auto stream = stream_of(line(1) + line(2) + line(98) + line(99) + line(100) + line(199) + line(200) +
                                  line(251) + line(1 << 20) + std::string(99, 'y'));
    EXPECT_EQ(lengths(stream.get()), (std::vector<int>{1, 2, 98, 99, 100, 199, 200, 251, 1 << 20, 99, 0}));
    EXPECT_EQ(lengths(stream_of("").get()), std::vector<int>{0});
}

TEST(Lines, TheBufferDoubles) {
    const auto stream = stream_of(std::string(250, 'x') + '\n');
    char *line = nullptr;
    EXPECT_EQ(get_line(&line, stream.get()), 251);
    const size_t room = malloc_usable_size(line);
    EXPECT_GE(room, 400U);
    EXPECT_LT(room, 800U);
    free(line);
}

TEST(Lines, AreReadOnAfterASignal) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Stream stream(fdopen(ends[0], "r"), &fclose);
    struct sigaction handler = {}; // without SA_RESTART
    handler.sa_handler = [](int) {};
    sigaction(SIGALRM, &handler, nullptr);
    std::jthread writer([end = ends[1]] {
        for (const char *piece : {"one ", "line\nand ", "half\n", "rest"}) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EXPECT_GT(write(end, piece, strlen(piece)), 0);
        }
        close(end);
    });
    std::jthread alarms([reader = pthread_self()](const std::stop_token &stop) {
        while (!stop.stop_requested()) {
            pthread_kill(reader, SIGALRM);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(lengths(stream.get()), (std::vector<int>{9, 9, 4, 0}));
}

TEST(Lines, ErrorsLeaveNoLine) {
    char mark = 'x';
    char *line = &mark;
    const Stream unreadable(fopen("/", "r"), &fclose);
    ASSERT_NE(unreadable, nullptr);
    EXPECT_EQ(get_line(&line, unreadable.get()), -1);
    EXPECT_EQ(line, nullptr);
    line = &mark;
    EXPECT_EQ(get_line(&line, nullptr), -1);
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(get_line(nullptr, stdin), -1);
}
