#include "inventory/raid/raid.h"

#include "inventory/raid/answers.h"
#include "inventory/raid/tools.h"
#include "inventory/reading/command.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace inventory {
namespace {

using namespace raid; // its own front door
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Runs one binary's commands: all within one time limit, each alone on the machine.
class TimedRunner {
  public:
    TimedRunner(std::string path, milliseconds limit) : path_(std::move(path)), limit_(limit), left_(limit) {}

    Reply operator()(const std::vector<std::string> &arguments) {
        if (left_ <= milliseconds(0)) return {"", -1, "not asked: the time for this tool is over"};
        const ToolLock lock(limit_);
        if (!lock.trouble().empty()) return {"", -1, lock.trouble()};
        std::vector<std::string> command{path_};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Clock::time_point begin = Clock::now();
        CommandLimits limits;
        limits.time = left_;
        CommandResult result = run_command(command, limits);
        left_ -= std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
        if (!result.trouble.empty()) left_ = std::min(left_, limit_ / 4);
        return {std::move(result.output), result.status, std::move(result.trouble)};
    }

  private:
    std::string path_;
    milliseconds limit_;
    milliseconds left_;
};

Survey survey_of(const Tool &tool, const std::string &path, milliseconds limit) {
    const std::string name = std::filesystem::path(path).filename().string();
    TimedRunner runner(path, limit);
    try {
        Survey survey =
            tool.survey([&runner](const std::vector<std::string> &arguments) { return runner(arguments); }, name);
        for (Controller &controller : survey.controllers) controller.tool = name;
        return survey;
    } catch (const std::exception &fault) {
        Survey survey;
        survey.trouble = fault.what();
        return survey;
    }
}

// The newest binary that tells of any controller; an old one beside it may tell of none, and the other way round.
void ask(const Tool &tool, milliseconds limit, std::vector<Answer> &answers) {
    for (const std::string &path : binaries_of(tool)) {
        answers.push_back({&tool, std::filesystem::path(path).filename().string(), survey_of(tool, path, limit)});
        if (!answers.back().survey.controllers.empty()) return;
    }
}

bool is_told_whole(const Adapter &adapter, const std::vector<Found> &found, const std::vector<Answer> &answers) {
    return std::any_of(found.begin(), found.end(), [&](const Found &one) {
        const Survey &survey = answers[one.answer].survey;
        return one.adapter == &adapter && survey.doubts.empty() && survey.trouble.empty() &&
               !one.controller.drives.empty();
    });
}

// What machine-readable tools told whole about all of a tool's controllers needs no telling again.
bool is_needed(const Tool &tool, const std::vector<Adapter> &adapters, const std::vector<Answer> &answers) {
    const std::vector<Found> found = merged(answers, adapters);
    bool any = false;
    for (const Adapter &adapter : adapters) {
        if (!manages(tool, adapter)) continue;
        any = true;
        if (!is_told_whole(adapter, found, answers)) return true;
    }
    return !any;
}

std::vector<Answer> ask_all(const std::vector<Adapter> &adapters, milliseconds limit) {
    std::vector<Answer> answers;
    for (const Tool *tool : all_tools()) {
        if (is_needed(*tool, adapters, answers)) ask(*tool, limit, answers);
    }
    return answers;
}

} // namespace

void read_raid(Machine &machine, const RaidRequest &request) {
    ReadFailures failures;
    const std::vector<Adapter> adapters = bound_adapters(failures);
    const std::vector<GenericNode> generics = generic_nodes_without_disk(failures);
    tell_failures(machine, "RAID controllers in /sys", failures);
    add_answers(machine, ask_all(adapters, request.limit), adapters, generics);
}

} // namespace inventory
