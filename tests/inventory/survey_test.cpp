// Every machine in machines/: NAME.tree is its description, NAME.json the truth about it. The truth has the things in
// their order, and of each the facts that matter: a value is the fact's, null says that there is none, "disputed" lists
// the facts that the sources disagree about. "find" has what texts mean.
#include "tree.h"
#include "values.h"

#include "inventory/bays/bays.h"
#include "inventory/kernel/kernel.h"
#include "inventory/survey/find.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace inventory::tests {
namespace {

using nlohmann::ordered_json;

const std::string kMachines = TORVANE_TEST_MACHINES;

std::vector<std::string> names() {
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(kMachines)) {
        if (entry.path().extension() == ".tree") found.push_back(entry.path().stem());
    }
    std::sort(found.begin(), found.end());
    return found;
}

void read_all(Machine &machine, const ordered_json &truth) {
    read_kernel(machine, {truth.value("all", false), truth.value("keys", std::vector<std::string>())});
    read_usb(machine);
    read_bays(machine);
    settle(machine);
    relate_identities(machine);
    settle(machine);
}

void expect_thing(const Thing &thing, const ordered_json &facts) {
    ordered_json disputed = ordered_json::array();
    for (const auto &[index, fact] : thing.facts()) {
        if (fact.disputed) disputed.push_back(all_facts()[index].key);
    }
    EXPECT_EQ(disputed, facts.value("disputed", ordered_json::array())) << thing.id();
    for (const auto &[key, value] : facts.items()) {
        if (key == "disputed") continue;
        EXPECT_EQ(json_of(thing.value(key)), value) << thing.id() << " " << key;
    }
}

class MachineTree : public testing::TestWithParam<std::string> {};

TEST_P(MachineTree, IsReadAsItIs) {
    const auto truth = ordered_json::parse(content_of(kMachines + "/" + GetParam() + ".json"));
    const Tree tree(content_of(kMachines + "/" + GetParam() + ".tree"));
    Machine machine;
    read_all(machine, truth);
    std::vector<std::string> ids;
    std::vector<std::string> expected;
    for (const Thing &thing : machine.things()) ids.push_back(thing.id());
    for (const auto &[id, facts] : truth.at("things").items()) {
        expected.push_back(id);
        const Thing *thing = machine.find(id);
        if (thing != nullptr) expect_thing(*thing, facts);
    }
    EXPECT_EQ(ids, expected);
    const ordered_json texts = truth.value("find", ordered_json::object());
    for (const auto &[text, meant] : texts.items()) {
        std::vector<std::string> found;
        for (const Thing *thing : find_things(machine, text)) found.push_back(thing->id());
        EXPECT_EQ(ordered_json(found), meant) << text;
    }
}

INSTANTIATE_TEST_SUITE_P(All, MachineTree, testing::ValuesIn(names()), [](const auto &about) {
    std::string name = about.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

} // namespace
} // namespace inventory::tests
