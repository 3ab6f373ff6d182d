#include "inventory/reading/command.h"

#include "tree.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

namespace {

using namespace inventory;
using std::chrono::milliseconds;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A /tmp of our own: other tests run commands at the same time.
void enter_private_tmp() {
    tests::enter_namespace();
    static const bool is_private = (tests::mount_at("/tmp"), true);
    ASSERT_TRUE(is_private);
}

// Seconds to sleep that no other test's process sleeps.
std::string long_sleep(int base) { return std::to_string(base + getpid()); }

CommandResult shell(const std::string &script, milliseconds time = milliseconds(20'000)) {
    CommandLimits limits;
    limits.time = time;
    return run_command({"/bin/bash", "-c", script}, limits);
}

// Processes whose command line holds the text; zombies have none.
unsigned running(const std::string &text) {
    unsigned count = 0;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "cmdline", std::ios::binary);
        std::string line;
        std::getline(file, line, '\xff'); // nothing of a process that ends meanwhile
        if (entry.path().filename() != std::to_string(getpid()) && line.find(text) != std::string::npos) ++count;
    }
    return count;
}

std::set<fs::path> scratch_folders() {
    std::set<fs::path> found;
    for (const auto &entry : fs::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with("torvane-")) found.insert(entry.path());
    }
    return found;
}

TEST(Command, RunsInALocaleAndFolderOfItsOwnAndLeavesNothing) {
    enter_private_tmp();
    const auto before = scratch_folders();
    const CommandResult result =
        shell("touch log; mkdir -p deep/er; pwd; echo $LC_ALL $LANG; ls; ls -l /proc/self/fd | "
              "wc -l; read -r line || echo closed; echo words >&2; exit 3");
    EXPECT_EQ(result.trouble, "");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.errors, "words\n");
    std::istringstream lines(result.output);
    std::string folder;
    std::getline(lines, folder);
    EXPECT_TRUE(folder.find("/torvane-") != std::string::npos) << folder;
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(result.output.substr(folder.size()),
              "\nC\ndeep\nlog\n5\nclosed\n"); // "total", 0, 1, 2 and the list itself
    EXPECT_EQ(scratch_folders(), before);
}

struct Case {
    const char *name;
    const char *script;
    const char *trouble;
};

class Unruly : public testing::TestWithParam<Case> {
  protected:
    void SetUp() override { enter_private_tmp(); }
};

TEST_P(Unruly, EndsInTimeWithAllThatCameOfIt) {
    const auto before = scratch_folders();
    const Clock::time_point begin = Clock::now();
    const std::string sleep = long_sleep(90'000'000);
    const CommandResult result = shell("S='sleep " + sleep + "'; export S; " + GetParam().script, milliseconds(1000));
    EXPECT_LT(Clock::now() - begin, milliseconds(6000));
    EXPECT_EQ(result.trouble, GetParam().trouble);
    EXPECT_EQ(running("sleep" + std::string(1, '\0') + sleep), 0U);
    EXPECT_LE(result.output.size(), CommandLimits().output);
    EXPECT_EQ(scratch_folders(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, Unruly,
    testing::Values(Case{"Endless", "$S", "no answer within 1 s"},
                    Case{"IgnoresTerm", "trap '' TERM; while :; do $S; done", "no answer within 1 s"},
                    Case{"Daemon", "setsid --fork $S; echo done", ""},
                    Case{"DaemonThatIgnoresTerm", "(trap '' TERM; setsid bash -c 'setsid $S & $S' &) ; echo", ""},
                    Case{"SilentWithClosedOutput", "exec >&- 2>&-; $S", "no answer within 1 s"},
                    Case{"EndlessOutput", "yes", "more than 16 MiB of output"},
                    Case{"OneGigabyte", "head -c 1000000000 /dev/zero", "more than 16 MiB of output"},
                    Case{"OneLongLine", "head -c 300000000 /dev/zero | tr '\\0' x", "more than 16 MiB of output"},
                    Case{"ErrorsForEver", "yes >&2", "no answer within 1 s"},
                    Case{"Killed", "kill -SEGV $$", "ended by a signal: Segmentation fault"}),
    [](const auto &tested) { return tested.param.name; });

TEST(Command, CannotBeRun) {
    EXPECT_EQ(run_command({"/nowhere/tool"}, {}).trouble, "cannot be run: No such file or directory");
    EXPECT_EQ(run_command({"/etc/passwd"}, {}).trouble, "cannot be run: Permission denied");
}

TEST(Command, WorksForACallerThatIgnoresItsChildren) {
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    const CommandResult result = shell("echo here; exit 7");
    std::signal(SIGCHLD, before);
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.output, "here\n");
}

// What a caller's death leaves behind: nothing.
TEST(Command, GoesWithItsCaller) {
    enter_private_tmp();
    const std::string sleep = long_sleep(80'000'000);
    const auto before = scratch_folders();
    const pid_t caller = fork();
    if (caller == 0) {
        shell("setsid --fork sleep " + sleep + "; sleep " + sleep);
        _exit(0);
    }
    for (int i = 0; i < 200 && running(sleep) < 2; ++i) std::this_thread::sleep_for(milliseconds(20));
    ASSERT_GE(running(sleep), 2U);
    kill(caller, SIGKILL);
    waitpid(caller, nullptr, 0);
    for (int i = 0; i < 200 && (running(sleep) > 0 || scratch_folders() != before); ++i) {
        std::this_thread::sleep_for(milliseconds(20));
    }
    EXPECT_EQ(running(sleep), 0U);
    EXPECT_EQ(scratch_folders(), before);
}

TEST(ToolLock, HasOneHolderAndWaitsNoLongerThanItMay) {
    if (geteuid() != 0) GTEST_SKIP() << "the lock's folder is root's";
    const Clock::time_point begin = Clock::now();
    {
        const ToolLock first(milliseconds(20'000));
        ASSERT_EQ(first.trouble(), "");
        const ToolLock second(milliseconds(100));
        EXPECT_EQ(second.trouble(), "another run of RAID tools has not ended within 100 ms");
    }
    EXPECT_EQ(ToolLock(milliseconds(1000)).trouble(), "");
    EXPECT_LT(Clock::now() - begin, milliseconds(20'000));
}

} // namespace
