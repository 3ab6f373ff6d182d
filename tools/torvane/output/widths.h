// Tables on narrow terminals. Names, serial numbers and sizes are never cut: half a serial number is a wrong one.
#pragma once

#include "output/table.h"

#include <string>
#include <vector>

namespace tool {

struct TextRow;
using TextBranch = std::vector<TextRow>;

struct TextRow {
    std::vector<std::string> cells;
    TextBranch below;
    bool failed = false;
};

// Cuts models, marked with "…", where the stream is a terminal that is too narrow for the whole table.
void fit_to_terminal(const Columns &columns, TextBranch &rows, bool is_tree, std::FILE *out);

// The text in at most this many places of a terminal, an ellipsis at its end when it was longer.
std::string cut_to(const std::string &text, std::size_t places);

} // namespace tool
