// JSON as tools really print it: text before and after it, cut off anywhere, bytes that are no UTF-8, a key twice,
// numbers where the next version has texts. What is whole before the fault is kept.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace inventory::raid {

// A value. Numbers and flags are kept as texts, null as "".
struct Json {
    enum class Kind : unsigned char { kText, kObject, kList };
    Kind kind = Kind::kText;
    std::string text;
    std::vector<Json> items;       // of a list, or an object's values
    std::vector<std::string> keys; // an object's, each of the item at its place; without blanks at their ends

    // The first value with the key, in any case; null when there is none. A key may stand twice.
    [[nodiscard]] const Json *at(std::string_view key) const;
    // Its text as scan.h's told() gives it; of several keys the first that has any.
    [[nodiscard]] std::string told(std::string_view key) const;
    [[nodiscard]] std::string told(std::initializer_list<std::string_view> spellings) const;
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
