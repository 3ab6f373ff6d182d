#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <thread>

using namespace torvane::world;

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kMoment = std::chrono::milliseconds(50);

struct ReleaseMonitor {
    void operator()(FileMonitor *monitor) const { release_monitor(monitor); }
};
using Monitor = std::unique_ptr<FileMonitor, ReleaseMonitor>;

class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe(ends_.data()), 0); }
    ~Pipe() {
        for (const int end : ends_) close(end);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    int reader() const { return ends_[0]; }
    void send() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }

  private:
    std::array<int, 2> ends_{};
};

class FileMonitorTest : public WorldTest {
  protected:
    FileMonitorTest() {
        for (const char *path : {"/tmp/tree/a/deep", "/tmp/tree/b", "/tmp/tree/.hidden"}) world.directory(path);
        world.file("/tmp/tree/file", "");
        world.link("/tmp/tree/link", "/dev");
    }

    static Watch *watch_of(const Monitor &monitor, const std::string &path) {
        for (uint32_t i = 0; i < monitor->watch_count; ++i) {
            if (path == monitor->watches[i].path) return &monitor->watches[i];
        }
        return nullptr;
    }

    // "directory name mask" of the next event, "" when none is returned.
    static std::string next_event(const Monitor &monitor, int cancel) {
        inotify_event *event = wait_for_event(monitor.get(), cancel);
        if (event == nullptr) return "";
        const Watch *watch = get_watch(monitor.get(), event->wd);
        std::string text = std::string(watch == nullptr ? "?" : watch->path) + " " +
                           (event->len == 0 ? "" : event->name) + " " + std::to_string(event->mask);
        release_event(event);
        return text;
    }

    static bool has_event(const Monitor &monitor) {
        pollfd state = {monitor->fd, POLLIN, 0};
        return poll(&state, 1, 0) == 1;
    }
};

TEST_F(FileMonitorTest, WatchesTheTreeButNothingHiddenOrLinked) {
    const Monitor monitor(monitor_directory("/tmp/tree"));
    ASSERT_TRUE(monitor);
    ASSERT_EQ(monitor->watch_count, 4U);
    EXPECT_STREQ(monitor->watches[0].path, "/tmp/tree");
    const Pipe cancel;
    world.file("/tmp/tree/.hidden/unseen", "");
    world.file("/tmp/tree/a/deep/seen", "");
    EXPECT_EQ(next_event(monitor, cancel.reader()), "/tmp/tree/a/deep seen " + std::to_string(IN_CREATE));
    rmdir("/tmp/tree/b");
    EXPECT_EQ(next_event(monitor, cancel.reader()), "/tmp/tree/b  " + std::to_string(IN_DELETE_SELF));
    EXPECT_EQ(monitor_directory("/tmp/missing"), nullptr);
    EXPECT_EQ(monitor_directory(nullptr), nullptr);
}

TEST_F(FileMonitorTest, RemovedWatchesAreSilentAndTheRestStay) {
    const Monitor monitor(monitor_directory("/tmp/tree"));
    ASSERT_TRUE(monitor);
    Watch gone = *watch_of(monitor, "/tmp/tree/a/deep"); // a copy serves: the descriptor says which
    EXPECT_EQ(remove_watch(monitor.get(), &gone), 0);
    EXPECT_EQ(remove_watch(monitor.get(), &gone), -1);
    EXPECT_EQ(get_watch(monitor.get(), gone.wd), nullptr);
    world.file("/tmp/tree/a/deep/unseen", "");
    struct pollfd state = {monitor->fd, POLLIN, 0};
    inotify_event *ignored = poll(&state, 1, 0) == 1 ? read_event(monitor->fd) : nullptr;
    ASSERT_NE(ignored, nullptr);
    EXPECT_EQ(ignored->mask & IN_IGNORED, static_cast<uint32_t>(IN_IGNORED));
    release_event(ignored);
    EXPECT_FALSE(has_event(monitor));
    for (const char *path : {"/tmp/tree", "/tmp/tree/a", "/tmp/tree/b"}) {
        Watch *watch = watch_of(monitor, path);
        ASSERT_NE(watch, nullptr) << path;
        EXPECT_EQ(remove_watch(monitor.get(), watch), 0) << path;
    }
    EXPECT_EQ(monitor->watch_count, 0U);
    EXPECT_EQ(monitor->watches, nullptr);
    EXPECT_EQ(add_watch(monitor.get(), "/tmp/tree/a"), 0);
    EXPECT_EQ(add_watch(monitor.get(), "/tmp/missing"), -1);
    EXPECT_EQ(add_watch_fd(monitor.get(), nullptr, 77), -1);
    EXPECT_EQ(monitor->watch_count, 1U);
}

TEST_F(FileMonitorTest, TheLowerDescriptorDecidesBetweenEventAndCancellation) {
    const Pipe lower;
    const Monitor monitor(monitor_directory("/tmp/tree"));
    const Pipe higher;
    ASSERT_TRUE(monitor);
    for (const Pipe *cancel : {&lower, &higher}) {
        cancel->send();
        EXPECT_EQ(next_event(monitor, cancel->reader()), "");
    }
    world.file("/tmp/tree/one", "");
    for (const Pipe *cancel : {&lower, &higher}) cancel->send();
    EXPECT_EQ(next_event(monitor, lower.reader()), "");
    EXPECT_EQ(next_event(monitor, higher.reader()), "/tmp/tree one " + std::to_string(IN_CREATE));
}

TEST_F(FileMonitorTest, DescriptorsOfAnyNumberWork) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit raised = {std::max<rlim_t>(limit.rlim_cur, 1100), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    const Monitor monitor(monitor_directory("/tmp/tree"));
    ASSERT_TRUE(monitor);
    const Pipe cancel;
    const int high_cancel = fcntl(cancel.reader(), F_DUPFD, 1024);
    const int low = monitor->fd;
    const int high = fcntl(low, F_DUPFD, 1025); // beyond what select() can take
    for (const int fd : {low, high}) {
        monitor->fd = fd;
        for (const int cancel_fd : {cancel.reader(), high_cancel}) {
            world.file("/tmp/tree/one", "");
            EXPECT_EQ(next_event(monitor, cancel_fd), "/tmp/tree one " + std::to_string(IN_CREATE));
            EXPECT_EQ(wait_for_file_event(fd, "one", 0), 1);
            world.file("/tmp/tree/two", "");
            EXPECT_EQ(wait_for_file_event(fd, "tw", 0), 0);
            for (const char *path : {"/tmp/tree/one", "/tmp/tree/two"}) world.remove(path);
            cancel.send();
            EXPECT_EQ(next_event(monitor, cancel_fd), "");
        }
        EXPECT_EQ(wait_for_event(monitor.get(), -1), nullptr);
    }
    monitor->fd = low;
    close(high);
    close(high_cancel);
    EXPECT_EQ(wait_for_file_event(high, "one", 60), -1) << "not open";
    EXPECT_EQ(wait_for_file_event(-1, "one", 60), -1);
    EXPECT_EQ(wait_for_file_event(cancel.reader(), nullptr, 60), -1);
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(FileMonitorTest, WaitsEndWithTheFile) {
    const auto later = [](auto action) {
        return std::jthread([action] {
            std::this_thread::sleep_for(kMoment);
            action();
        });
    };
    {
        const auto creation = later([this] { world.file("/tmp/tree/sdb1", ""); });
        EXPECT_EQ(wait_till_file_is_created("/tmp/tree", "sd", 5), 0) << "a longer name counts";
    }
    {
        const auto deletion = later([] { unlink("/tmp/tree/sdb1"); });
        EXPECT_EQ(wait_till_file_is_deleted("/tmp/tree", "sdb1", 5), 0);
    }
    {
        const auto move = later([] { rename("/tmp/tree/file", "/tmp/file"); });
        EXPECT_EQ(wait_till_file_is_deleted("/tmp/tree", "file", 5), 0);
    }
    answers().inotify_init = [] { return -1; }; // what is so already needs no watch
    EXPECT_EQ(wait_till_file_is_created("/tmp", "file", 5), 0);
    EXPECT_EQ(wait_till_file_is_deleted("/tmp", "none", 5), 0);
    EXPECT_EQ(wait_till_file_is_created("/tmp", "none", 5), -1);
    for (const auto wait : {wait_till_file_is_created, wait_till_file_is_deleted}) {
        EXPECT_EQ(wait(nullptr, "file", 0), -1);
        EXPECT_EQ(wait("/tmp", nullptr, 0), -1);
    }
}

TEST_F(FileMonitorTest, TheTimeOutIsThatOfTheWholeWait) {
    for (const auto pause : {kMoment, kMoment * 0}) { // now and then, and without end
        std::jthread noise([pause](const std::stop_token &stop) {
            while (!stop.stop_requested()) {
                rename("/tmp/tree/file", "/tmp/tree/other");
                rename("/tmp/tree/other", "/tmp/tree/file");
                std::this_thread::sleep_for(pause);
            }
        });
        const auto start = Clock::now();
        EXPECT_EQ(wait_for_file_event_type("/tmp/tree", "wanted", 1, IN_MOVE), 1);
        const auto taken = Clock::now() - start;
        EXPECT_GE(taken, std::chrono::milliseconds(950));
        EXPECT_LT(taken, std::chrono::seconds(3));
    }
    EXPECT_EQ(wait_for_file_event_type("/tmp/missing", "wanted", 1, IN_CREATE), -1);
}

TEST_F(FileMonitorTest, ManyWaitsLeaveNothingBehind) {
    // The kernel gives a user no more instances than this unless told to.
    for (int i = 0; i < 130; ++i) {
        ASSERT_EQ(wait_till_file_is_created("/tmp/tree", "none", 0), -1);
        ASSERT_EQ(wait_till_file_is_deleted("/tmp/tree", "file", 0), -1);
        ASSERT_TRUE(Monitor(monitor_directory("/tmp/tree"))) << i;
    }
}

} // namespace
