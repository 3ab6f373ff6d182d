#include "output/messages.h"

#include "output/text.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace tool {
namespace {

// Lines about the same trouble before the rest is only counted.
constexpr std::size_t kMostLines = 8;

std::string line_of(const Failure &failure) {
    if (!failure.words.empty()) return failure.source + ": " + failure.words;
    return failure.source + ": cannot read " + (failure.reader.empty() ? "the device" : failure.reader);
}

} // namespace

void complain(std::string_view text) { std::fprintf(stderr, "torvane: %s\n", printable(text).c_str()); }

int refuse(std::string_view text, std::string_view command) {
    complain(text);
    const std::string about = command.empty() ? "torvane" : "torvane " + std::string(command);
    std::fprintf(stderr, "Try '%s --help' for more information.\n", about.c_str());
    return kWrongUsage;
}

void tell(const std::vector<Failure> &failures) {
    std::fflush(stdout); // where both are one terminal or file, the answer comes first
    std::vector<std::string> remedies;
    std::map<std::string, std::size_t> told;
    for (const Failure &failure : failures) {
        if (!failure.essential) continue;
        const std::size_t before = told[failure.remedy]++;
        if (failure.remedy.empty() || before < kMostLines) complain(line_of(failure));
        if (!failure.remedy.empty() && before == 0) remedies.push_back(failure.remedy);
    }
    for (const std::string &remedy : remedies) {
        const std::size_t count = told[remedy];
        if (count > kMostLines) complain("the same for " + std::to_string(count - kMostLines) + " more");
        complain(remedy);
    }
}

int exit_code(const std::vector<Failure> &failures, bool anything_shown) {
    const bool failed = std::any_of(failures.begin(), failures.end(), [](const Failure &f) { return f.essential; });
    if (!failed) return kDone;
    return anything_shown ? kPartly : kFailed;
}

} // namespace tool
