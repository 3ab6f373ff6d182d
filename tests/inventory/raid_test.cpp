// The whole way: controllers from /sys, tools from PATH, each within its bounds.
#include "tree.h"

#include "inventory/raid/health.h"
#include "inventory/raid/raid.h"
#include "inventory/survey/survey.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

namespace inventory::tests {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// Fake tools first on PATH, in a folder that keeps what they write.
class Tools {
  public:
    Tools() : path_(std::getenv("PATH")) {
        std::string pattern = "/tmp/raid-tools-XXXXXX";
        folder_ = mkdtemp(pattern.data());
        setenv("PATH", (folder_ + ":/usr/bin:/bin").c_str(), 1);
    }
    Tools(const Tools &) = delete;
    Tools &operator=(const Tools &) = delete;
    ~Tools() {
        setenv("PATH", path_.c_str(), 1);
        fs::remove_all(folder_);
    }
    void add(const std::string &name, const std::string &script) const {
        std::ofstream(folder_ + "/" + name) << "#!/bin/bash\n" << script << "\n";
        fs::permissions(folder_ + "/" + name, fs::perms::owner_all);
    }

  private:
    std::string path_;
    std::string folder_;
};

const char *const kTwoAdapters = R"(
/sys/bus/pci/drivers/megaraid_sas/0000:65:00.0/vendor = 0x1000\n
/sys/bus/pci/drivers/mpi3mr/0000:66:00.0/vendor = 0x1000\n
/sys/bus/pci/drivers/mpt3sas/0000:67:00.0/vendor = 0x1000\n
)";

auto essential_troubles(const Machine &machine) {
    const std::vector<Trouble> troubles = all_troubles(machine);
    return std::count_if(troubles.begin(), troubles.end(), [](const Trouble &trouble) { return trouble.essential; });
}

TEST(ReadRaid, NoControllerAndNoToolIsNoTrouble) {
    const Tree tree("/sys/bus/pci/drivers/ahci/0000:00:1f.2/vendor = 0x8086\\n");
    const Tools tools;
    Machine machine;
    read_raid(machine, {milliseconds(1000)});
    EXPECT_TRUE(machine.things().empty());
    EXPECT_EQ(essential_troubles(machine), 0);
}

TEST(ReadRaid, AControllerThatNoToolTellsAboutIsNamed) {
    const Tree tree(kTwoAdapters);
    const Tools tools;
    tools.add("storcli64", says(kController));
    Machine machine;
    read_raid(machine, {milliseconds(20'000)});
    ASSERT_NE(machine.find("c0/e252/s0"), nullptr);
    EXPECT_EQ(machine.find("c0")->text("driver"), "megaraid_sas");
    const Thing *untold = machine.find("0000:66:00.0");
    ASSERT_NE(untold, nullptr);
    EXPECT_EQ(untold->troubles.at(0).remedy.substr(0, 26), "install the maker's tool: ");
    // The mpt driver runs plain adapters, whose drives the kernel has.
    EXPECT_EQ(machine.find("0000:67:00.0"), nullptr);
    EXPECT_EQ(essential_troubles(machine), 1);
}

struct Case {
    const char *name;
    const char *script; // of the other maker's tool
};
class BrokenTool : public testing::TestWithParam<Case> {};

TEST_P(BrokenTool, CostsItsOwnControllersAlone) {
    const Tree tree(kTwoAdapters);
    const Tools tools;
    tools.add("storcli64", says(kController));
    tools.add("perccli2", GetParam().script); // is asked first
    const auto begin = std::chrono::steady_clock::now();
    Machine machine;
    read_raid(machine, {milliseconds(2000)});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(1)); // none ends by itself
    ASSERT_NE(machine.find("c0/v1"), nullptr);
    EXPECT_EQ(machine.find("c0/e252/s0")->text("serial"), "S1");
    EXPECT_GE(essential_troubles(machine), 2); // the tool's, and the other controller's
#if !defined(__SANITIZE_ADDRESS__)             // which keeps freed memory for a while
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    EXPECT_LT(usage.ru_maxrss, 300 * 1024) << "KiB";
#endif
}

INSTANTIATE_TEST_SUITE_P(
    ReadRaid, BrokenTool,
    testing::Values(Case{"Hangs", "sleep 1000"}, Case{"Endless", "yes '{\"a\":[[[[[{\"b\":1,'"},
                    Case{"ManyValues", "echo '{\"Controllers\":['; while :; do echo '[],[],[],[],[],[],[],[],'; done"},
                    Case{"OneLine", "printf '{\"Controllers\":\"'; head -c 300000000 /dev/zero | tr '\\0' x"},
                    Case{"PrintsNothing", "exit 1"}),
    [](const auto &tested) { return tested.param.name; });

// What a state means, and the problem that it is, if any: the table is states.json.
TEST(Health, IsWhatTheToolsMeanByTheirStates) {
    const std::map<std::string, Health> meanings{
        {"optimal", Health::kOptimal}, {"busy", Health::kBusy}, {"bad", Health::kBad}, {"unknown", Health::kUnknown}};
    const auto table = nlohmann::json::parse(content_of(TORVANE_TEST_MACHINES "/../states.json"));
    for (const auto &[kind, states] : table.items()) {
        for (const auto &[state, meaning] : states.items()) {
            Machine machine;
            Thing &thing = machine.add(kind == "logical" ? ThingKind::kLogical : ThingKind::kMember, "c0/x");
            thing.tell("state", std::string(state), Source::kTool);
            EXPECT_EQ(health_of(thing), meanings.at(meaning[0])) << state;
            const std::vector<Problem> problems = problems_of(machine);
            EXPECT_EQ(problems.empty() ? "" : problems.front().kind, meaning[1]) << state;
        }
    }
}

TEST(Problems, AreOfDrivesAndArraysToo) {
    Machine machine;
    Thing &foreign = machine.add(ThingKind::kMember, "c0/s1");
    foreign.tell("role", std::string("foreign"), Source::kTool);
    foreign.tell("serial", std::string("S1"), Source::kTool);
    machine.add(ThingKind::kMember, "c0/s2").tell("predictive_failure", true, Source::kTool);
    machine.add(ThingKind::kMember, "c0/missing").tell("role", std::string("missing"), Source::kTool);
    Thing &array = machine.add(ThingKind::kArray, "md0");
    array.tell("name", std::string("/dev/md0"), Source::kKernel);
    array.tell("state", std::string("clean"), Source::kKernel);
    array.tell("degraded", std::uint64_t{1}, Source::kKernel);
    Thing &busy = machine.add(ThingKind::kArray, "md1");
    busy.tell("state", std::string("active"), Source::kKernel);
    busy.tell("sync_action", std::string("check"), Source::kKernel);
    std::vector<std::string> words;
    for (const Problem &problem : problems_of(machine)) words.push_back(problem.words);
    EXPECT_EQ(words, (std::vector<std::string>{
                         "c0/s1 (serial S1): foreign: it carries another controller's configuration",
                         "c0/s2: predictive-failure: the drive expects to fail",
                         "c0/missing: missing: there is no drive", "/dev/md0: degraded: 1 member is missing"}));
    EXPECT_EQ(health_of(busy), Health::kBusy);
}

} // namespace
} // namespace inventory::tests
