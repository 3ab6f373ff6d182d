#include "isolate.h"
#include "records.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace {

using namespace tool;
using namespace std::chrono_literals;
using State = Outcome::State;

constexpr auto kLimit = 20s;

TEST(Isolate, AResultOfAnySizeComesBackWhole) {
    const std::string text(5'000'000, '\xff'); // more than a pipe holds, and not UTF-8
    const Outcome outcome = run_isolated([&text]() -> Wire { return {{"text", text}}; }, kLimit);
    ASSERT_EQ(outcome.state, State::kDone);
    EXPECT_EQ(outcome.result.at("text").get<std::string>(), text);
}

TEST(Isolate, AReaderThatDiesIsTold) {
    const Outcome killed = run_isolated(
        []() -> Wire {
            raise(SIGKILL);
            return nullptr;
        },
        kLimit);
    EXPECT_EQ(killed.state, State::kCrashed);
    EXPECT_EQ(killed.words, "the reader was ended by signal 9");
    const Outcome thrown = run_isolated([]() -> Wire { throw 1; }, kLimit);
    EXPECT_EQ(thrown.state, State::kCrashed);
    EXPECT_EQ(thrown.words, "the reader ended without a result");
}

TEST(Isolate, ALateReaderIsKilledWithTheCommandsItStarted) {
    char marker[] = "/tmp/isolate_test.XXXXXX";
    close(mkstemp(marker));
    const std::string command = "echo $$ > " + std::string(marker) + "; exec sleep 1000";
    const Outcome outcome = run_isolated([&]() -> Wire { return system(command.c_str()); }, 1500ms);
    EXPECT_EQ(outcome.state, State::kTimedOut);
    EXPECT_EQ(outcome.words, "no answer within 1.5 s");
    pid_t pid = 0;
    std::ifstream(marker) >> pid;
    unlink(marker);
    ASSERT_GT(pid, 0);
    for (int i = 0; i < 200 && kill(pid, 0) == 0; ++i) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
        std::string field;
        status >> field >> field >> field;
        if (field == "Z") break; // dead; whose child it now is may take its time
        usleep(50'000);
        ASSERT_LT(i, 199) << "the command still runs";
    }
}

TEST(Isolate, ManyHungReadersEndTogetherAndCostNobodyElseTheirAnswer) {
    Isolation isolation(3s);
    int late = 0;
    int done = 0;
    const auto count = [&](const Outcome &outcome) { ++(outcome.state == State::kDone ? done : late); };
    for (int i = 0; i < 40; ++i) {
        isolation.add({[i]() -> Wire {
                           if (i % 2 == 0) pause();
                           return i;
                       },
                       count});
    }
    const auto before = std::chrono::steady_clock::now();
    isolation.run();
    EXPECT_EQ(late, 20);
    EXPECT_EQ(done, 20);
    // One after the other they would take a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - before, 20s);
}

TEST(Isolate, NothingThatARunCommandPrintsGetsOut) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Outcome outcome =
        run_isolated([]() -> Wire { return system("echo out; echo error >&2; ls /proc/self/fd | wc -l"); }, kLimit);
    EXPECT_EQ(outcome.state, State::kDone);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Isolate, ARecordSurvivesTheJourney) {
    const Record before = unread_record("/dev/sda");
    before->model = strdup("M\xff");
    before->block_count = UINT64_MAX;
    before->geometry_result = static_cast<uint32_t>(-8);
    before->partitions.count = 1;
    before->partitions.entries = static_cast<PartitionRecord *>(calloc(1, sizeof(PartitionRecord)));
    before->partitions.entries[0] = {strdup("/dev/sda1"), 1, 4096};
    const Outcome outcome = run_isolated([&] { return record_to_wire(*before); }, kLimit);
    const Record after = record_from_wire(outcome.result);
    EXPECT_STREQ(after->name, "/dev/sda");
    EXPECT_STREQ(after->model, "M\xff");
    EXPECT_EQ(after->serial, nullptr);
    EXPECT_EQ(after->block_count, UINT64_MAX);
    EXPECT_EQ(after->major, -1);
    EXPECT_EQ(after->geometry_result, static_cast<uint32_t>(-8));
    ASSERT_EQ(after->partitions.count, 1U);
    EXPECT_STREQ(after->partitions.entries[0].name, "/dev/sda1");
}

} // namespace
