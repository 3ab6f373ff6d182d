#include "output/suggest.h"

#include <algorithm>
#include <cctype>

namespace tool {
namespace {

std::string lower(std::string_view text) {
    std::string result(text);
    for (char &c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

// Letters to insert, drop, replace or swap with their neighbour (optimal string alignment).
std::size_t distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) steps[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) steps[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
            const bool is_swap = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (is_swap) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    }
    return steps[a.size()][b.size()];
}

// "ls" of "list", "hlth" of "health".
bool leaves_out_letters(const std::string &typed, const std::string &known) {
    std::size_t at = 0;
    for (const char c : known) at += at < typed.size() && typed[at] == c ? 1 : 0;
    return at == typed.size() && typed.front() == known.front();
}

} // namespace

std::string nearest(std::string_view wrong, const std::vector<std::string> &names) {
    // A longer text is no typing error, and the table of steps grows with its square.
    constexpr std::size_t kLongest = 64;
    if (wrong.empty() || wrong.size() > kLongest) return {};
    const std::string typed = lower(wrong);
    std::string best;
    std::size_t fewest = std::max<std::size_t>(1, typed.size() / 3) + 1;
    for (const std::string &name : names) {
        const std::string known = lower(name);
        // The beginning of a name is a better guess than a name that is spelt alike.
        const bool is_short_for = typed.size() > 2 && known.starts_with(typed);
        const bool is_short = is_short_for || (typed.size() > 1 && leaves_out_letters(typed, known));
        const std::size_t steps = is_short ? 1 : distance(typed, known);
        if (steps >= fewest) continue;
        fewest = steps;
        best = name;
    }
    return best;
}

std::string did_you_mean(std::string_view wrong, const std::vector<std::string> &names) {
    const std::string name = nearest(wrong, names);
    return name.empty() ? "" : " (did you mean '" + name + "'?)";
}

} // namespace tool
