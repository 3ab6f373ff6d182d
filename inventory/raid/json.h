// JSON as tools really print it: text before and after it, cut off anywhere, bytes that are no UTF-8, a key twice,
// numbers where the next version has texts. What is whole before the fault is kept.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace inventory::raid {

// A value. Numbers and flags are kept as texts, null as "".
struct Json {
    enum class Kind : unsigned char { kText, kObject, kList };
    Kind kind = Kind::kText;
    std::string text;
    std::vector<std::pair<std::string, Json>> fields; // keys without blanks at their ends; a key may stand twice
    std::vector<Json> items;

    // The first field with the key, in any case; null when there is none.
    [[nodiscard]] const Json *at(std::string_view key) const;
    // Its text as scan.h's told() gives it; of several keys the first that has any.
    [[nodiscard]] std::string told(std::string_view key) const;
    [[nodiscard]] std::string told(std::initializer_list<std::string_view> keys) const;
};

struct ParsedJson {
    Json root;
    std::string fault;    // why it could not be read to its end
    std::size_t line = 0; // where, from 1
};

// More values than this are refused: no controller has so many, and each costs about 150 bytes of memory.
inline constexpr std::size_t kMostJsonValues = 500'000;
inline constexpr std::size_t kDeepestJson = 32;

ParsedJson parse_json(std::string_view text);

} // namespace inventory::raid
