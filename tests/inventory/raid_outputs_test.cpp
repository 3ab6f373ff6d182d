// Every machine below outputs/: what its RAID tools print, one file a command, and truth.json. A file's name is the
// binary and the arguments, joined by '_', '/' within an argument written '-' and left out before it:
// "storcli64_call-vall_show_all_J_nolog". truth.json has "things" by id (facts by key; "kernel": ids of the kernel's
// devices of it; "spares": drives that stand by for it), all of them, "troubles": a part of each one's text, all of
// them, and of the kernel "adapters", "kernel" (its drives) and "generic".
#include "inventory/raid/answers.h"
#include "inventory/raid/tools.h"
#include "inventory/survey/survey.h"
#include "values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

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
    for (const Trouble &trouble : all_troubles(machine))
        texts.push_back(trouble.source + ": " + trouble.what + ": " + trouble.words);
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

    void expect_truth(const Files &given, const char *what) {
        const Machine machine = machine_of(given, truth);
        for (const std::string &difference : differences(machine, truth)) ADD_FAILURE() << what << ": " << difference;
        const std::vector<std::string> troubles = troubles_of(machine);
        const std::vector<std::string> expected = truth.value("troubles", std::vector<std::string>());
        EXPECT_EQ(troubles.size(), expected.size()) << what << testing::PrintToString(troubles);
        for (const std::string &part : expected) {
            const bool is_told = std::any_of(troubles.begin(), troubles.end(), [&](const std::string &trouble) {
                return trouble.find(part) != std::string::npos;
            });
            EXPECT_TRUE(is_told) << what << part << " is not in " << testing::PrintToString(troubles);
        }
    }
};

// Whether a tool, by its file's name, prints for people and has no other form.
bool is_for_people(const std::string &file) {
    const std::set<std::string> tools{"arcconf", "hpacucli", "mvcli", "sas2ircu", "ssacli"};
    return tools.contains(file.substr(0, file.find('_')));
}

bool is_blank(const std::string &line) { return line.find_first_not_of(' ') == std::string::npos; }

std::size_t colon_of(const std::string &line) {
    const std::size_t colon = line.find(": ");
    return colon == std::string::npos && line.ends_with(':') ? line.size() - 1 : colon;
}

std::string with_lower_key(const std::string &line) {
    const bool refers = line.find("physicaldrive") != std::string::npos || line.find("(sn:") != std::string::npos;
    std::string changed = line;
    const std::size_t end = refers || colon_of(line) == std::string::npos ? 0 : colon_of(line);
    for (std::size_t i = 0; i < end; ++i) changed[i] = static_cast<char>(std::tolower(changed[i] & 0xFF));
    return changed;
}

// What mails, consoles and other versions of a tool make of its words: nothing that is told may change.
struct Copying {
    const char *what;
    std::string (*line)(const std::string &line);
    bool of_all = false; // of JSON and of megacli's words, too
};
constexpr Copying kCopyings[] = {
    {"as it stands: ", [](const std::string &line) { return line + "\n"; }, true},
    {"CRLF: ", [](const std::string &line) { return line + "\r\n"; }, true},
    {"blank lines between: ", [](const std::string &line) { return line + "\n  \n"; }},
    {"no indentation: ",
     [](const std::string &line) { return line.substr(std::min(line.find_first_not_of(' '), line.size())) + "\n"; }},
    {"no empty lines: ", [](const std::string &line) { return is_blank(line) ? "" : line + "\n"; }},
    {"keys in another case: ", [](const std::string &line) { return with_lower_key(line) + "\n"; }},
    {"keys that nobody knows: ",
     [](const std::string &line) {
         return line + (colon_of(line) == std::string::npos ? "\n" : "\n            New Key (2031) : 77 frobs\n");
     }},
};

std::string copied(const std::string &text, const Copying &copying) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) result += copying.line(line);
    if (!text.ends_with('\n') && !result.empty()) result.pop_back();
    return result;
}

TEST_P(RaidOutputs, AreReadAsTheTruthHasThemHoweverTheyWereCopied) {
    for (const Copying &copying : kCopyings) {
        if (!copying.of_all && !is_for_people(files.begin()->first)) continue;
        Files copies = files;
        for (auto &[name, text] : copies) text = copied(text, copying);
        expect_truth(copies, copying.what);
    }
}

// A serial number as it stands, whole: a segment can name one that the drive's own block does not tell.
bool stands_in(const Files &files, const std::string &serial) {
    return std::any_of(files.begin(), files.end(), [&](const auto &file) {
        const std::size_t place = file.second.find(serial);
        return place != std::string::npos && std::isspace(file.second[place + serial.size()]) != 0;
    });
}

// Facts of a member that say more when all of the sections are there.
const std::set<std::string> kLater{"name",  "type",        "role",    "state", "predictive_failure",
                                   "match", "raid_device", "location"};

void expect_no_lie(const Machine &whole, const Thing &told, bool each_fact, const std::string &where) {
    const auto known = std::find_if(whole.things().begin(), whole.things().end(), [&](const Thing &thing) {
        return thing.kind() == told.kind() && thing.text("serial") == told.text("serial");
    });
    ASSERT_NE(known, whole.things().end()) << where << "made up " << told.text("serial");
    for (const auto &[index, fact] : told.facts()) {
        const std::string key = all_facts()[index].key;
        if (!each_fact || fact.words.empty() || kLater.contains(key)) continue;
        EXPECT_EQ(tests::json_of(fact.value()), value_of(*known, key)) << where << told.id() << " " << key;
    }
}

// Wherever a text ends too soon: what is lost is named, where the tool's words have an end, and what is told is true.
TEST_P(RaidOutputs, CutOffAreNeverWrongAndNeverSilent) {
    const Machine whole = machine_of(files, truth);
    for (const auto &[name, text] : files) {
        const bool has_end = !is_for_people(name) || name.starts_with("arcconf") || name.starts_with("sas2ircu");
        for (std::size_t end = 1; end < text.size(); end += 1 + text.size() / 60) {
            Files cut = files;
            cut[name].resize(end);
            const Machine machine = machine_of(cut, truth);
            const std::string where = name + " cut at " + std::to_string(end) + ": ";
            for (const Thing &thing : machine.things()) {
                const std::string serial = thing.text("serial");
                const bool is_one = is_of_raid(thing) && !serial.empty();
                const bool is_whole_serial = is_for_people(name) && !thing.text("model").empty();
                if (is_one && (is_whole_serial || !stands_in(files, serial)))
                    expect_no_lie(whole, thing, is_for_people(name) && thing.kind() == ThingKind::kMember, where);
            }
            const std::vector<std::string> lost = differences(machine, truth);
            const bool in_last_line = is_for_people(name) && end + 40 > text.size();
            EXPECT_TRUE(!has_end || in_last_line || lost.empty() || !troubles_of(machine).empty())
                << where << lost.front();
        }
    }
}

std::vector<std::string> arcconfs() {
    std::vector<std::string> names = machines();
    std::erase_if(names, [](const std::string &name) { return !name.starts_with("arcconf"); });
    return names;
}

// A drive whose block cannot be read costs that drive's facts alone. Blocks begin so in arcconf's words.
class Blocks : public RaidOutputs {};
TEST_P(Blocks, CostOneDriveEach) {
    for (const std::string number : {"#0", "#1", "#2"}) {
        Files fewer = files;
        std::size_t removed = 0;
        for (auto &[name, text] : fewer) {
            const std::size_t from = text.find("      Device " + number + "\n");
            if (from == std::string::npos) continue;
            const std::size_t to = std::min(text.find("      Device #", from + 9), text.find("\n\n", from));
            text.erase(from, to == std::string::npos ? to : to - from);
            ++removed;
        }
        std::set<std::string> lost; // and what logical drives say of it is another drive, or in another order
        for (const std::string &difference : differences(machine_of(fewer, truth), truth)) {
            const std::string id = difference.substr(0, difference.find_first_of(": "));
            const bool is_other = difference.ends_with(" is told") || id.ends_with("/missing");
            if (!is_other && difference.find(": members is") == std::string::npos) lost.insert(id);
        }
        EXPECT_LE(lost.size(), removed) << number << testing::PrintToString(lost);
    }
}

const auto kName = [](const auto &tested) { return tested.param; };
INSTANTIATE_TEST_SUITE_P(Machines, RaidOutputs, testing::ValuesIn(machines()), kName);
INSTANTIATE_TEST_SUITE_P(Machines, Blocks, testing::ValuesIn(arcconfs()), kName);

} // namespace
} // namespace inventory::raid
