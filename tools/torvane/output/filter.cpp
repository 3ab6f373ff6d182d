// Matching takes calls as deep as a regular expression has states, and this is how the C++ library is told their number.
#define _GLIBCXX_REGEX_STATE_LIMIT 10000 // NOLINT(bugprone-reserved-identifier,cert-dcl37-c)

#include "output/filter.h"

#include "output/columns.h"
#include "output/messages.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <regex>
#include <strings.h>

namespace tool {
namespace {

using Test = std::function<bool(const Lookup &)>;

enum class TokenKind { kWord, kText, kOperator, kEnd };

struct Token {
    TokenKind kind = TokenKind::kEnd;
    std::string text;
    std::size_t place = 0;
};

constexpr std::string_view kOperatorLetters = "=!<>~()&|";
// Longer ones first.
constexpr const char *kOperators[] = {"==", "!=", "<=", ">=", "=~", "!~", "&&", "||", "<", ">", "=", "!", "(", ")"};

[[noreturn]] void wrong(const Token &token, const std::string &expected) {
    const std::string found = token.kind == TokenKind::kEnd ? "the end" : "'" + token.text + "'";
    throw WrongUsage("--filter: expected " + expected + " at character " + std::to_string(token.place + 1) +
                     ", found " + found);
}

class Tokens {
  public:
    explicit Tokens(std::string text) : text_(std::move(text)) { next(); }

    [[nodiscard]] const Token &now() const { return now_; }
    Token take() {
        Token token = now_;
        next();
        return token;
    }
    [[nodiscard]] bool is_operator(std::string_view text) const {
        return now_.kind == TokenKind::kOperator && now_.text == text;
    }
    bool take_word(const char *word) {
        const bool is_it = now_.kind == TokenKind::kWord && strcasecmp(now_.text.c_str(), word) == 0;
        if (is_it) next();
        return is_it;
    }
    bool take_operator(std::string_view text) {
        const bool is_it = is_operator(text);
        if (is_it) next();
        return is_it;
    }

  private:
    void next() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) != 0) ++at_;
        now_ = {TokenKind::kEnd, {}, at_};
        if (at_ >= text_.size()) return;
        if (text_[at_] == '"' || text_[at_] == '\'') return read_quoted(text_[at_]);
        if (kOperatorLetters.find(text_[at_]) != std::string_view::npos) return read_operator();
        now_.kind = TokenKind::kWord;
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) == 0 &&
               kOperatorLetters.find(text_[at_]) == std::string_view::npos) {
            now_.text += text_[at_++];
        }
    }

    void read_operator() {
        for (const char *name : kOperators) {
            if (text_.compare(at_, std::string_view(name).size(), name) != 0) continue;
            now_.kind = TokenKind::kOperator;
            now_.text = name;
            at_ += now_.text.size();
            return;
        }
        now_.text = text_.substr(at_, 1);
        now_.kind = TokenKind::kOperator;
        wrong(now_, "an operator");
    }

    void read_quoted(char quote) {
        const std::size_t end = text_.find(quote, at_ + 1);
        if (end == std::string::npos)
            throw WrongUsage("--filter: the text at character " + std::to_string(at_ + 1) + " does not end");
        now_.kind = TokenKind::kText;
        now_.text = text_.substr(at_ + 1, end - at_ - 1);
        at_ = end + 1;
    }

    std::string text_;
    std::size_t at_ = 0;
    Token now_;
};

// "1T", "1.5TiB" in powers of 1024, "1TB" in powers of 1000, as drive makers count; plain numbers as they are.
std::optional<double> number_in(const std::string &text) {
    char *end = nullptr;
    double number = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !std::isfinite(number)) return std::nullopt;
    std::string unit(end);
    if (unit.empty()) return number;
    constexpr std::string_view kUnits = "KMGTPE";
    const std::size_t power = kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit.front()))));
    unit.erase(0, 1);
    if (power == std::string_view::npos) return std::nullopt;
    const bool decimal = strcasecmp(unit.c_str(), "B") == 0;
    if (!decimal && !unit.empty() && strcasecmp(unit.c_str(), "iB") != 0) return std::nullopt;
    return number * std::pow(decimal ? 1000.0 : 1024.0, static_cast<double>(power + 1));
}

std::optional<double> number_of(const Value &value) {
    if (const auto *count = std::get_if<std::uint64_t>(&value)) return static_cast<double>(*count);
    if (const auto *count = std::get_if<std::int64_t>(&value)) return static_cast<double>(*count);
    return std::nullopt;
}

// A text for every value of the cell: the words of a list each count.
std::vector<std::string> texts_of(const Column &column, const Value &value) {
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) return *words;
    if (inventory::is_missing(value)) return {};
    Style plain;
    plain.bytes = true;
    return {to_text(column, value, plain)};
}

bool is_yes(const Value &value) {
    if (const auto *flag = std::get_if<bool>(&value)) return *flag;
    if (const auto number = number_of(value)) return *number != 0;
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) return !words->empty();
    return !inventory::is_missing(value);
}

bool holds(const std::string &comparison, int order) {
    if (comparison == "==" || comparison == "=") return order == 0;
    if (comparison == "!=") return order != 0;
    if (comparison == "<") return order < 0;
    if (comparison == "<=") return order <= 0;
    if (comparison == ">") return order > 0;
    return order >= 0;
}

bool is_numeric(const Column &column) { return column.kind == Kind::kCount || column.kind == Kind::kBytes; }

// Numbers as numbers; texts in any case, names of one kind as people count them (sda before sdaa).
int order_of(const std::string &left, const std::string &right) {
    if (strcasecmp(left.c_str(), right.c_str()) == 0) return 0;
    return inventory::natural_less(left, right) ? -1 : 1;
}

Test compare_numbers(const Column *column, const std::string &comparison, double limit) {
    return [column, comparison, limit](const Lookup &lookup) {
        const std::optional<double> number = number_of(lookup(*column));
        if (!number) return false;
        return holds(comparison, *number < limit ? -1 : *number > limit ? 1 : 0);
    };
}

Test compare_flags(const Column *column, const std::string &comparison, bool wanted) {
    return [column, comparison, wanted](const Lookup &lookup) {
        const Value value = lookup(*column);
        return !inventory::is_missing(value) && holds(comparison, is_yes(value) == wanted ? 0 : 1);
    };
}

Test compare_texts(const Column *column, const std::string &comparison, const std::string &text) {
    return [column, comparison, text](const Lookup &lookup) {
        const std::vector<std::string> texts = texts_of(*column, lookup(*column));
        const auto equals = [&](const std::string &one) { return holds(comparison, order_of(one, text)); };
        // "not this" is said of the whole list, everything else of any of its words.
        if (comparison == "!=") return !texts.empty() && std::all_of(texts.begin(), texts.end(), equals);
        return std::any_of(texts.begin(), texts.end(), equals);
    };
}

// The usual way to match tries every way to share the text out, which for "(a*)*b" takes longer than anybody waits.
// Nested parentheses are nested calls.
std::regex expression_in(const std::string &text) {
    constexpr std::size_t kLongest = 1000;
    if (text.size() > kLongest) throw WrongUsage("--filter: the regular expression is too long");
    try {
        return std::regex(text, std::regex::extended | std::regex::icase | std::regex_constants::__polynomial);
    } catch (const std::regex_error &) {
        throw WrongUsage("--filter: '" + text + "' is no extended regular expression, or too large a one");
    }
}

Test match_texts(const Column *column, bool wanted, const Token &pattern) {
    const std::regex expression = expression_in(pattern.text);
    return [column, wanted, expression](const Lookup &lookup) {
        const std::vector<std::string> texts = texts_of(*column, lookup(*column));
        const bool found = std::any_of(texts.begin(), texts.end(),
                                       [&](const std::string &one) { return std::regex_search(one, expression); });
        return found == wanted;
    };
}

class Parser {
  public:
    Parser(const std::string &text, unsigned kinds, Columns &columns)
        : tokens_(text), kinds_(kinds), columns_(columns) {}

    Test whole() {
        Test test = either();
        if (tokens_.now().kind != TokenKind::kEnd) wrong(tokens_.now(), "'and', 'or' or the end");
        return test;
    }

  private:
    Test either() {
        Test left = both();
        while (tokens_.take_word("or") || tokens_.take_operator("||")) {
            left = [left, right = both()](const Lookup &lookup) { return left(lookup) || right(lookup); };
        }
        return left;
    }

    Test both() {
        Test left = single();
        while (tokens_.take_word("and") || tokens_.take_operator("&&")) {
            left = [left, right = single()](const Lookup &lookup) { return left(lookup) && right(lookup); };
        }
        return left;
    }

    Test single() {
        constexpr unsigned kDeepest = 100; // each level is a call of this function
        if (++depth_ > kDeepest) throw WrongUsage("--filter: too deeply nested");
        Test test = tokens_.take_word("not") || tokens_.take_operator("!") ? negated(single()) : plain();
        --depth_;
        return test;
    }

    static Test negated(Test test) {
        return [test = std::move(test)](const Lookup &lookup) { return !test(lookup); };
    }

    Test plain() {
        if (!tokens_.take_operator("(")) return comparison();
        Test inside = either();
        if (!tokens_.take_operator(")")) wrong(tokens_.now(), "')'");
        return inside;
    }

    Test comparison() {
        const Token name = tokens_.take();
        if (name.kind != TokenKind::kWord) wrong(name, "a column");
        const Column *column = column_named(name.text, kinds_);
        columns_.push_back(column);
        if (tokens_.now().kind != TokenKind::kOperator || tokens_.is_operator(")") || tokens_.is_operator("&&") ||
            tokens_.is_operator("||")) {
            return [column](const Lookup &lookup) { return is_yes(lookup(*column)); };
        }
        const Token comparison = tokens_.take();
        if (comparison.text == "!" || comparison.text == "(") wrong(comparison, "a comparison");
        const Token operand = tokens_.take();
        if (operand.kind != TokenKind::kWord && operand.kind != TokenKind::kText) wrong(operand, "a value");
        return compared(column, comparison.text, operand);
    }

    static Test compared(const Column *column, const std::string &comparison, const Token &operand) {
        if (comparison.ends_with('~')) return match_texts(column, comparison == "=~", operand);
        if (is_numeric(*column)) {
            const std::optional<double> limit = number_in(operand.text);
            if (!limit) wrong(operand, std::string("a number for ") + column->heading);
            return compare_numbers(column, comparison, *limit);
        }
        if (column->kind == Kind::kFlag) return compare_flags(column, comparison, flag_in(operand));
        const bool is_path = column->kind == Kind::kDevice && operand.text.starts_with("/dev/");
        return compare_texts(column, comparison, is_path ? operand.text.substr(5) : operand.text);
    }

    static bool flag_in(const Token &operand) {
        for (const char *yes : {"yes", "true", "1"}) {
            if (strcasecmp(operand.text.c_str(), yes) == 0) return true;
        }
        for (const char *no : {"no", "false", "0"}) {
            if (strcasecmp(operand.text.c_str(), no) == 0) return false;
        }
        wrong(operand, "yes or no");
    }

    Tokens tokens_;
    unsigned kinds_;
    Columns &columns_;
    unsigned depth_ = 0;
};

} // namespace

Filter::Filter(const std::string &expression, unsigned kinds) { test_ = Parser(expression, kinds, columns_).whole(); }

} // namespace tool
