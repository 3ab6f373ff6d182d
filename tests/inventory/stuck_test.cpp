// Readers that sleep in the kernel, deaf to SIGKILL: they write to a frozen file system.
#include "inventory/reading/workers.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using namespace inventory;
using namespace std::chrono_literals;

class Frozen : public testing::Test {
  protected:
    Frozen() {
        EXPECT_NE(mkdtemp(path_.data()), nullptr);
        is_frozen_ = run("cd " + path_ + " && mkdir m locks && chmod 700 locks && truncate -s 8M image && " +
                         "mkfs.ext4 -q image && mount -o loop image m && fsfreeze -f m");
    }
    ~Frozen() override {
        run("cd " + path_ + " && { fsfreeze -u m; umount m || umount -l m; }");
        std::filesystem::remove_all(path_);
    }
    static bool run(const std::string &command) {
        return std::system(("{ " + command + "; } 2>/dev/null").c_str()) == 0;
    }

    // One reader is stuck among forty. How many answered, and the words about that one.
    std::pair<int, std::string> read_all(const std::string &lock, std::chrono::milliseconds limit) const {
        std::pair<int, std::string> result;
        std::vector<Job> jobs(40, {[] { return std::string("good"); },
                                   [&](const Outcome &outcome) {
                                       if (outcome.answer == "good") ++result.first;
                                   }});
        const std::string file = path_ + "/m/file";
        jobs[7] = {[file] { return std::to_string(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)); },
                   [&](const Outcome &outcome) { result.second = outcome.words; }, [lock] { return lock; }};
        do_jobs(jobs, {.limit = limit, .lock_folder = path_ + "/locks"});
        return result;
    }

    // Processes of this program that sleep in the kernel.
    static std::size_t stuck() {
        std::size_t count = 0;
        const auto own = std::filesystem::read_symlink("/proc/self/exe");
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            std::error_code error;
            if (std::filesystem::read_symlink(entry.path() / "exe", error) != own) continue;
            std::string state;
            std::ifstream stat(entry.path() / "stat");
            if (stat >> state >> state >> state && state == "D") ++count;
        }
        return count;
    }

    bool is_frozen_ = false;
    std::string path_ = "/tmp/stuck_test.XXXXXX";
};

TEST_F(Frozen, AHundredRunsLeaveOneProcessAndAKilledProgramItsOwn) {
    if (!is_frozen_) GTEST_SKIP() << "freezing a file system needs root, a loop device and mkfs.ext4";
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(read_all("7:0", 1s), (std::pair<int, std::string>{39, "no answer within 1 s"}));
    EXPECT_LT(std::chrono::steady_clock::now() - before, 2s);
    for (int i = 1; i < 100; ++i) {
        const auto [answered, words] = read_all("7:0", 1s);
        ASSERT_EQ(answered, 39);
        ASSERT_TRUE(words.starts_with("has not answered since 2")) << words;
    }
    EXPECT_EQ(stuck(), 1U);
    const pid_t program = fork();
    if (program == 0) {
        read_all("7:1", 600s);
        _exit(0);
    }
    usleep(1'200'000);
    kill(program, SIGKILL);
    waitpid(program, nullptr, 0);
    EXPECT_TRUE(read_all("7:1", 1s).second.starts_with("has not answered since 2"));
    EXPECT_EQ(stuck(), 2U);
}

} // namespace
