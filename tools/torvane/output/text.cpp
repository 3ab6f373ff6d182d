#include "output/text.h"

#include <array>
#include <cstdio>

namespace tool {
namespace {

constexpr std::string_view kDevices = "/dev/";

std::size_t sequence_length(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead < 0xE0) return 2;
    if (lead >= 0xE0 && lead < 0xF0) return 3;
    if (lead >= 0xF0 && lead < 0xF5) return 4;
    return 0;
}

// Bytes of the well-formed UTF-8 character at the front (Unicode 15, table 3-7); 0 when there is none.
std::size_t character_length(std::string_view text) {
    const std::size_t length = sequence_length(static_cast<unsigned char>(text[0]));
    if (length == 0 || length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U) return 0;
    }
    if (length < 3) return length;
    const auto lead = static_cast<unsigned char>(text[0]);
    const auto second = static_cast<unsigned char>(text[1]);
    const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool beyond = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
    return overlong || beyond ? 0 : length;
}

// C0, DEL and the two-byte C1 controls, which terminals obey as well.
bool is_control(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character[0]);
    return lead < 0x20 || lead == 0x7F || (lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

void append_escaped(std::string &out, std::string_view bytes) {
    for (const char byte : bytes) {
        std::array<char, 5> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(byte));
        out += escape.data();
    }
}

} // namespace

std::string human_size(std::uint64_t bytes) {
    constexpr std::string_view kUnits = "BKMGTPE";
    std::size_t unit = 0;
    auto value = static_cast<double>(bytes);
    // 1023.95 would be printed as 1024.0.
    while (value >= 1023.95 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.1f", value);
    std::string text = buffer.data();
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text + kUnits[unit];
}

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const std::string_view character = text.substr(0, length == 0 ? 1 : length);
        if (length == 0 || is_control(character)) {
            append_escaped(out, character);
        } else {
            out += character;
        }
        text.remove_prefix(character.size());
    }
    return out;
}

std::string escaped_controls(std::string_view json) {
    constexpr char kLead = '\xC2'; // of U+0080 to U+00BF in UTF-8
    std::string out;
    out.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
        const bool is_c1 = json[i] == kLead && i + 1 < json.size() && static_cast<unsigned char>(json[i + 1]) < 0xA0;
        if (!is_c1 && json[i] != '\x7F') {
            out += json[i];
            continue;
        }
        if (is_c1) ++i;
        std::array<char, 7> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u00%02x", static_cast<unsigned char>(json[i]));
        out += escape.data();
    }
    return out;
}

std::string short_name(std::string_view path) {
    return std::string(path.starts_with(kDevices) ? path.substr(kDevices.size()) : path);
}

std::string device_path(std::string_view name) {
    return name.find('/') == std::string_view::npos ? std::string(kDevices) + std::string(name) : std::string(name);
}

} // namespace tool
