#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace tool {

struct Candidate {
    std::string word;
    std::string about; // what it is, for shells that show it
};

// Stands for all files that fit.
constexpr const char *kFilesToo = ":files";

// What may stand in the place of the last word, whole words in the spelling that is right.
std::vector<Candidate> candidates(const CLI::App &tool, const std::vector<std::string> &words);

} // namespace tool
