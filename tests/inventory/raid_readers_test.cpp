#include "inventory/raid/tools.h"
#include "raid_machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace torvane::tests {
namespace {

using namespace inventory::raid;

const Tool &tool_of(const RaidMachine &machine) {
    for (const Tool *tool : {&kArcconf, &kSsacli, &kSas2ircu, &kMvcli}) {
        if (machine.truth.at("tool") == tool->name) return *tool;
    }
    throw std::runtime_error(machine.name + ": no such tool");
}

std::string doubts(const Survey &survey) {
    std::ostringstream text;
    for (const Doubt &doubt : survey.doubts) {
        text << doubt.tool << ":" << doubt.line << ": " << doubt.where << ": " << doubt.words << "\n";
    }
    return text.str();
}

// Null in a truth stands for "not told", as does a missing key. Drives are held against each other by their names:
// where a list begins is no truth.
Json normal(Json machine) {
    machine.erase("tool");
    for (Json &controller : machine["controllers"]) {
        const auto name = [](const Json &drive) {
            return drive.value("serial", "") + drive.value("slot", "") + drive.dump();
        };
        std::vector<Json> drives = controller["drives"];
        std::sort(drives.begin(), drives.end(), [&](const Json &a, const Json &b) { return name(a) < name(b); });
        controller["drives"] = drives;
    }
    const auto drop_nulls = [](auto &&self, Json &json) -> void {
        for (auto entry = json.begin(); entry != json.end();) {
            const bool none = json.is_object() && entry->is_null();
            if (!none && entry->is_structured()) self(self, *entry);
            entry = none ? json.erase(entry) : std::next(entry);
        }
    };
    drop_nulls(drop_nulls, machine);
    return machine;
}

std::string difference(const Json &truth, const Json &told) {
    std::ostringstream text;
    for (const Json &step : Json::diff(truth, told)) {
        const Json::json_pointer place(step["path"].get<std::string>());
        text << step.dump() << "  truth: " << (truth.contains(place) ? truth[place].dump() : "-") << "\n";
    }
    return text.str();
}

class RaidReaders : public testing::TestWithParam<RaidMachine> {
  protected:
    const RaidMachine &machine = GetParam();
    const Tool &tool = tool_of(machine);

    void holds_after(const char *what, const Change &change) {
        const Survey answer = survey(tool, machine, change);
        EXPECT_EQ(difference(normal(machine.truth), normal(as_truth(answer))), "") << what << "\n" << doubts(answer);
    }
};

std::string each_line(const std::string &text, const std::function<std::string(const std::string &)> &change) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) result += change(line) + (lines.eof() ? "" : "\n");
    return result;
}

std::size_t colon_of(const std::string &line) {
    const std::size_t colon = line.find(": ");
    return colon == std::string::npos && line.ends_with(':') ? line.size() - 1 : colon;
}

std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

TEST_P(RaidReaders, AreReadAsTheyStand) { holds_after("as it stands", {}); }

// Copies through mails, consoles and other versions: nothing that is told may change.
TEST_P(RaidReaders, SurviveWhatHappensToCopies) {
    holds_after("CRLF", [](const std::string &text) {
        return each_line(text, [](const std::string &line) { return line + "\r"; });
    });
    holds_after("blank lines between", [](const std::string &text) {
        return each_line(text, [](const std::string &line) { return line + "\n  "; });
    });
    holds_after("no indentation", [](const std::string &text) {
        return each_line(text, [](const std::string &line) {
            return line.substr(std::min(line.find_first_not_of(' '), line.size()));
        });
    });
    holds_after("no empty lines", [](const std::string &text) {
        std::string result;
        each_line(text, [&](const std::string &line) {
            if (line.find_first_not_of(' ') != std::string::npos) result += line + "\n";
            return line;
        });
        return result;
    });
    holds_after("keys in another case", [](const std::string &text) {
        return each_line(text, [](const std::string &line) {
            const std::size_t colon = colon_of(line);
            const bool refers =
                line.find("physicaldrive") != std::string::npos || line.find("(sn:") != std::string::npos;
            return colon == std::string::npos || refers ? line : lower(line.substr(0, colon)) + line.substr(colon);
        });
    });
    holds_after("keys that nobody knows", [](const std::string &text) {
        return each_line(text, [](const std::string &line) {
            return colon_of(line) == std::string::npos ? line : line + "\n            New Key (2031) : 77 frobs";
        });
    });
}

// Every fact that is told of a drive must be that drive's; until the later sections are read, a role may be weaker.
void expect_no_lie(const Json &truth, const Json &told, const std::string &what) {
    const std::string role = truth["role"];
    for (const auto &[key, value] : told.items()) {
        const bool weaker =
            key == "role" && (value == "unknown" || role == "member" || role == "missing" || role == "jbod");
        const bool taken = role == "missing" && !truth.contains(key); // a drive that comes later sits there
        if (weaker || taken || key == "state" || key == "predictive_failure") continue;
        EXPECT_TRUE(truth.contains(key) && truth[key] == value)
            << what << ": " << key << " " << value << " of " << truth;
    }
}

const Json *find_drive(const Json &truth, const Json &number, const Json &drive) {
    for (const char *key : {"serial", "channel", "device_id", "slot"}) {
        const bool is_port = key == std::string("channel") && drive.value(key, "").find(',') == std::string::npos;
        if (!drive.contains(key) || is_port) continue;
        for (const Json &controller : truth["controllers"]) {
            if (controller["number"] != number) continue;
            for (const Json &known : controller["drives"]) {
                const bool same_place = drive.value("enclosure", "") == known.value("enclosure", "");
                const bool by_place = key == std::string("slot") || key == std::string("device_id");
                if (known.value(key, Json()) == drive[key] && (!by_place || same_place)) return &known;
            }
        }
        return nullptr;
    }
    return nullptr;
}

// A serial number as it stands, whole, in one of the outputs.
bool stands_in(const RaidMachine &machine, const std::string &serial) {
    return std::any_of(machine.outputs.begin(), machine.outputs.end(), [&](const auto &output) {
        const std::size_t place = output.second.find(serial);
        return place != std::string::npos && std::isspace(output.second[place + serial.size()]) != 0;
    });
}

void expect_truth_in(const RaidMachine &machine, const Json &truth, const Json &told, const std::string &what) {
    for (const Json &controller : told["controllers"]) {
        for (const Json &drive : controller["drives"]) {
            const Json *known = find_drive(truth, controller["number"], drive);
            if (known) expect_no_lie(*known, drive, what);
            // A segment can name a serial number that the drive's own block does not tell.
            const bool named =
                drive.contains("serial") ? stands_in(machine, drive["serial"]) : !drive.contains("model");
            EXPECT_TRUE(known || named) << what << ": made up " << drive;
        }
    }
}

TEST_P(RaidReaders, TellNothingWrongWhenCutOff) {
    const Json truth = normal(machine.truth);
    const bool has_closing_line = machine.truth["tool"] == "arcconf" || machine.truth["tool"] == "sas2ircu";
    std::size_t longest = 0;
    for (const auto &[name, text] : machine.outputs) longest = std::max(longest, text.size());
    for (std::size_t size = 0; size < longest; size += 61) {
        const Survey answer = survey(tool, machine, [size](const std::string &text) { return text.substr(0, size); });
        const std::string what = machine.name + " after " + std::to_string(size) + " bytes";
        expect_truth_in(machine, truth, normal(as_truth(answer)), what);
        const bool in_last_line = size + 40 > longest;
        EXPECT_TRUE(!has_closing_line || in_last_line || !answer.doubts.empty() || !answer.trouble.empty()) << what;
    }
}

// A drive whose block cannot be read costs that drive's facts alone. Blocks begin with "Device #" in arcconf alone.
class ArcconfReader : public RaidReaders {};
TEST_P(ArcconfReader, LosesOneDriveWithItsBlock) {
    const Json truth = normal(as_truth(survey(tool, machine)));
    for (const char *number : {"#0", "#1", "#2"}) {
        const std::string start = std::string("      Device ") + number + "\n";
        const Survey answer = survey(tool, machine, [&](const std::string &text) {
            const std::size_t from = text.find(start);
            if (from == std::string::npos) return text;
            const std::size_t to = std::min(text.find("      Device #", from + start.size()), text.find("\n\n", from));
            return text.substr(0, from) + (to == std::string::npos ? "" : text.substr(to));
        });
        const Json told = normal(as_truth(answer));
        for (const Json &controller : told["controllers"]) {
            for (const Json &drive : controller["drives"]) {
                const Json *known = find_drive(truth, controller["number"], drive);
                ASSERT_TRUE(known) << machine.name << " without " << number << ": " << drive;
                // What logical drives say about it remains of the drive that was taken out.
                const bool taken_out = drive.contains("model") != known->contains("model");
                EXPECT_TRUE(taken_out || drive["role"] == "missing" || *known == drive) << number << "\n"
                                                                                        << *known << "\n"
                                                                                        << drive;
            }
        }
        for (std::size_t i = 0; i < truth["controllers"].size(); ++i) {
            EXPECT_EQ(told["controllers"][i]["logical"].size(), truth["controllers"][i]["logical"].size());
            EXPECT_GE(told["controllers"][i]["drives"].size() + 1, truth["controllers"][i]["drives"].size());
        }
    }
}

std::vector<RaidMachine> machines_of(const std::string &tool) {
    std::vector<RaidMachine> machines = raid_machines(TORVANE_TEST_READERS);
    std::erase_if(machines, [&](const RaidMachine &machine) { return !tool.empty() && machine.truth["tool"] != tool; });
    return machines;
}
const auto kName = [](const auto &machine) { return machine.param.name; };
INSTANTIATE_TEST_SUITE_P(Machines, RaidReaders, testing::ValuesIn(machines_of("")), kName);
INSTANTIATE_TEST_SUITE_P(Machines, ArcconfReader, testing::ValuesIn(machines_of("arcconf")), kName);

} // namespace
} // namespace torvane::tests
