#include "inventory/machine.h"

#include <algorithm>
#include <cctype>

namespace inventory {
namespace {

const Value kMissing;

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Drives pad their texts with blanks and NULs on either side; some leave the next field's first byte behind them.
std::string without_padding(std::string text) {
    const auto is_padding = [](char c) { return is_space(c) || std::iscntrl(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && is_padding(text.back())) text.pop_back();
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), is_padding));
    return text;
}

// For comparisons alone: case and runs of blanks differ between sources that mean the same.
std::string folded(const std::string &text) {
    std::string result;
    for (const char c : text) {
        if (!is_space(c) && c != '_') result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

bool agree(const FactRow &row, const Value &left, const Value &right) {
    if (row.compare == Compare::kIgnore) return true;
    const auto *a = std::get_if<std::string>(&left);
    const auto *b = std::get_if<std::string>(&right);
    if (a == nullptr || b == nullptr) return left == right;
    const std::string one = folded(*a);
    const std::string other = folded(*b);
    if (row.compare == Compare::kCut) {
        return one.find(other) != std::string::npos || other.find(one) != std::string::npos ||
               one.substr(0, 16) == other.substr(0, 16);
    }
    return one == other;
}

std::size_t rank(const FactRow &row, Source source) {
    if (row.order == nullptr) return static_cast<std::size_t>(source);
    return static_cast<std::size_t>(std::find(row.order, row.order + kSources, source) - row.order);
}

void settle_fact(const FactRow &row, Fact &fact) {
    if (fact.words.size() < 2) return;
    const auto is_better = [&row](const Word &left, const Word &right) {
        return rank(row, left.source) < rank(row, right.source);
    };
    if (!std::is_sorted(fact.words.begin(), fact.words.end(), is_better)) {
        std::stable_sort(fact.words.begin(), fact.words.end(), is_better);
    }
    fact.disputed = std::any_of(fact.words.begin() + 1, fact.words.end(),
                                [&](const Word &word) { return !agree(row, fact.words.front().value, word.value); });
}

template <class List> void append_once(List &list, RelationKind kind, Thing &to) {
    const bool known = std::any_of(list.begin(), list.end(), [&](const Relation &relation) {
        return relation.kind == kind && relation.to == &to;
    });
    if (!known) list.push_back({kind, &to});
}

std::vector<Thing *> others(const std::vector<Relation> &relations, RelationKind kind) {
    std::vector<Thing *> found;
    for (const Relation &relation : relations) {
        if (relation.kind == kind) found.push_back(relation.to);
    }
    return found;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The run of digits or of others that begins at this place.
std::string_view run_at(std::string_view text, std::size_t place) {
    const bool digits = is_digit(text[place]);
    std::size_t end = place;
    while (end < text.size() && is_digit(text[end]) == digits) ++end;
    return text.substr(place, end - place);
}

std::string_view without_zeros(std::string_view digits) {
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? digits.substr(digits.size()) : digits.substr(first);
}

// "sda" and "sdaa", by two characters that names of a driver share.
bool is_same_family(std::string_view one, std::string_view other) {
    if (one.size() < 2 || other.size() < 2) return one == other;
    return one[0] == other[0] && one[1] == other[1];
}

} // namespace

const Value &Fact::value() const { return words.empty() ? kMissing : words.front().value; }

const Fact *Facts::find(std::size_t index) const {
    const auto found = std::ranges::lower_bound(entries_, index, {}, &Entry::first);
    return found != entries_.end() && found->first == index ? &found->second : nullptr;
}

Fact &Facts::operator[](std::size_t index) {
    constexpr std::size_t kUsual = 12;
    if (entries_.empty()) entries_.reserve(kUsual);
    const auto place = std::ranges::lower_bound(entries_, index, {}, &Entry::first);
    if (place != entries_.end() && place->first == index) return place->second;
    return entries_.insert(place, {index, Fact{}})->second;
}

void Thing::tell(std::size_t index, Value value, Source source, std::string detail) {
    if (auto *text = std::get_if<std::string>(&value)) {
        *text = without_padding(std::move(*text));
        if (text->empty()) return;
    }
    if (is_missing(value)) return;
    facts_[index].words.push_back({std::move(value), source, std::move(detail)});
}

void Thing::lacks(std::string_view key, std::string reason) { facts_[index_of(key)].reason = std::move(reason); }

void Thing::forget(std::string_view key) {
    facts_.erase_if([index = index_of(key)](const Facts::Entry &entry) { return entry.first == index; });
}

const Fact *Thing::fact(std::string_view key) const { return facts_.find(index_of(key)); }

const Value &Thing::value(std::string_view key) const {
    const Fact *known = fact(key);
    return known == nullptr ? kMissing : known->value();
}

std::string Thing::text(std::string_view key) const {
    const auto *text = std::get_if<std::string>(&value(key));
    return text == nullptr ? std::string() : *text;
}

std::optional<std::uint64_t> Thing::number(std::string_view key) const {
    const Value &known = value(key);
    if (const auto *number = std::get_if<std::uint64_t>(&known)) return *number;
    if (const auto *number = std::get_if<std::int64_t>(&known)) {
        if (*number >= 0) return static_cast<std::uint64_t>(*number);
    }
    return std::nullopt;
}

bool Thing::flag(std::string_view key) const {
    const auto *flag = std::get_if<bool>(&value(key));
    return flag != nullptr && *flag;
}

std::vector<Thing *> Thing::related(RelationKind kind) const { return others(relations, kind); }
std::vector<Thing *> Thing::related_to(RelationKind kind) const { return others(reverse, kind); }

Thing &Machine::add(ThingKind kind, const std::string &id) {
    Thing *&known = by_id_[id];
    if (known == nullptr) known = &things_.emplace_back(kind, id);
    return *known;
}

Thing *Machine::find(std::string_view id) const {
    const auto found = by_id_.find(std::string(id));
    return found == by_id_.end() ? nullptr : found->second;
}

void Machine::relate(Thing &from, RelationKind kind, Thing &to) {
    append_once(from.relations, kind, to);
    append_once(to.reverse, kind, from);
}

void settle(Thing &thing) {
    for (auto &[index, fact] : thing.facts()) settle_fact(all_facts()[index], fact);
}

void settle(Machine &machine) {
    for (Thing &thing : machine.things()) settle(thing);
}

bool natural_less(std::string_view left, std::string_view right) {
    std::size_t l = 0;
    std::size_t r = 0;
    while (l < left.size() && r < right.size()) {
        const std::string_view one = run_at(left, l);
        const std::string_view other = run_at(right, r);
        const bool numbers = is_digit(one.front()) && is_digit(other.front());
        // Longer letters come later too, as the kernel counts: sdz, then sdaa. A shared beginning decides nothing.
        const std::string_view a = numbers ? without_zeros(one) : one;
        const std::string_view b = numbers ? without_zeros(other) : other;
        if (a != b) {
            const bool same_family = numbers || is_same_family(a, b);
            if (same_family && a.size() != b.size()) return a.size() < b.size();
            return a < b;
        }
        l += one.size();
        r += other.size();
    }
    return left.size() - l < right.size() - r;
}

} // namespace inventory
