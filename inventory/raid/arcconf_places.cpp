#include "inventory/raid/arcconf.h"

#include <algorithm>
#include <array>

namespace inventory::raid::arcconf {
namespace {

// Cuts the text before the separator off its beginning.
std::string_view take_part(std::string_view &text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

struct Brackets {
    std::string_view before;
    std::string_view within;
    std::string_view after;
    bool closed = false;
};

Brackets split_brackets(std::string_view text) {
    const std::size_t open = text.find('(');
    if (open == std::string_view::npos) return {trimmed(text), {}, {}, false};
    int depth = 0;
    for (std::size_t i = open; i < text.size(); ++i) {
        if (text[i] == '(') ++depth;
        if (text[i] == ')') --depth;
        if (depth == 0) {
            return {trimmed(text.substr(0, open)), trimmed(text.substr(open + 1, i - open - 1)),
                    trimmed(text.substr(i + 1)), true};
        }
    }
    return {trimmed(text.substr(0, open)), trimmed(text.substr(open + 1)), {}, false};
}

// "CN0", "0:CN0", "0" are the same connector.
std::string connector_number(std::string_view words) {
    const std::size_t digit = words.find_first_of("0123456789");
    if (digit == std::string_view::npos) return {};
    words.remove_prefix(digit);
    return std::string(words.substr(0, words.find_first_not_of("0123456789")));
}

// What the parts of a location say, whatever their order.
struct Parts {
    std::optional<std::string> enclosure;
    std::optional<std::string> slot;
    std::optional<std::string> device;
    std::string connectors;
    std::vector<std::string> numbers; // bare: channel and device
};

void set_enclosure(Parts &parts, std::string_view value) {
    parts.enclosure = holds(value, "direct") ? std::string() : told(value);
}
void set_slot(Parts &parts, std::string_view value) { parts.slot = told(value); }
void set_device(Parts &parts, std::string_view value) { parts.device = told(value); }
void add_connector(Parts &parts, std::string_view value) {
    const std::string number = connector_number(value);
    if (!number.empty()) parts.connectors += (parts.connectors.empty() ? "" : " ") + number;
}

struct PartRule {
    std::string_view name;
    void (*read)(Parts &parts, std::string_view value);
};
constexpr std::array<PartRule, 4> kPartRules{
    {{"enclosure", set_enclosure}, {"slot", set_slot}, {"connector", add_connector}, {"device", set_device}}};

// "Slot:3", "Slot 3", "Enclosure Direct Attached", "8".
void read_part(Parts &parts, std::string_view part) {
    if (whole_number(part)) parts.numbers.emplace_back(part);
    for (const PartRule &rule : kPartRules) {
        if (!begins_with(part, rule.name)) continue;
        std::string_view value = trimmed(part.substr(rule.name.size()));
        if (value.starts_with(':')) value = trimmed(value.substr(1));
        rule.read(parts, value);
    }
}

Parts parts_of(std::string_view words) {
    Parts parts;
    while (!words.empty()) read_part(parts, take_part(words, ','));
    return parts;
}

Place place_of(const Parts &parts) {
    if (parts.slot && !parts.slot->empty()) {
        return {Place::Kind::kEnclosure, parts.enclosure.value_or(""), *parts.slot, parts.connectors};
    }
    if (parts.device && !parts.device->empty() && !parts.connectors.empty()) {
        return {Place::Kind::kConnector, parts.connectors, *parts.device, {}};
    }
    if (parts.numbers.size() == 2) return {Place::Kind::kChannel, parts.numbers[0], parts.numbers[1], {}};
    return {};
}

// "953869MB" among the parts of a segment; a bare number is none.
std::optional<std::uint64_t> size_among(std::string_view words) {
    while (!words.empty()) {
        const std::string_view part = take_part(words, ',');
        if (!whole_number(part) && begins_with(part.substr(part.size() < 2 ? 0 : part.size() - 1), "b")) {
            if (const auto bytes = bytes_of(part); bytes && *bytes > 0) return bytes;
        }
    }
    return std::nullopt;
}

} // namespace

Place place_of(std::string_view words) {
    const Brackets brackets = split_brackets(words);
    Parts parts = parts_of(brackets.before);
    // What stands in the brackets only adds connectors: "(8:0)" is target and unit.
    const Parts more = parts_of(brackets.within);
    if (parts.connectors.empty()) parts.connectors = more.connectors;
    return place_of(parts);
}

bool Segment::is_gone() const {
    constexpr std::array<std::string_view, 4> kWords{"missing", "failed", "defunct", "not present"};
    return std::any_of(kWords.begin(), kWords.end(), [this](std::string_view gone) { return holds(word, gone); });
}

bool read_segment(std::string_view value, Segment &segment) {
    const Brackets brackets = split_brackets(value);
    if (!brackets.closed) {
        segment.place = place_of(value);
        const bool is_word = segment.place.kind == Place::Kind::kNone;
        if (is_word) segment.word = told(value);
        return value.find('(') == std::string_view::npos && !value.empty();
    }
    segment.word = told(brackets.before);
    segment.place = place_of(parts_of(brackets.within));
    segment.serial = told(brackets.after);
    segment.interface = interface_of(brackets.within);
    segment.media = media_of(brackets.within);
    segment.bytes = size_among(brackets.within);
    return segment.place.kind != Place::Kind::kNone || !segment.serial.empty() || segment.is_gone();
}

} // namespace inventory::raid::arcconf
