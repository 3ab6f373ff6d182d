#include "output/widths.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>

namespace tool {
namespace {

constexpr std::string_view kCut = "model"; // the column that may be cut
constexpr std::size_t kLeast = 8;          // a model of fewer characters tells nothing
constexpr std::size_t kBranch = 2;         // the tree's lines before a name, each level

// The character at the front in bytes and places; anything that the locale does not know is one of each.
struct Character {
    std::size_t bytes;
    std::size_t places;
};

Character first_character(std::string_view text) {
    wchar_t wide = 0;
    std::mbstate_t state{};
    const std::size_t bytes = std::mbrtowc(&wide, text.data(), text.size(), &state);
    if (bytes == 0 || bytes > text.size()) return {1, 1};
    const int places = wcwidth(wide);
    return {bytes, places < 0 ? 1 : static_cast<std::size_t>(places)};
}

std::size_t places_of(std::string_view text) {
    std::size_t places = 0;
    while (!text.empty()) {
        const Character character = first_character(text);
        places += character.places;
        text.remove_prefix(character.bytes);
    }
    return places;
}

std::size_t terminal_width(std::FILE *out) {
    if (isatty(fileno(out)) != 1) return 0;
    winsize size{};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char *columns = std::getenv("COLUMNS");
    return columns ? std::strtoul(columns, nullptr, 10) : 0;
}

void measure(const TextBranch &rows, std::size_t depth, std::vector<std::size_t> &widths) {
    for (const TextRow &row : rows) {
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            const std::size_t indent = i == 0 ? depth : 0;
            widths[i] = std::max(widths[i], places_of(row.cells[i]) + indent);
        }
        measure(row.below, depth + kBranch, widths);
    }
}

void cut_cells(TextBranch &rows, std::size_t column, std::size_t places) {
    for (TextRow &row : rows) {
        row.cells[column] = cut_to(row.cells[column], places);
        cut_cells(row.below, column, places);
    }
}

} // namespace

std::string cut_to(const std::string &text, std::size_t places) {
    if (places_of(text) <= places) return text;
    std::string kept;
    std::size_t used = 0;
    std::string_view rest = text;
    while (!rest.empty()) {
        const Character character = first_character(rest);
        if (used + character.places + 1 > places) break;
        kept.append(rest.substr(0, character.bytes));
        used += character.places;
        rest.remove_prefix(character.bytes);
    }
    // A locale without the character shows dots of its own.
    return kept + (MB_CUR_MAX > 1 ? "…" : "~");
}

void fit_to_terminal(const Columns &columns, TextBranch &rows, bool is_tree, std::FILE *out) {
    const std::size_t width = terminal_width(out);
    const auto model = std::find_if(columns.begin(), columns.end(), [](const Column *c) { return c->key == kCut; });
    if (width == 0 || model == columns.end()) return;
    std::vector<std::size_t> widths;
    for (const Column *column : columns) widths.push_back(places_of(column->heading));
    measure(rows, 0, widths);
    if (!is_tree) widths.front() = std::max(widths.front(), places_of(columns.front()->heading));
    std::size_t total = widths.size() - 1;
    for (const std::size_t one : widths) total += one;
    if (total <= width) return;
    const auto place = static_cast<std::size_t>(model - columns.begin());
    const std::size_t excess = total - width;
    cut_cells(rows, place, widths[place] > kLeast + excess ? widths[place] - excess : kLeast);
}

} // namespace tool
