#include "inventory/raid/answers.h"

#include "inventory/raid/things.h"
#include "inventory/raid/ties.h"
#include "inventory/raid/tools.h"

#include <unistd.h>

#include <algorithm>
#include <string>

namespace inventory::raid {
namespace {

constexpr const char *kAsRoot = "run it as root: the tools open the controllers' device nodes";

// What a tool could not tell is missed, unless others told of all of its controllers.
bool is_missed(std::size_t answer, const std::vector<Answer> &answers, const std::vector<Found> &found,
               const std::vector<Adapter> &adapters) {
    const Answer &asked = answers[answer];
    const bool is_first =
        std::any_of(found.begin(), found.end(), [&](const Found &one) { return one.answer == answer; });
    if (is_first) return true;
    if (!asked.survey.controllers.empty()) return false;
    bool any = false;
    for (const Adapter &adapter : adapters) {
        if (!manages(*asked.tool, adapter)) continue;
        any = true;
        if (!is_told(adapter, found)) return true;
    }
    return !any;
}

void tell_doubts(Machine &machine, const Answer &answer, bool missed) {
    const auto remedy = [&] { return geteuid() == 0 ? std::string() : std::string(kAsRoot); };
    if (!answer.survey.trouble.empty()) {
        machine.troubles.push_back({answer.binary, "", answer.survey.trouble, remedy(), missed});
    }
    for (const Doubt &doubt : answer.survey.doubts) {
        if (doubt.words == answer.survey.trouble) continue; // said once already
        std::string what = doubt.where;
        if (doubt.line > 0) what += (what.empty() ? "line " : ", line ") + std::to_string(doubt.line);
        machine.troubles.push_back({doubt.tool, what, doubt.words, "", missed});
    }
}

std::string tools_for(const Adapter &adapter) {
    std::string names;
    for (const Tool *tool : all_tools()) {
        if (manages(*tool, adapter)) names += (names.empty() ? "" : " or ") + std::string(tool->name);
    }
    return names;
}

// The kernel has a driver at work for it, so it is there, whatever the tools say.
void add_untold(Machine &machine, const Adapter &adapter, const std::vector<Answer> &answers) {
    Thing &thing = machine.add(ThingKind::kController, adapter.pci);
    thing.tell("name", adapter.pci, Source::kKernel, "/sys/bus/pci/drivers");
    thing.tell("type", std::string("controller"), Source::kDerived);
    thing.tell("pci", adapter.pci, Source::kKernel, "/sys/bus/pci/drivers");
    thing.tell("driver", adapter.driver, Source::kKernel, "/sys/bus/pci/drivers");
    thing.tell("serial", adapter.serial, Source::kKernel, "serial_number");
    std::string asked;
    for (const Answer &answer : answers) {
        if (manages(*answer.tool, adapter)) asked += (asked.empty() ? "" : ", ") + answer.binary;
    }
    const std::string tools = tools_for(adapter);
    Trouble trouble{"/sys/bus/pci/drivers/" + adapter.driver + "/" + adapter.pci, "", "", "", true};
    if (!asked.empty()) {
        trouble.words = asked + " does not tell of this controller, which the driver " + adapter.driver + " runs";
        trouble.remedy = geteuid() == 0 ? "install a newer tool of its maker: " + tools : kAsRoot;
    } else {
        trouble.words = "no tool tells about this controller; its logical and member drives are unknown";
        if (!tools.empty()) trouble.remedy = "install the maker's tool: " + tools;
    }
    thing.lacks("state", trouble.words);
    thing.troubles.push_back(std::move(trouble));
}

} // namespace

void add_answers(Machine &machine, const std::vector<Answer> &answers, const std::vector<Adapter> &adapters,
                 const std::vector<GenericNode> &generics) {
    const std::vector<Found> found = merged(answers, adapters);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        tell_doubts(machine, answers[i], is_missed(i, answers, found, adapters));
    }
    std::vector<Tied> tied;
    tied.reserve(found.size());
    for (const Found &one : found) tied.push_back({one, add_things(machine, one)});
    tie_to_kernel(machine, tied, generics);
    for (const Adapter &adapter : adapters) {
        if (adapter.hides_drives && !is_told(adapter, found)) add_untold(machine, adapter, answers);
    }
}

} // namespace inventory::raid
