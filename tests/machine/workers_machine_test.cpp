// Drives that answer, that are offline, and that swallow every command. Runs in the machine `stuck`, as root. The
// tests build on each other: a disk that has swallowed a command holds its reader for a minute.
#include "inventory/drives/drives.h"
#include "inventory/kernel/kernel.h"
#include "inventory/reading/in_use.h"
#include "readers.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/cdrom.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using namespace inventory;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void write_to(const std::string &path, const std::string &text) {
    std::ofstream file(path);
    file << text << std::flush;
    ASSERT_TRUE(file) << path;
}

Machine machine() {
    Machine found;
    read_kernel(found, {});
    return found;
}

// Things stay where they are, whatever becomes of the machine around them.
Thing *of_serial(Machine &machine, const std::string &serial) {
    for (Thing &thing : machine.things()) {
        const Fact *fact = thing.fact("serial");
        if (fact == nullptr || thing.kind() == ThingKind::kUsbInterface) continue;
        for (const Word &word : fact->words) {
            if (word.value == Value(serial)) return &thing;
        }
    }
    return nullptr;
}

// The disks of the kernel's own making.
std::vector<Thing *> debug_disks(Machine &machine) {
    std::vector<Thing *> found;
    for (Thing &thing : machine.things()) {
        if (thing.text("driver") == "scsi_debug" && thing.kind() == ThingKind::kDrive) found.push_back(&thing);
    }
    return found;
}

const Word *word_of_drive(const Thing &thing, const std::string &key) {
    const Fact *fact = thing.fact(key);
    if (fact == nullptr) return nullptr;
    for (const Word &word : fact->words) {
        if (word.source == Source::kDrive) return &word;
    }
    return nullptr;
}

constexpr const char *kAnswering[] = {"SATA0001", "RPM7200", "RPM5400", "STICK0001"};

void expect_answers(Machine &machine) {
    for (const char *serial : kAnswering) {
        const Thing *drive = of_serial(machine, serial);
        ASSERT_NE(drive, nullptr) << serial;
        const Word *word = word_of_drive(*drive, "serial");
        ASSERT_NE(word, nullptr) << serial;
        EXPECT_EQ(word->value, Value(std::string(serial)));
    }
}

// Processes of this program but this one: readers that wait for a disk.
std::vector<pid_t> readers() {
    std::vector<pid_t> found;
    const auto own = std::filesystem::read_symlink("/proc/self/exe");
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code error;
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid <= 0 || pid == getpid()) continue;
        if (std::filesystem::read_symlink(entry.path() / "exe", error) == own) found.push_back(pid);
    }
    return found;
}

TEST(Drives, TellWhatTheKernelTellsOrMore) {
    Machine found = machine();
    read_drives(found, {.limit = 60s, .defects = true, .state = true});
    expect_answers(found);
    settle(found);
    ASSERT_EQ(debug_disks(found).size(), 2U);
    for (const Thing *disk : debug_disks(found)) {
        EXPECT_TRUE(disk->troubles.empty() || !disk->troubles.front().essential);
        EXPECT_NE(word_of_drive(*disk, "serial"), nullptr) << disk->id();
    }
    const Thing &stick = *of_serial(found, "STICK0001");
    EXPECT_EQ(stick.fact("grown_defects"), nullptr) << "sticks have no defect lists";
    EXPECT_EQ(of_serial(found, "RPM7200")->number("rpm"), 7200U);
    EXPECT_TRUE(std::filesystem::is_empty("/run/torvane")) << "all locks are gone";
}

TEST(Drives, OneThatIsOfflineKeepsItsRowWithTheReason) {
    Machine found = machine();
    Thing &disk = *of_serial(found, "RPM5400");
    const std::string state = "/sys/block/" + disk.id() + "/device/state";
    write_to(state, "offline\n"); // the kernel wants the line whole
    read_drives(found, {.limit = 60s, .only = {&disk}});
    write_to(state, "running\n");
    ASSERT_EQ(disk.troubles.size(), 1U);
    EXPECT_EQ(disk.troubles[0].words, "failed to open: No such device or address");
    EXPECT_TRUE(disk.number("size").has_value());
}

TEST(Drives, AnotherDeviceInItsPlaceIsNotAskedForIt) {
    Machine found = machine();
    const std::vector<Thing *> disks = debug_disks(found);
    ASSERT_EQ(disks.size(), 2U);
    for (const char *hosts : {"-1", "1"}) write_to("/sys/bus/pseudo/drivers/scsi_debug/add_host", hosts);
    for (const Thing *disk : disks) {
        EXPECT_TRUE(truth::holds_soon([&] { return std::filesystem::exists(disk->text("path")); }));
    }
    truth::output_of("udevadm settle");
    read_drives(found, {.limit = 60s, .only = disks});
    for (const Thing *disk : disks) {
        ASSERT_EQ(disk->troubles.size(), 1U);
        EXPECT_EQ(disk->troubles[0].words, "failed to open: another device has taken its place");
    }
}

TEST(Drives, AnOpenTrayStaysOpen) {
    Machine found = machine();
    const auto optical = std::find_if(found.things().begin(), found.things().end(),
                                      [](const Thing &thing) { return thing.kind() == ThingKind::kOptical; });
    ASSERT_NE(optical, found.things().end());
    const std::string path = optical->text("path");
    // The device manager may have locked the door.
    ASSERT_EQ(std::system(("sg_prevent --allow " + path + "; sg_start --eject " + path).c_str()), 0);
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_EQ(ioctl(fd, CDROM_DRIVE_STATUS, 0), CDS_TRAY_OPEN);
    read_drives(found, {.limit = 60s, .only = {&*optical}});
    EXPECT_NE(word_of_drive(*optical, "serial"), nullptr);
    EXPECT_EQ(ioctl(fd, CDROM_DRIVE_STATUS, 0), CDS_TRAY_OPEN);
    close(fd);
}

TEST(Drives, WhoUsesOneIsSeenFromOutsideItsNamespace) {
    Machine found = machine();
    const Thing &disk = *of_serial(found, "RPM7200");
    const std::string path = disk.text("path");
    EXPECT_EQ(ask_for_device_alone(path, disk.text("maj_min"), 60s).state, Claim::State::kFree);
    ASSERT_EQ(std::system(("mkfs.ext4 -q " + path).c_str()), 0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t container = fork();
    if (container == 0) {
        const bool mounted = unshare(CLONE_NEWNS) == 0 && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount(path.c_str(), "/mnt", "ext4", 0, nullptr) == 0;
        if (write(ready[1], mounted ? "y" : "n", 1) != 1) _exit(1);
        pause();
    }
    char mounted = 'n';
    ASSERT_EQ(read(ready[0], &mounted, 1), 1);
    EXPECT_EQ(mounted, 'y');
    EXPECT_EQ(ask_for_device_alone(path, disk.text("maj_min"), 60s).state, Claim::State::kUsed);
    const auto mounts = mounts_elsewhere();
    EXPECT_TRUE(std::any_of(mounts.begin(), mounts.end(), [&](const ForeignMount &place) {
        return place.number == disk.text("maj_min") && place.source == path && place.place == "/mnt" &&
               place.process.starts_with(std::to_string(container) + " (");
    }));
    kill(container, SIGKILL);
    waitpid(container, nullptr, 0);
}

TEST(Hung, OneDiskCostsItsOwnRowOnlyAndOneProcess) {
    Machine found = machine();
    const std::vector<Thing *> disks = debug_disks(found);
    ASSERT_EQ(disks.size(), 2U);
    write_to("/proc/sys/vm/drop_caches", "3");
    write_to("/sys/bus/pseudo/drivers/scsi_debug/opts", "4");
    write_to("/sys/bus/pseudo/drivers/scsi_debug/every_nth", "1");
    std::vector<Thing *> only;
    for (Thing &thing : found.things()) {
        if (&thing != disks[1]) only.push_back(&thing);
    }
    const auto before = Clock::now();
    read_drives(found, {.limit = 3s, .only = only});
    EXPECT_LT(Clock::now() - before, 4s);
    expect_answers(found);
    ASSERT_EQ(disks[0]->troubles.size(), 1U);
    EXPECT_EQ(disks[0]->troubles[0].words, "no answer within 3 s");
    EXPECT_EQ(disks[0]->fact("serial")->reason, "no answer within 3 s");
    EXPECT_TRUE(disks[0]->number("size").has_value()) << "the kernel knows it";
    EXPECT_LE(readers().size(), 1U);

    for (int run = 0; run < 100; ++run) {
        Machine again = machine();
        const auto begin = Clock::now();
        read_drives(again, {.limit = 3s, .only = {again.find(disks[0]->id())}});
        ASSERT_LT(Clock::now() - begin, 4s) << run;
        ASSERT_EQ(again.find(disks[0]->id())->troubles.size(), 1U);
        const std::string words = again.find(disks[0]->id())->troubles[0].words;
        // After a minute the kernel gives the first reader up, and the next run has its turn.
        EXPECT_TRUE(words == "no answer within 3 s" || words.starts_with("has not answered since 20")) << words;
        ASSERT_LE(readers().size(), 1U) << run;
    }
}

TEST(Hung, AKilledProgramLeavesNothingButTheReaderThatIsStuck) {
    Machine found = machine();
    Thing *disk = debug_disks(found).at(1);
    const std::vector<pid_t> before = readers();
    const pid_t program = fork();
    if (program == 0) {
        read_drives(found, {.limit = 600s});
        _exit(0);
    }
    sleep(3);
    kill(program, SIGKILL);
    waitpid(program, nullptr, 0);
    sleep(1);
    // One for each of the two disks.
    const std::vector<pid_t> after = readers();
    EXPECT_LE(after.size(), 2U);
    read_drives(found, {.limit = 3s, .only = {disk}});
    ASSERT_EQ(disk->troubles.size(), 1U);
    EXPECT_TRUE(disk->troubles[0].words.starts_with("has not answered since 20")) << disk->troubles[0].words;
    EXPECT_LE(readers().size(), 2U);
    write_to("/sys/bus/pseudo/drivers/scsi_debug/opts", "0");
    write_to("/sys/bus/pseudo/drivers/scsi_debug/every_nth", "0");
}

} // namespace
