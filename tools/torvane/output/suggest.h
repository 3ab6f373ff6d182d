// The name that somebody who mistyped one most likely meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The nearest of the names in any case, "" when none is near.
std::string nearest(std::string_view wrong, const std::vector<std::string> &names);

// " (did you mean 'NAME'?)", or "" when nothing is near.
std::string did_you_mean(std::string_view wrong, const std::vector<std::string> &names);

} // namespace tool
