#include "output/messages.h"

#include "output/text.h"

#include <algorithm>
#include <cstdio>

namespace tool {
namespace {

// Devices named in one line before the rest is only counted.
constexpr std::size_t kMostNames = 4;
// What readers say when it is no part of a device that failed.
constexpr std::string_view kWholeDevice = "device";

// The library's texts name the path, and so does the line.
std::string words_of(const Trouble &trouble) {
    std::string words = trouble.words;
    const std::string path = " '" + trouble.source + "'";
    const std::size_t at = words.find(path);
    if (at != std::string::npos) words.erase(at, path.size());
    const bool is_part =
        !trouble.what.empty() && trouble.what != kWholeDevice && words.find(trouble.what) == std::string::npos;
    if (!words.empty()) return is_part ? trouble.what + ": " + words : words;
    return "cannot read " + (trouble.what.empty() ? "the device" : trouble.what);
}

struct Told {
    std::string words;
    std::string remedy;
    std::vector<std::string> sources;
};

std::string names_of(const std::vector<std::string> &sources) {
    std::string names;
    const std::size_t shown = sources.size() > kMostNames + 1 ? kMostNames : sources.size();
    for (std::size_t i = 0; i < shown; ++i) names += (i == 0 ? "" : ", ") + sources[i];
    if (shown < sources.size()) names += " and " + std::to_string(sources.size() - shown) + " more";
    return names;
}

std::vector<Told> lines_of(const Troubles &troubles) {
    std::vector<Told> lines;
    for (const Trouble &trouble : troubles) {
        const std::string words = words_of(trouble);
        auto line = std::find_if(lines.begin(), lines.end(),
                                 [&](const Told &l) { return l.words == words && l.remedy == trouble.remedy; });
        if (line == lines.end()) line = lines.insert(lines.end(), {words, trouble.remedy, {}});
        const bool is_new =
            std::find(line->sources.begin(), line->sources.end(), trouble.source) == line->sources.end();
        if (is_new) line->sources.push_back(trouble.source);
    }
    return lines;
}

} // namespace

void complain(std::string_view text) { std::fprintf(stderr, "torvane: %s\n", printable(text).c_str()); }

int refuse(std::string_view text, std::string_view command) {
    complain(text);
    const std::string about = command.empty() ? "torvane" : "torvane " + std::string(command);
    std::fprintf(stderr, "Try '%s --help' for more information.\n", about.c_str());
    return kWrongUsage;
}

void tell(const Troubles &troubles) {
    std::fflush(stdout); // where both are one terminal or file, the answer comes first
    std::vector<Told> lines = lines_of(troubles);
    // What one remedy helps with stands together, and the remedy behind it.
    while (!lines.empty()) {
        const std::string remedy = lines.front().remedy;
        for (const Told &line : lines) {
            if (line.remedy != remedy) continue;
            complain(line.sources.front().empty() ? line.words : names_of(line.sources) + ": " + line.words);
        }
        if (!remedy.empty()) complain(remedy);
        std::erase_if(lines, [&remedy](const Told &line) { return line.remedy == remedy; });
    }
}

int exit_code(const Troubles &troubles, bool anything_shown) {
    const bool failed = std::any_of(troubles.begin(), troubles.end(), [](const Trouble &t) { return t.essential; });
    if (!failed) return kDone;
    return anything_shown ? kPartly : kFailed;
}

} // namespace tool
