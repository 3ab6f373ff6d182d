// Every exported operation with every allocation and every call failing in turn: the stated result, nothing left
// behind, and never a success with wrong data.
#include "failure_rows.h"
#include "raid_tools.h"

#include <dlfcn.h>
#include <linux/cdrom.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace torvane::world;

namespace {

using Words = std::vector<std::string>;

Words split(const std::string &text, char separator) {
    Words words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);) words.push_back(word);
    return words;
}

// What two tellings of the same places have in common.
struct Comparison {
    bool fits = true;  // each line is one of the whole's, in its order, but for fields that are unknown
    bool same = true;  // and nothing is missing
    bool told = false; // a record's own results tell of a failure
};

// Nothing, a name that is made up where the machine tells none, one of a text's two words, or what follows from it.
bool is_unknown(const std::string &field, const std::string &known) {
    return field == "-" || field == "0" || field.empty() || field.starts_with("/dev/raid_") ||
           field.starts_with("/dev/sg_raid_") || (field.starts_with('^') && known.starts_with('^')) ||
           ((field.starts_with(' ') || field.ends_with(' ')) && known.find(field) != std::string::npos);
}

bool line_fits(const std::string &line, const std::string &whole, Comparison *result) {
    const Words fields = split(line, '|');
    const Words known = split(whole, '|');
    if (fields.size() != known.size()) return false;
    bool told = false;
    bool same = true;
    for (size_t i = 0; i < fields.size(); ++i) {
        if (fields[i] == known[i]) continue;
        if (known[i].starts_with('~') && (fields[i] == "~-" || known[i].find(fields[i].substr(1)) != std::string::npos))
            continue;
        if (!fields[i].starts_with('!') && !is_unknown(fields[i], known[i])) return false;
        told = told || fields[i].starts_with('!');
        same = false;
    }
    result->same = result->same && same;
    result->told = result->told || told;
    return true;
}

// Lines that were there before the call may also be as they were.
Comparison compare(const std::string &text, const std::string &whole, const std::string &before) {
    Comparison result;
    const Words lines = split(text, '\n');
    const Words known = split(whole, '\n');
    const Words untouched = split(before, '\n');
    size_t next = 0;
    for (const std::string &line : lines) {
        if (next < known.size() && line != known[next] && std::ranges::find(untouched, line) != untouched.end()) {
            result.same = false;
            continue;
        }
        while (next < known.size() && !line_fits(line, known[next], &result)) ++next;
        result.fits = result.fits && next < known.size();
        ++next;
    }
    result.same = result.same && lines.size() == known.size();
    return result;
}

constexpr const char *kCleaning[] = {"unlink ", "rmdir ", "remove ", "system ", "opendir ", "readdir ", "fclose "};

class FailureSweep : public RaidTest {
  protected:
    FailureSweep() {
        const auto sda = world.disk({.generic = 0, .partitions = {{.size = 1 << 20}}});
        sda->set_rotation(7200);
        // Without memory for a list its bytes are taken for four.
        sda->primary_defects = {.bytes = 4, .format = 0};
        sda->grown_defects = {.bytes = 4, .format = 0};
        const auto array =
            world.disk({.name = "md0", .major = 9, .address = "1:0:0:0", .partitions = {{.size = 1 << 20}}});
        world.file("/proc/mdstat", "Personalities :\nmd0 : active raid1\nunused devices: <none>\n");
        world.file("/sys/block/md0/md0p1/partition", "1\n");
        world.file("/proc/sys/dev/cdrom/info", "drive name: sr0\n");
        world.device("/dev/sr0", 11, 0)->request = [](unsigned long request, void *) -> std::optional<int> {
            if (request == CDROM_DRIVE_STATUS) return CDS_DISC_OK;
            return request == CDROM_DISC_STATUS ? std::optional<int>(CDS_DATA_1) : std::nullopt;
        };
        world.device("/dev/hda", 3, 0)->set_ata_identity("WD-1", "WDC");
        world.link("/sys/class/scsi_generic/sg7/device/block", "../../../block/sdh");
        const auto innodisk = world.disk({.name = "sdi", .minor = 128, .model = "Innodisk 3ME", .address = "8:0:0:0"});
        innodisk->be_innodisk(1);
        const auto memkor = world.disk({.name = "sdm", .minor = 192, .model = "MEMKOR", .address = "9:0:0:0"});
        memkor->answer = answer_memkor;
        plug_in({.units = {{.partitions = {{.size = 1 << 20, .uuid = "P"}}}}});
        plug_in({.port = 2, .serial = "IDLE", .units = {{.bound = false}}});
        plug_in({.port = 4, .serial = "BARE", .units = {{.name = "sdc", .minor = 32, .node = false}}});
        arcconf("Controllers found: 1\n",
                {small_config() + device_section({.location = "Enclosure 0, Slot 8", .serial = "SPARE"})});
        megacli(kSmallLogical, kSmallPhysical);
        world.file("/run/outputs/logical", kSmallLogical);
        world.file("/run/outputs/physical", kSmallPhysical);
        lspci("01:00.0 RAID: One\n\tKernel modules: megaraid_sas\n");
        adapter("01:00.0", 4);
        const auto logical = logical_drive("sdl", 176, "4:2:0:0");
        generic_node(1, "LS0");
        for (const char *path : {"/tmp/nodes", "/tmp/tree/a", "/tmp/tree/b"}) world.directory(path);
        mounts = {"/mounted"};
        world.directory("/mounted");
        write_mounts();
        // No wait takes longer than what is ready already.
        answers().select = [](int highest, fd_set *read, fd_set *write, fd_set *error, timeval *left) {
            timeval now = {};
            if (left != nullptr && left->tv_sec-- < 0) return 0;
            return select(highest, read, write, error, &now);
        };
        // Model and serial number have one source each: another one's words for them would be others.
        std::vector scsi = {sda, array, innodisk, memkor, logical};
        for (const auto &[number, disk] : disks) {
            disk->pages.clear();
            scsi.push_back(disk);
        }
        for (const auto &disk : scsi) disk->inquiry.clear();
        traces_ = traces();
    }

    static std::optional<Reply> answer_memkor(const Bytes &cdb) {
        if (cdb[0] != 0x85) return std::nullopt;
        Reply reply = {.data = Bytes(512, 7), .sense = {0x72, 0, 0, 0, 0, 0, 0, 0x0E, 0x09, 0x0C}};
        reply.sense.resize(32);
        reply.sense[20] = 8;
        if (cdb[4] == 1) reply.data = {3, 0, 0, 0}; // the image's sectors
        return reply;
    }

    // What is to be seen from outside: files in /tmp, nodes in /dev, mounts.
    std::string traces() const {
        std::string text;
        for (const char *directory : {"/tmp", "/tmp/nodes", "/dev"}) {
            for (const std::string &name : names_in(directory)) text += name.substr(0, 8) + " ";
        }
        for (const std::string &mount : mounts) text += mount.substr(0, 12) + " ";
        return text;
    }

    // Makes the machine what it was; what a failed clean-up has left is gone then.
    void restore() {
        nodes.clear();
        commands.clear();
        answers().log.clear();
        if (traces() == traces_) return;
        mounts = {"/mounted"};
        write_mounts();
        for (const std::string &name : names_in("/tmp")) {
            if (name.starts_with("torvane.")) world.remove("/tmp/" + name);
        }
        for (const std::string &name : names_in("/tmp/nodes")) world.remove("/tmp/nodes/" + name);
        world.remove("/dev/sdc");
        for (const auto &[name, minor] : {std::pair("/dev/sdb", 16U), {"/dev/sdb1", 17U}}) {
            if (!std::filesystem::exists(name)) world.device(name, 8, minor, false, disks[makedev(8, 16)]);
        }
        EXPECT_EQ(traces(), traces_);
    }

    struct Run {
        Trial trial;
        int result = 0;
        std::string before; // what the places held
        std::string places;
        std::string traces_before;
        std::string traces;
        bool for_good = false;
        std::string left; // behind, of what only the process sees
    };
    Run run(const Row &row, const Failure &failure) {
        Run outcome;
        Places places;
        const auto descriptors = open_descriptors();
        if (row.prepare != nullptr) row.prepare(places);
        nodes.clear();
        outcome.before = places.described();
        outcome.traces_before = traces();
        outcome.for_good = failure.for_good;
        const auto release = [&] {
            outcome.places = places.described();
            outcome.traces = traces();
            places.release();
        };
        outcome.trial = try_with(
            failure, [&] { outcome.result = row.call(places); }, release);
        if (outcome.trial.blocks_left != 0) outcome.left += " " + std::to_string(outcome.trial.blocks_left) + " blocks";
        if (open_descriptors() != descriptors) outcome.left += " descriptors";
        if (waitpid(-1, nullptr, WNOHANG) != -1) outcome.left += " a child";
        restore();
        return outcome;
    }

    static std::string difference(const std::string &text, const std::string &whole) {
        std::string lines;
        for (const auto &[from, other, mark] : {std::tuple(text, whole, "  + "), {whole, text, "  - "}}) {
            const Words known = split(other, '\n');
            for (const std::string &line : split(from, '\n')) {
                if (std::ranges::find(known, line) == known.end()) lines += mark + line + "\n";
            }
        }
        return lines;
    }

    // What is wrong with a run; nothing when it is one of those that the interface states.
    static std::string fault(const Row &row, const Run &good, const Run &run) {
        if (!run.left.empty()) return "left behind:" + run.left;
        // A clean-up that fails itself, and one with everything against it, cannot be whole.
        const bool undone = run.traces == run.traces_before || run.traces == good.traces;
        const bool excused = run.for_good || row.halfway || std::ranges::any_of(kCleaning, [&](const char *call) {
                                 return run.trial.at.starts_with(call);
                             });
        if (!undone && !excused) return "left behind: " + run.traces + "\ninstead of " + run.traces_before;
        Comparison places = compare(run.places, good.places, run.before);
        // What access() does not see is not there, by contract: the data is that of another machine.
        if (run.trial.at.starts_with("access ")) places = {};
        if (run.result == good.result) {
            if (!places.fits) return "success with wrong data:\n" + difference(run.places, good.places);
            const bool may_lack = places.same || places.told || row.silent != nullptr;
            return may_lack ? "" : "success that lacks data:\n" + difference(run.places, good.places);
        }
        const bool stated = run.result == row.other || (run.result < 0 && (-run.result & ~row.bits) == 0);
        if (!stated) return "the unstated result " + std::to_string(run.result);
        return places.fits ? ""
                           : "wrong data beside the failure " + std::to_string(run.result) + ":\n" +
                                 difference(run.places, good.places);
    }

    std::string traces_;
    long points_ = 0;
    long faults_ = 0;

    void sweep(const Row &row) {
        answers().sweep_udev = row.sweep_udev;
        const Failure none = {.step = Step::kCall, .index = LONG_MAX};
        run(row, none); // the first call of all may leave caches of the C library behind
        const Run good = run(row, none);
        ASSERT_EQ(fault(row, good, good), "") << row.names;
        ASSERT_FALSE(good.result == row.other || (good.result < 0 && good.result != row.other)) << row.names;
        const long points = attempt_each_failure(!row.runs_tools, 1, [&](const Failure &failure) {
            const Run outcome = run(row, failure);
            const std::string wrong = outcome.trial.failed ? fault(row, good, outcome) : "";
            if (!wrong.empty() && ++faults_ < 100)
                ADD_FAILURE() << row.names << ": " << outcome.trial.at << ": " << wrong;
            return outcome.trial;
        });
        EXPECT_GT(points, 0) << row.names << " has nothing that could fail";
        points_ += points;
    }
};

TEST_F(FailureSweep, OfEveryExportedOperation) {
    for (const Row &row : failure_rows()) sweep(row);
    std::printf("%ld failure points in %zu operations, %ld faults\n", points_, failure_rows().size(), faults_);
    EXPECT_GT(points_, 5000);
}

TEST(FailureRows, NameEveryExport) {
    std::string swept = std::string(" ") + kPlainNames + " ";
    for (const Row &row : failure_rows()) swept += std::string(row.names) + " ";
    std::ifstream map(TORVANE_SOURCE_DIRECTORY "/src/libtorvane.map");
    size_t names = 0;
    for (std::string name; map >> name;) {
        if (!name.ends_with(';') || name.starts_with('*') || name.starts_with('}')) continue;
        name.back() = ' ';
        EXPECT_NE(swept.find(" " + name), std::string::npos) << name;
        ++names;
    }
    EXPECT_GT(names, 200U);
}

// The library's calls are answered here, or cannot fail, or do so in a way that has a test of its own.
TEST(FailureRows, ReachEveryCallOfTheLibrary) {
    const std::string known =
        " _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable __cxa_finalize __errno_location __gmon_start__ _exit "
        "alphasort basename clearerr clock_gettime closedir getrlimit dirfd dup2 endmntent execlp exit feof ferror "
        "globfree "
        "inotify_rm_watch isspace log10 memchr memcmp memcpy memmove memset prctl printf putchar puts rawmemchr "
        "setpgid setvbuf sigaction signal snprintf sprintf strchr strcmp strcspn strerror strlen strncmp strncpy "
        "strnlen strrchr strspn strstr strtok_r strtol strtoll strtoul strtoull vsnprintf __isoc99_sscanf strdup "
        "udev_device_get_property_value udev_device_get_sysname udev_device_unref udev_enumerate_get_list_entry "
        "udev_enumerate_unref udev_list_entry_get_name udev_list_entry_get_next udev_unref usleep nanosleep getpid "
        "floor gnu_dev_major gnu_dev_minor gnu_dev_makedev "; // the compiler's own where it optimises
    const std::unique_ptr<FILE, int (*)(FILE *)> symbols(
        popen("nm -D --undefined-only " TORVANE_LIBRARY " | sed 's/.* //; s/@.*//'", "r"), pclose);
    size_t reached = 0;
    for (char name[200]; std::fscanf(symbols.get(), "%199s", name) == 1;) {
        Dl_info place = {};
        void *address = dlsym(RTLD_DEFAULT, name);
        const bool ours = address != nullptr && dladdr(address, &place) != 0 &&
                          std::string(place.dli_fname).ends_with("torvane_world_tests");
        const bool sanitizer = std::string(name).starts_with("__asan") || std::string(name).starts_with("__ubsan");
        EXPECT_TRUE(ours || sanitizer || known.find(" " + std::string(name) + " ") != std::string::npos) << name;
        reached += ours ? 1 : 0;
    }
    EXPECT_GT(reached, 30U);
}

} // namespace
