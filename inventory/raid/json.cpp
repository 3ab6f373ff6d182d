#include "inventory/raid/json.h"

#include "inventory/raid/scan.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace inventory::raid {
namespace {

// Builds the tree as the text is read, so that a text that breaks off leaves what was whole.
class Builder : public nlohmann::json_sax<nlohmann::json> {
  public:
    explicit Builder(ParsedJson &result) : result_(result) {}
    [[nodiscard]] std::size_t fault_place() const { return fault_place_; }

    bool null() override { return put({}); }
    bool boolean(bool value) override { return put(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return put(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return put(std::to_string(value)); }
    bool number_float(number_float_t, const string_t &spelt) override { return put(spelt); }
    bool string(string_t &value) override { return put(std::move(value)); }
    bool binary(binary_t &) override { return false; }
    bool start_object(std::size_t) override { return open(Json::Kind::kObject); }
    bool start_array(std::size_t) override { return open(Json::Kind::kList); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t &name) override {
        key_ = std::string(trimmed(name));
        return true;
    }
    bool parse_error(std::size_t place, const std::string &, const nlohmann::detail::exception &) override {
        fault_place_ = place;
        return fail("the JSON is broken or cut off");
    }

  private:
    bool fail(const char *why) {
        if (result_.fault.empty()) result_.fault = why;
        return false;
    }

    Json *place(Json value) {
        if (++values_ > kMostJsonValues) return nullptr;
        if (open_.empty()) {
            result_.root = std::move(value);
            return &result_.root;
        }
        Json &parent = *open_.back();
        if (parent.kind == Json::Kind::kObject) parent.keys.push_back(std::move(key_));
        return &parent.items.emplace_back(std::move(value));
    }

    bool put(std::string text) {
        Json value;
        value.text = std::move(text);
        return place(std::move(value)) != nullptr || fail("more JSON values than any controller has");
    }

    // Only the innermost list grows, so the values that are open stay where they are.
    bool open(Json::Kind kind) {
        if (open_.size() >= kDeepestJson) return fail("JSON nested deeper than any tool does");
        Json value;
        value.kind = kind;
        Json *placed = place(std::move(value));
        if (placed == nullptr) return fail("more JSON values than any controller has");
        open_.push_back(placed);
        return true;
    }

    bool close() {
        open_.pop_back();
        return true;
    }

    ParsedJson &result_;
    std::vector<Json *> open_;
    std::string key_;
    std::size_t values_ = 0;
    std::size_t fault_place_ = 0;
};

// Control characters are blanks to JSON outside of texts, and faults inside, where drives may well have them. A line end
// inside stays a fault: a piece is missing there, and what follows belongs to something else.
std::string readable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        result += as_utf8(line) + '\n';
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return result;
}

// Where the first object begins; words before it may have braces of their own.
std::size_t object_in(std::string_view text) {
    for (std::size_t i = text.find('{'); i != std::string_view::npos; i = text.find('{', i + 1)) {
        const std::size_t next = text.find_first_not_of(" \t\r\n", i + 1);
        if (next != std::string_view::npos && (text[next] == '"' || text[next] == '}')) return i;
    }
    return std::string_view::npos;
}

} // namespace

const Json *Json::at(std::string_view key) const {
    const auto found =
        std::find_if(keys.begin(), keys.end(), [key](const std::string &own) { return same_word(own, key); });
    return found == keys.end() ? nullptr : &items[static_cast<std::size_t>(found - keys.begin())];
}

std::string Json::told(std::string_view key) const {
    const Json *value = at(key);
    return value == nullptr ? std::string() : raid::told(value->text);
}

std::string Json::told(std::initializer_list<std::string_view> spellings) const {
    for (const std::string_view key : spellings) {
        std::string value = told(key);
        if (!value.empty()) return value;
    }
    return {};
}

ParsedJson parse_json(std::string_view text) {
    ParsedJson result;
    const std::size_t begin = object_in(text);
    if (begin == std::string_view::npos) {
        result.fault = trimmed(text).empty() ? "the tool printed nothing" : "no JSON in what the tool printed";
        return result;
    }
    const std::string json = readable(text.substr(begin));
    Builder builder(result);
    if (!nlohmann::json::sax_parse(json, &builder, nlohmann::json::input_format_t::json, false)) {
        // Close enough where bytes that are no UTF-8 were replaced by longer ones.
        const std::size_t end = std::min(text.size(), begin + builder.fault_place());
        const auto ends = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n');
        result.line = 1 + static_cast<std::size_t>(ends);
    }
    return result;
}

} // namespace inventory::raid
