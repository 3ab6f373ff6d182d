// Every reader of the inventory with every allocation and every call failing in turn: it throws, or what the kernel
// knows is there and whatever is missing or other than without the failure has a word about it. Nothing is left behind.
#include "../../world/answers.h"
#include "../../world/sweep.h"
#include "../tree.h"

#include "inventory/bays/bays.h"
#include "inventory/drives/drives.h"
#include "inventory/drives/questions.h"
#include "inventory/kernel/kernel.h"
#include "inventory/raid/raid.h"
#include "inventory/reading/in_use.h"
#include "inventory/reading/isolated.h"
#include "inventory/reading/packing.h"
#include "inventory/survey/find.h"
#include "inventory/survey/identity.h"
#include "inventory/survey/survey.h"
#include "inventory/usb/usb.h"

#include <gtest/gtest.h>

#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <set>

namespace inventory::tests {
namespace {

namespace fs = std::filesystem;
using torvane::world::attempt_each_failure;
using torvane::world::Failure;
using torvane::world::Step;
using torvane::world::Trial;

constexpr std::chrono::milliseconds kLimit{5000};
constexpr int kOutOfMemory = 77; // exit status

void kernel(Machine &machine) { read_kernel(machine, {}); }

void usb_and_bays(Machine &machine) {
    kernel(machine);
    read_usb(machine);
    read_bays(machine);
    settle(machine);
}

Thing &made_drive(Machine &machine) {
    Thing &drive = machine.add(ThingKind::kDrive, "sdq");
    drive.tell("path", std::string("/run/sdq"), Source::kKernel);
    drive.tell("maj_min", std::string("65:0"), Source::kKernel);
    drive.tell("kind", std::string("scsi"), Source::kKernel);
    drive.tell("hctl", std::string("7:0:0:0"), Source::kKernel);
    drive.tell("tran", std::string("sas"), Source::kKernel);
    return drive;
}

struct Operation {
    const char *name;
    const char *tree; // of machines/
    void (*prepare)(Machine &);
    void (*run)(Machine &);
    bool runs_processes = false; // one error a step is enough for them
    bool has_json = false;       // the JSON library needs memory to free some, and ends the program without it
};

void lights(Machine &machine) {
    for (Thing &thing : machine.things()) {
        if (thing.kind() != ThingKind::kBay) continue;
        read_light(thing);
        if (const std::string words = set_locate(thing, true); !words.empty()) thing.lacks("locate_led", words);
    }
}

void ask_one(Machine &machine) {
    Thing &drive = made_drive(machine);
    const Thing found = ask(drive, {.limit = kLimit, .defects = true, .state = true});
    if (!unpack(pack(found), drive)) drive.troubles.push_back({"", "", "no answer", "", true});
}

void isolate(Machine &machine) {
    const IsolatedOutcome outcome = run_isolated([] { return Wire{{"answer", 42}}; }, kLimit);
    Thing &thing = machine.add(ThingKind::kDrive, "answer");
    if (outcome.state == Outcome::State::kDone)
        thing.tell("size", outcome.result.at("answer").get<std::uint64_t>(), Source::kDrive);
    if (!outcome.words.empty()) thing.troubles.push_back({"", "", outcome.words, "", true});
}

void claim(Machine &machine) {
    const Claim claim = ask_for_device_alone("/run/sdq", "65:0", kLimit);
    Thing &thing = machine.add(ThingKind::kDrive, "claim");
    thing.tell("verdict", std::string(claim.state == Claim::State::kFree ? "open" : "unknown"), Source::kDrive);
    if (!claim.words.empty()) thing.troubles.push_back({"", "", claim.words, "", true});
}

constexpr Operation kOperations[] = {
    {"read_kernel settle", "server", nullptr, kernel},
    {"read_kernel all", "small", nullptr,
     [](Machine &machine) {
         read_kernel(machine, {true, {}});
     }},
    {"read_kernel keys", "needed", nullptr,
     [](Machine &machine) {
         read_kernel(machine, {false, {"verdict", "rpm"}});
     }},
    {"read_usb", "small", kernel, read_usb},
    {"read_bays", "server", kernel, read_bays},
    {"read_light set_locate", "server", usb_and_bays, lights},
    {"relate_identities settle", "server", usb_and_bays,
     [](Machine &machine) {
         relate_identities(machine);
         settle(machine);
     }},
    {"find_things", "server", usb_and_bays,
     [](Machine &machine) {
         for (const char *text : {"sda", "12345678", "/dev/sda", "LONG NAME"}) (void)find_things(machine, text);
     }},
    {"ask pack unpack", "needed", nullptr, ask_one},
    {"read_drives", "needed", [](Machine &machine) { made_drive(machine); },
     [](Machine &machine) { read_drives(machine, {.limit = kLimit}); }, true},
    {"run_isolated", "needed", nullptr, isolate, true, true},
    {"ask_for_device_alone", "needed", nullptr, claim, true},
    {"read_raid", "raid", nullptr, [](Machine &machine) { read_raid(machine, {kLimit}); }, true, true},
    {"survey all_troubles", "needed", nullptr,
     [](Machine &machine) {
         machine = survey({});
         (void)all_troubles(machine);
     }},
};

constexpr const char *kRaidTree = "/sys/bus/pci/drivers/megaraid_sas/0000:65:00.0/vendor = 0x1000\n"
                                  "/sys/bus/pci/devices/0000:65:00.0/host0/x = 1\n";
std::set<std::string> descriptors() {
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator("/run/proc/self/fd")) {
        std::error_code gone;
        const fs::path target = fs::read_symlink(entry.path(), gone);
        if (!gone && !target.string().ends_with("/fd"))
            found.insert(entry.path().filename().string() + target.string());
    }
    return found;
}

std::set<std::string> leavings() {
    std::set<std::string> found;
    for (const char *folder : {"/tmp", "/run", "/run/torvane"}) {
        std::error_code none;
        for (const auto &entry : fs::directory_iterator(folder, none)) {
            if (entry.path().filename().string().starts_with("torvane-")) found.insert(entry.path());
        }
    }
    return found;
}

using Facts = std::map<std::string, std::map<std::string, Value>>;

Facts facts_of(const Machine &machine) {
    Facts facts;
    for (const Thing &thing : machine.things()) {
        auto &values = facts[thing.id()];
        for (const auto &[index, fact] : thing.facts()) {
            if (!fact.words.empty()) values[all_facts()[index].key] = fact.value();
        }
    }
    return facts;
}

struct Attempt {
    Trial trial;
    Facts facts;
    std::set<std::string> reasons; // "sda rpm"
    bool has_trouble = false;
    bool threw = false;
    std::string left;
};

class InventorySweep : public testing::Test {
  protected:
    static Attempt run(const Operation &operation, const Failure &failure) {
        Attempt outcome;
        const auto before = descriptors();
        const auto files = leavings();
        std::optional<Machine> machine(std::in_place);
        if (operation.prepare != nullptr) operation.prepare(*machine);
        const auto call = [&] {
            try {
                operation.run(*machine);
            } catch (const std::exception &) {
                outcome.threw = true;
            }
        };
        const auto release = [&] {
            outcome.facts = facts_of(*machine);
            outcome.has_trouble = tell_all(*machine, outcome.reasons);
            machine.reset();
        };
        outcome.trial = torvane::world::try_with(failure, call, release);
        if (outcome.trial.blocks_left != 0) outcome.left += " " + std::to_string(outcome.trial.blocks_left) + " blocks";
        if (descriptors() != before) outcome.left += " descriptors";
        // Those on their way out may take a moment; who looks after a command that was given up clears its folder then.
        if (!holds_soon([] { return waitpid(-1, nullptr, WNOHANG) < 0; })) outcome.left += " a child";
        // Where every call fails from one on, the one that would clear up does, too.
        const bool may_clear_up = failure.step == Step::kAllocation || !failure.for_good;
        const auto is_clear = [&] { return std::ranges::includes(files, leavings()); };
        if (may_clear_up && !holds_soon(is_clear)) outcome.left += " files";
        return outcome;
    }

    static bool tell_all(const Machine &machine, std::set<std::string> &reasons) {
        for (const Thing &thing : machine.things()) {
            for (const auto &[index, fact] : thing.facts()) {
                if (!fact.reason.empty()) reasons.insert(thing.id() + " " + all_facts()[index].key);
            }
        }
        const auto troubles = all_troubles(machine);
        return std::any_of(troubles.begin(), troubles.end(), [](const Trouble &trouble) { return trouble.essential; });
    }

    template <class Test> static bool holds_soon(Test test) {
        for (int i = 0; i < 2000 && !test(); ++i) usleep(5000);
        return test();
    }

    // What is wrong with a run; "" when nothing is.
    static std::string fault(const Attempt &good, const Attempt &run) {
        if (!run.left.empty()) return "left behind:" + run.left;
        if (run.threw) return "";
        for (const auto &[id, values] : good.facts) {
            const auto thing = run.facts.find(id);
            if (thing == run.facts.end()) {
                if (!run.has_trouble) return id + " is gone without a word";
                continue;
            }
            for (const auto &[key, value] : values) {
                const auto found = thing->second.find(key);
                if (found != thing->second.end() && found->second == value) continue;
                const bool is_free = found != thing->second.end() && found->second == Value(std::string("free"));
                if (key == "verdict" && is_free) return id + " passes for free";
                const bool is_said =
                    run.has_trouble || (found == thing->second.end() && run.reasons.contains(id + " " + key));
                if (!is_said) return id + " " + key + " is missing or wrong without a word";
            }
        }
        return "";
    }

    struct Verdict {
        Trial trial;
        std::string wrong;
    };
    static Verdict judged(const Operation &operation, const Failure &failure, const Attempt &good) {
        const Attempt attempt = run(operation, failure);
        return {attempt.trial, fault(good, attempt)};
    }

    // In a process of its own, which may end as main() lets it end without memory.
    static Verdict judged_in_child(const Operation &operation, const Failure &failure, const Attempt &good) {
        int ends[2] = {-1, -1};
        if (pipe(ends) != 0) return {{}, "no pipe"};
        const pid_t child = fork();
        if (child == 0) {
            std::set_terminate([] { _exit(kOutOfMemory); });
            const Verdict verdict = judged(operation, failure, good);
            const std::string text = (verdict.trial.failed ? "1" : "0") + verdict.trial.at + "\n" + verdict.wrong;
            _exit(write(ends[1], text.data(), text.size()) < 0 ? 1 : 0);
        }
        close(ends[1]);
        Verdict verdict{{.failed = true, .at = "allocation", .has_next = false, .blocks_left = 0}, ""};
        std::string text;
        char bytes[4096];
        for (ssize_t count = 0; (count = read(ends[0], bytes, sizeof bytes)) > 0;) {
            text.append(bytes, static_cast<size_t>(count));
        }
        close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kOutOfMemory) return verdict;
        if (text.empty()) return {verdict.trial, "the process ended, status " + std::to_string(status)};
        verdict.trial.failed = text.front() == '1';
        verdict.trial.at = text.substr(1, text.find('\n') - 1);
        verdict.wrong = text.substr(text.find('\n') + 1);
        return verdict;
    }

    void sweep(const Operation &operation) {
        const Failure none = {.step = Step::kCall, .index = LONG_MAX};
        run(operation, none); // the first run of all leaves caches behind
        const Attempt good = run(operation, none);
        ASSERT_EQ(fault(good, good), "") << operation.name;
        ASSERT_FALSE(good.threw) << operation.name;
        // Those with tools to run take their time.
        const long stride = operation.has_json ? 7 : 1;
        const long points = attempt_each_failure(!operation.runs_processes, stride, [&](const Failure &failure) {
            const Verdict outcome = operation.has_json && failure.step == Step::kAllocation
                                        ? judged_in_child(operation, failure, good)
                                        : judged(operation, failure, good);
            if (outcome.trial.failed && !outcome.wrong.empty() && ++faults_ < 100) {
                ADD_FAILURE() << operation.name << ": " << outcome.trial.at << ": " << outcome.wrong;
            }
            return outcome.trial;
        });
        EXPECT_GT(points, 0) << operation.name << " has nothing that could fail";
        std::printf("%-28s %6ld\n", operation.name, points);
        points_ += points;
    }

    long points_ = 0;
    long faults_ = 0;
};

// Before anything is mounted: the folder with the trees may be below what is mounted over.
std::map<std::string, std::string> all_trees() {
    std::map<std::string, std::string> trees{{"raid", kRaidTree}};
    for (const Operation &operation : kOperations) {
        std::string &tree = trees[operation.tree];
        if (tree.empty()) tree = content_of(std::string(TORVANE_TEST_MACHINES "/") + operation.tree + ".tree");
    }
    return trees;
}

void lay_out_drive() {
    const auto disk = std::make_shared<torvane::world::FakeDisk>();
    disk->set_inquiry("ACME", "DISK");
    disk->set_serial("S1");
    disk->set_rotation(7200);
    disk->primary_defects = {.bytes = 4, .format = 0};
    disk->grown_defects = {.bytes = 4, .format = 0};
    std::ofstream("/run/sdq") << "";
    torvane::world::answers().add_device("/run/sdq", S_IFBLK, makedev(65, 0), disk);
}

TEST_F(InventorySweep, OfEveryReader) {
    const std::map<std::string, std::string> trees = all_trees();
    // Other programs leave files in /tmp, too.
    enter_namespace();
    mount_at("/tmp");
    const std::string folder = "/tmp/tools";
    fs::create_directories(folder);
    std::ofstream(folder + "/storcli64") << "#!/bin/sh\n" << says(kController) << "\n";
    fs::permissions(folder + "/storcli64", fs::perms::owner_all);
    setenv("PATH", (folder + ":/usr/bin:/bin").c_str(), 1);
    for (const Operation &operation : kOperations) {
        torvane::world::reset_answers(); // the next tree's files may have the numbers of the last one's drive
        torvane::world::answers().sweep_fork = true;
        const Tree tree(trees.at(operation.tree));
        lay_out_drive();
        sweep(operation);
    }
    fs::remove_all(folder);
    std::printf("%ld failure points in %zu operations, %ld faults\n", points_, std::size(kOperations), faults_);
    EXPECT_GT(points_, 10000);
}

} // namespace
} // namespace inventory::tests
