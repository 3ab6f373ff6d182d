// The reader of one RAID tool: every command is answered with the same text. Which tool, the program's name says:
// storcli_fuzzer.
#include "inventory/raid/answers.h"
#include "inventory/raid/health.h"
#include "inventory/raid/tools.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

const inventory::raid::Tool &fuzzed_tool() {
    const std::string_view program = program_invocation_short_name;
    for (const inventory::raid::Tool *tool : inventory::raid::all_tools()) {
        if (tool->name == program.substr(0, program.find('_'))) return *tool;
    }
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace inventory;
    static const raid::Tool &tool = fuzzed_tool();
    const std::string text(reinterpret_cast<const char *>(data), size);
    const bool is_plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~' && c != '\\'); });
    const raid::Runner run = [&](const std::vector<std::string> &) { return raid::Reply{text, 0, ""}; };
    const raid::Survey survey = tool.survey(run, tool.name);
    for (const raid::Controller &controller : survey.controllers) {
        for (const raid::LogicalDrive &logical : controller.logical) {
            for (const std::size_t place : logical.members) {
                if (place >= controller.drives.size()) std::abort();
            }
        }
        // Serials are never built of anything but what the tool printed; escapes and odd bytes are spelt differently.
        for (const raid::PhysicalDrive &drive : controller.drives) {
            if (is_plain && text.find(drive.serial) == std::string::npos) std::abort();
        }
    }
    Machine machine;
    raid::add_answers(machine, {{&tool, tool.name, survey}}, {}, {});
    settle(machine);
    problems_of(machine);
    return 0;
}
