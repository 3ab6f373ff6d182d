#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace tool {

// What may stand in the place of the last word.
std::vector<std::string> candidates(const CLI::App &tool, const std::vector<std::string> &words);

} // namespace tool
