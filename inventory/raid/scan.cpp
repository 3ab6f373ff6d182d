#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace inventory::raid {
namespace {

bool is_padding(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0' || c == '\v' || c == '\f';
}
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_hex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }
char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Bytes of the UTF-8 character at the beginning; 0 when there is none (RFC 3629, section 4).
std::size_t character_at(std::string_view text) {
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(text[place]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < size) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0U) != 0x80U) return 0;
    }
    const unsigned char second = byte(1);
    const bool overlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
    const bool outside = (first == 0xed && second > 0x9f) || (first == 0xf4 && second > 0x8f);
    return overlong || outside ? 0 : size;
}

KeyValue split_at(std::string_view line, std::size_t colon) {
    if (colon == std::string_view::npos) return {{}, trimmed(line)};
    return {trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1))};
}

// 1024 for "GiB"; else what the tool's "GB" means.
std::uint64_t unit_size(std::string_view unit, std::uint64_t thousand) {
    constexpr std::string_view kPrefixes = "kmgtp";
    if (unit.empty() || lower(unit[0]) == 'b') return 1;
    const std::size_t power = kPrefixes.find(lower(unit[0]));
    if (power == std::string_view::npos) return 0;
    const std::string_view after = unit.substr(1);
    if (!after.empty() && lower(after[0]) == 'i') thousand = 1024;
    if (!after.empty() && lower(after[0]) != 'i' && lower(after[0]) != 'b' && !is_padding(after[0])) return 0;
    std::uint64_t size = 1;
    for (std::size_t i = 0; i <= power; ++i) size *= thousand;
    return size;
}

} // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_padding(text.back())) text.remove_suffix(1);
    while (!text.empty() && is_padding(text.front())) text.remove_prefix(1);
    return text;
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lower(c); });
    return result;
}

bool same_word(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

bool begins_with(std::string_view text, std::string_view beginning) {
    return same_word(text.substr(0, beginning.size()), beginning);
}

bool holds(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return lower(a) == lower(b); }) != text.end();
}

bool Lines::next(std::string_view &line) {
    if (rest_.empty()) return false;
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    ++number_;
    return true;
}

KeyValue split_at_colon(std::string_view line) { return split_at(line, line.find(':')); }

KeyValue split_at_colon_blank(std::string_view line) {
    std::size_t colon = line.find(':');
    while (colon != std::string_view::npos && colon + 1 < line.size() && !is_padding(line[colon + 1])) {
        colon = line.find(':', colon + 1);
    }
    return split_at(line, colon);
}

bool is_nothing(std::string_view value) {
    constexpr std::array<std::string_view, 10> kWords{
        "", "-", "N/A", "NA", "None", "Unknown", "Not Available", "Not Applicable", "Not Supported", "Not Installed"};
    value = trimmed(value);
    return std::any_of(kWords.begin(), kWords.end(), [value](std::string_view word) { return same_word(word, value); });
}

std::string as_utf8(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t size = character_at(text);
        if (size == 0) {
            result += "\xef\xbf\xbd";
        } else {
            result += size == 1 && std::iscntrl(static_cast<unsigned char>(text[0])) != 0 ? " " : text.substr(0, size);
        }
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return result;
}

std::string told(std::string_view value) { return is_nothing(value) ? std::string() : as_utf8(trimmed(value)); }

std::optional<std::uint64_t> whole_number(std::string_view text, unsigned base) {
    text = trimmed(text);
    if (base == 16 && begins_with(text, "0x")) text.remove_prefix(2);
    std::uint64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number, static_cast<int>(base));
    if (fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<std::uint64_t> leading_number(std::string_view text) {
    text = trimmed(text);
    const auto end = std::find_if_not(text.begin(), text.end(), is_digit);
    return whole_number(text.substr(0, static_cast<std::size_t>(end - text.begin())));
}

std::optional<std::int64_t> leading_integer(std::string_view text) {
    text = trimmed(text);
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const std::optional<std::uint64_t> number = leading_number(text);
    if (!number || *number > INT32_MAX) return std::nullopt;
    const auto value = static_cast<std::int64_t>(*number);
    return negative ? -value : value;
}

std::optional<std::uint64_t> bytes_of(std::string_view text, std::uint64_t thousand) {
    text = trimmed(text);
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (fault != std::errc() || !std::isfinite(number) || number < 0) return std::nullopt;
    const std::string_view unit = trimmed(text.substr(static_cast<std::size_t>(end - text.data())));
    const double bytes = number * static_cast<double>(unit_size(unit, thousand));
    const bool has_unit = unit_size(unit, thousand) != 0;
    if (!has_unit || bytes >= 9.2e18) return std::nullopt;
    return static_cast<std::uint64_t>(std::llround(bytes));
}

std::optional<std::uint64_t> sectors_in(std::string_view text) {
    const std::size_t begin = text.find('[');
    if (begin == std::string_view::npos) return std::nullopt;
    const std::string_view inside = text.substr(begin + 1);
    const std::optional<std::uint64_t> count = whole_number(inside.substr(0, inside.find_first_of(" ]")), 16);
    return count && *count > 0 && *count < (std::uint64_t{1} << 51) ? count : std::nullopt;
}

std::uint64_t bytes_of_sectors(std::uint64_t count, std::optional<std::uint64_t> sector, std::string_view printed) {
    const bool plausible = sector && std::has_single_bit(*sector) && *sector >= 512 && *sector <= 4096;
    const std::uint64_t assumed = plausible ? *sector : 512;
    const std::optional<std::uint64_t> size = bytes_of(printed);
    if (!size || *size == 0) return count * assumed;
    const auto distance = [&](std::uint64_t candidate) {
        return std::abs(std::log(static_cast<double>(count * candidate) / static_cast<double>(*size)));
    };
    std::uint64_t best = assumed;
    for (const std::uint64_t candidate : {std::uint64_t{512}, std::uint64_t{4096}}) {
        if (distance(candidate) < distance(best)) best = candidate;
    }
    return count * best;
}

std::string world_wide_name(std::string_view text) {
    text = trimmed(text);
    for (const std::string_view prefix : {"naa.", "eui.", "0x"}) {
        if (begins_with(text, prefix)) text.remove_prefix(prefix.size());
    }
    const bool zeros = text.find_first_not_of('0') == std::string_view::npos;
    if (zeros || !std::all_of(text.begin(), text.end(), is_hex)) return {};
    return lower(text);
}

std::string pci_address(std::string_view text) {
    text = trimmed(text);
    std::array<std::uint64_t, 4> parts{};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const bool last = i + 1 == parts.size();
        const std::size_t end = last ? text.size() : text.find_first_of(":.");
        if (end == std::string_view::npos) return {};
        const std::optional<std::uint64_t> part = whole_number(text.substr(0, end), 16);
        if (!part) return {};
        parts[i] = *part;
        text.remove_prefix(last ? end : end + 1);
    }
    if (parts[0] > 0xffffffff || parts[1] > 0xff || parts[2] > 0x1f || parts[3] > 7) return {};
    std::array<char, 32> spelt{};
    std::snprintf(spelt.data(), spelt.size(), "%04x:%02x:%02x.%x", static_cast<unsigned>(parts[0]),
                  static_cast<unsigned>(parts[1]), static_cast<unsigned>(parts[2]), static_cast<unsigned>(parts[3]));
    return spelt.data();
}

void doubt(Survey &survey, std::string tool, std::size_t line, std::string where, std::string words) {
    if (survey.doubts.size() > kMostDoubts) return;
    if (survey.doubts.size() == kMostDoubts) {
        where.clear();
        words = "and more that could not be read";
    }
    survey.doubts.push_back({std::move(tool), line, std::move(where), std::move(words)});
}

} // namespace inventory::raid
