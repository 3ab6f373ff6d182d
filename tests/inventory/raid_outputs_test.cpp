// Every machine below outputs/: what its RAID tools print, one file a command, and truth.json. A file's name is the
// binary and the arguments, joined by '_', '/' within an argument written '-' and left out before it:
// "storcli64_call-vall_show_all_J_nolog". truth.json has "things" by id (facts by key; "kernel": ids of the kernel's
// devices of it; "spares": drives that stand by for it), all of them, "troubles": a part of each one's text, all of
// them, and of the kernel "adapters", "kernel" (its drives) and "generic".
#include "inventory/raid/answers.h"
#include "inventory/raid/tools.h"
#include "values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>

namespace inventory::raid {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Files = std::map<std::string, std::string>;

const fs::path kOutputs = TORVANE_TEST_OUTPUTS;

std::string text_of(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Files replies_of(const std::string &machine) {
    Files files;
    for (const auto &entry : fs::directory_iterator(kOutputs / machine)) {
        if (entry.path().filename() != "truth.json") files[entry.path().filename()] = text_of(entry.path());
    }
    return files;
}

std::string file_of(const std::string &binary, const std::vector<std::string> &arguments) {
    std::string name = binary;
    for (std::string argument : arguments) {
        if (argument.starts_with('/')) argument.erase(0, 1);
        std::replace(argument.begin(), argument.end(), '/', '-');
        name += "_" + argument;
    }
    return name;
}

std::vector<Answer> answers_of(const Files &files) {
    std::vector<Answer> answers;
    for (const Tool *tool : all_tools()) {
        for (const std::string binary : tool->binaries) {
            const bool is_there = std::any_of(files.begin(), files.end(),
                                              [&](const auto &file) { return file.first.starts_with(binary + "_"); });
            if (!is_there) continue;
            const Runner run = [&](const std::vector<std::string> &arguments) {
                const auto found = files.find(file_of(binary, arguments));
                return found == files.end() ? Reply{"", 1, ""} : Reply{found->second, 0, ""};
            };
            answers.push_back({tool, binary, tool->survey(run, binary)});
            for (Controller &controller : answers.back().survey.controllers) controller.tool = binary;
        }
    }
    return answers;
}

void add_kernel(Machine &machine, const Json &drives) {
    for (const Json &drive : drives) {
        Thing &thing = machine.add(ThingKind::kDrive, drive.at("id"));
        thing.tell("name", "/dev/" + thing.id(), Source::kKernel);
        for (const char *key : {"hctl", "pci", "wwn", "serial", "model", "driver"}) {
            thing.tell(key, drive.value(key, std::string()), Source::kKernel);
        }
        thing.tell("size", drive.value("size", std::uint64_t{0}), Source::kKernel);
    }
}

Machine machine_of(const Files &files, const Json &truth) {
    Machine machine;
    add_kernel(machine, truth.value("kernel", Json::array()));
    std::vector<Adapter> adapters;
    for (const Json &row : truth.value("adapters", Json::array())) {
        adapters.push_back(
            {row.at("pci"), row.at("driver"), row.value("serial", ""), {}, row.value("hides_drives", true)});
    }
    std::vector<GenericNode> generics;
    for (const Json &row : truth.value("generic", Json::array())) {
        generics.push_back({row.at("node"), row.value("hctl", ""), row.at("serial")});
    }
    add_answers(machine, answers_of(files), adapters, generics);
    settle(machine);
    return machine;
}

Json value_of(const Thing &thing, const std::string &key) {
    const auto ids = [](const std::vector<Thing *> &things) {
        Json list = Json::array();
        for (const Thing *other : things) list.push_back(other->id());
        return list;
    };
    if (key == "kernel") return ids(thing.related(RelationKind::kKnownAs));
    if (key == "spares") return ids(thing.related_to(RelationKind::kSpareFor));
    return tests::json_of(thing.value(key));
}

bool is_of_raid(const Thing &thing) {
    return thing.kind() == ThingKind::kController || thing.kind() == ThingKind::kLogical ||
           thing.kind() == ThingKind::kMember;
}

std::vector<std::string> troubles_of(const Machine &machine) {
    std::vector<std::string> texts;
    const auto add = [&](const std::vector<Trouble> &troubles) {
        for (const Trouble &trouble : troubles) {
            texts.push_back(trouble.source + ": " + trouble.what + ": " + trouble.words);
        }
    };
    add(machine.troubles);
    for (const Thing &thing : machine.things()) add(thing.troubles);
    return texts;
}

// What differs from the truth; nothing when all is as it says.
std::vector<std::string> differences(const Machine &machine, const Json &truth) {
    std::vector<std::string> found;
    std::set<std::string> ids;
    for (const Thing &thing : machine.things()) {
        if (!is_of_raid(thing)) continue;
        ids.insert(thing.id());
        if (!truth.at("things").contains(thing.id())) found.push_back(thing.id() + " is told");
    }
    for (const auto &[id, facts] : truth.at("things").items()) {
        if (!ids.contains(id)) {
            found.push_back(id + " is not told");
            continue;
        }
        for (const auto &[key, value] : facts.items()) {
            const Json told = value_of(*machine.find(id), key);
            if (told != value) found.push_back(id + ": " + key + " is " + told.dump() + ", not " + value.dump());
        }
    }
    return found;
}

std::vector<std::string> machines() {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(kOutputs)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

class RaidOutputs : public testing::TestWithParam<std::string> {
  protected:
    const Files files = replies_of(GetParam());
    const Json truth = Json::parse(text_of(kOutputs / GetParam() / "truth.json"));
};

TEST_P(RaidOutputs, AreReadAsTheTruthHasThem) {
    Files with_carriage_returns = files;
    for (auto &[name, text] : with_carriage_returns) {
        for (std::size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i + 2)) text.insert(i, "\r");
    }
    for (const Files &given : {files, with_carriage_returns}) {
        const Machine machine = machine_of(given, truth);
        for (const std::string &difference : differences(machine, truth)) ADD_FAILURE() << difference;
        const std::vector<std::string> troubles = troubles_of(machine);
        const std::vector<std::string> expected = truth.value("troubles", std::vector<std::string>());
        EXPECT_EQ(troubles.size(), expected.size()) << testing::PrintToString(troubles);
        for (const std::string &part : expected) {
            const bool is_told = std::any_of(troubles.begin(), troubles.end(), [&](const std::string &trouble) {
                return trouble.find(part) != std::string::npos;
            });
            EXPECT_TRUE(is_told) << part << " is not in " << testing::PrintToString(troubles);
        }
    }
}

// Wherever a text ends too soon: what is lost is named, and what is told is true.
TEST_P(RaidOutputs, CutOffAreNeverWrongAndNeverSilent) {
    std::set<Json> serials{nullptr};
    const Machine whole = machine_of(files, truth);
    for (const Thing &thing : whole.things()) serials.insert(value_of(thing, "serial"));
    for (const auto &[name, text] : files) {
        for (std::size_t end = 1; end < text.size(); end += 1 + text.size() / 60) {
            Files cut = files;
            cut[name].resize(end);
            const Machine machine = machine_of(cut, truth);
            const std::string where = name + " cut at " + std::to_string(end) + ": ";
            for (const Thing &thing : machine.things()) {
                const Json serial = value_of(thing, "serial");
                EXPECT_TRUE(serials.contains(serial)) << where << thing.id() << " " << serial;
            }
            const std::vector<std::string> lost = differences(machine, truth);
            EXPECT_TRUE(lost.empty() || !troubles_of(machine).empty()) << where << lost.front();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Machines, RaidOutputs, testing::ValuesIn(machines()),
                         [](const auto &tested) { return tested.param; });

} // namespace
} // namespace inventory::raid
