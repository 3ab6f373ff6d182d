// The tool's firmware command on a scripted drive: the file is whole or not there.
#include "commands/commands.h"

#include "world.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

using namespace torvane::world;

namespace {

constexpr int kSectors = 80;

class FirmwareCommand : public WorldTest {
  protected:
    FirmwareCommand() : disk_(world.disk({.name = "sda", .vendor = "ATA", .model = "Innodisk 3ME"})) {
        world.directory("/tmp/out");
        std::string image;
        for (int sector = 0; sector < kSectors; ++sector) image += std::string(512, static_cast<char>(sector + 1));
        image_ = image;
    }

    // Sectors that name themselves; at one of them the drive sticks for longer than any test waits, but not for
    // good: a killed tool leaves its reader behind until the drive lets go.
    void answer(int stuck_sector = -1) const {
        disk_->be_innodisk(0, [stuck_sector](int sector) { return sector == stuck_sector && sleep(5) != 0; });
    }

    static int run(const std::vector<std::string> &words) { return tool::run_line(words, tool::all_commands()); }

    static std::vector<std::string> files() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator("/tmp/out")) names.push_back(entry.path());
        return names;
    }

    std::shared_ptr<FakeDisk> disk_;
    std::string image_;
};

TEST_F(FirmwareCommand, WritesExactlyTheImageAndReplacesOnlyByForce) {
    answer();
    EXPECT_EQ(run({"firmware", "/dev/sda", "-o", "/tmp/out/image"}), 0);
    EXPECT_EQ(image_.size(), 40960U);
    EXPECT_TRUE(read_file("/tmp/out/image") == image_);
    world.file("/tmp/out/image", "mine");
    EXPECT_EQ(run({"firmware", "/dev/sda", "-o", "/tmp/out/image"}), 1);
    EXPECT_EQ(read_file("/tmp/out/image"), "mine");
    EXPECT_EQ(run({"firmware", "/dev/sda", "-o", "/tmp/out/image", "--force"}), 0);
    EXPECT_TRUE(read_file("/tmp/out/image") == image_);
    EXPECT_EQ(files(), std::vector<std::string>{"/tmp/out/image"});
}

TEST_F(FirmwareCommand, LeavesNothingOfADriveThatStopsAnswering) {
    answer(kSectors / 2);
    EXPECT_EQ(run({"firmware", "/dev/sda", "-o", "/tmp/out/image", "--timeout", "0.5"}), 1);
    EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(FirmwareCommand, LeavesNothingWhenKilledHalfWay) {
    answer(kSectors / 2);
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) _exit(run({"firmware", "/dev/sda", "-o", "/tmp/out/image"}));
        usleep(300'000); // long enough to be stuck in the middle of the image
        ASSERT_EQ(kill(child, signal), 0);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status)) << signal;
        EXPECT_EQ(files(), std::vector<std::string>{}) << signal;
    }
}

} // namespace
