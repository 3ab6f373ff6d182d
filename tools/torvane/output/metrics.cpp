#include "output/metrics.h"

#include "output/text.h"

#include <array>
#include <cstdio>

namespace tool {
namespace {

// OpenMetrics 1.0, "escaped-char": backslash, quote and line feed. Other control characters and bytes that are no
// UTF-8 have no place in the text at all.
std::string escaped(const std::string &text) {
    std::string out;
    for (const char c : printable(text)) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out;
}

std::string number(double value) {
    std::array<char, 40> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.17g", value);
    return buffer.data();
}

} // namespace

void Metrics::family(const std::string &name, const std::string &type, const std::string &help,
                     const std::string &unit) {
    name_ = name;
    text_ += "# TYPE " + name + " " + type + "\n";
    if (!unit.empty()) text_ += "# UNIT " + name + " " + unit + "\n";
    text_ += "# HELP " + name + " " + escaped(help) + "\n";
}

void Metrics::sample(const Labels &labels, double value) { line(name_, labels, number(value)); }

void Metrics::info(const Labels &labels) { line(name_ + "_info", labels, "1"); }

void Metrics::line(const std::string &name, const Labels &labels, const std::string &value) {
    text_ += name;
    std::string separator = "{";
    for (const auto &[label, text] : labels) {
        text_ += separator + label + "=\"" + escaped(text) + "\"";
        separator = ",";
    }
    text_ += (labels.empty() ? " " : "} ") + value + "\n";
}

} // namespace tool
