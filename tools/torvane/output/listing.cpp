#include "output/listing.h"

#include "output/messages.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>

namespace tool {
namespace {

constexpr std::string_view kDescending = ":desc";
constexpr std::string_view kAscending = ":asc";

std::string cut_ending(std::string &text, std::string_view ending) {
    if (!text.ends_with(ending)) return {};
    text.resize(text.size() - ending.size());
    return std::string(ending);
}

// Numbers as numbers, flags after their absence, texts as people count.
bool is_less(const Column &column, const Value &left, const Value &right) {
    const auto number = [](const Value &value) -> std::optional<long double> {
        if (const auto *count = std::get_if<std::uint64_t>(&value)) return static_cast<long double>(*count);
        if (const auto *count = std::get_if<std::int64_t>(&value)) return static_cast<long double>(*count);
        if (const auto *flag = std::get_if<bool>(&value)) return *flag ? 1.0L : 0.0L;
        return std::nullopt;
    };
    const auto one = number(left);
    const auto other = number(right);
    if (one && other) return *one < *other;
    return inventory::natural_less(to_text(column, left, {}), to_text(column, right, {}));
}

unsigned kinds_of(const Node &node) { return node.of != 0 ? node.of : inventory::bit(node.thing->kind()); }

} // namespace

Style ListingOptions::style() const {
    Style style;
    if (json) style.format = Format::kJson;
    if (ndjson) style.format = Format::kNdjson;
    if (raw) style.format = Format::kRaw;
    if (pairs) style.format = Format::kPairs;
    style.headings = !no_headings;
    style.bytes = bytes;
    style.paths = paths;
    style.tree = wants_tree();
    return style;
}

bool ListingOptions::wants_tree() const {
    if (json || ndjson || raw || pairs) return false;
    return tree || isatty(STDOUT_FILENO) == 1;
}

bool ListingOptions::asks_for_rows() const {
    const bool has_text = !columns.empty() || !sort.empty() || !filter.empty();
    return has_text || all_columns || no_headings || tree || ndjson || raw || pairs;
}

Listing::Listing(const ListingOptions &options, const ListingKind &kind)
    : Listing(options, kind, choose_columns({options.columns, options.all_columns, kind.kinds, kind.usual})) {}

Listing::Listing(const ListingOptions &options, ListingKind kind, Columns columns)
    : options_(options), kind_(std::move(kind)), columns_(std::move(columns)), asked_(columns_) {
    if (!options.filter.empty()) {
        filter_.emplace(options.filter, kind_.kinds);
        asked_.insert(asked_.end(), filter_->columns().begin(), filter_->columns().end());
    }
    if (options.sort.empty()) return;
    std::string name = options.sort;
    descending_ = !cut_ending(name, kDescending).empty();
    cut_ending(name, kAscending);
    sort_ = column_named(name, kind_.kinds);
    asked_.push_back(sort_);
}

bool Listing::asks(bool (*predicate)(const Column &column)) const {
    return std::any_of(asked_.begin(), asked_.end(), [predicate](const Column *column) { return predicate(*column); });
}

bool Listing::keeps(const inventory::Thing &thing) const {
    return !filter_ || filter_->keeps([&thing](const Column &column) { return thing.value(column.key); });
}

// A thing stays for the sake of what is below it too, where that is shown as being below it.
std::vector<Node> Listing::filtered(std::vector<Node> nodes) const {
    std::vector<Node> kept;
    for (Node &node : nodes) {
        bool any = keeps(*node.thing);
        for (NodeBranch &branch : node.branches) {
            branch.nodes = filtered(std::move(branch.nodes));
            any = any || !branch.nodes.empty();
        }
        if (any) kept.push_back(std::move(node));
    }
    return kept;
}

void Listing::arrange(std::vector<Node> &nodes) const {
    for (Node &node : nodes) {
        for (NodeBranch &branch : node.branches) arrange(branch.nodes);
    }
    if (sort_ == nullptr) return;
    std::stable_sort(nodes.begin(), nodes.end(), [this](const Node &left, const Node &right) {
        const Value &a = left.thing->value(sort_->key);
        const Value &b = right.thing->value(sort_->key);
        // What has no such value comes last in either order.
        if (inventory::is_missing(a) || inventory::is_missing(b))
            return !inventory::is_missing(a) && inventory::is_missing(b);
        return descending_ ? is_less(*sort_, b, a) : is_less(*sort_, a, b);
    });
}

// Rows of their own, each only if the filter keeps it itself.
void Listing::flatten(const std::vector<Node> &nodes, std::vector<Node> &rows) const {
    for (const Node &node : nodes) {
        if (keeps(*node.thing)) rows.push_back({node.thing, node.of, node.failed, {}});
        for (const NodeBranch &branch : node.branches) flatten(branch.nodes, rows);
    }
}

Branch Listing::rows_of(const char *key, const std::vector<Node> &nodes) const {
    Branch branch{key, {}};
    for (const Node &node : nodes) {
        Row &row = branch.rows.emplace_back();
        row.of = kinds_of(node);
        row.failed = node.failed;
        for (const Column *column : columns_) row.cells.push_back(cell_of(*node.thing, *column));
        for (const NodeBranch &below : node.branches) row.branches.push_back(rows_of(below.key, below.nodes));
    }
    return branch;
}

Json Listing::document(std::vector<Node> nodes, const Style &style) const {
    nodes = filtered(std::move(nodes));
    arrange(nodes);
    return to_json(Table{columns_, rows_of(kind_.key, nodes)}, style);
}

bool Listing::print(std::vector<Node> nodes, std::FILE *out) const {
    nodes = filtered(std::move(nodes));
    const Style style = options_.style();
    if (style.format != Format::kJson && !style.tree) {
        std::vector<Node> rows;
        flatten(nodes, rows);
        // Rows of one level are sorted as one.
        nodes = std::move(rows);
    }
    arrange(nodes);
    if (nodes.empty() && !options_.is_json()) return false;
    print_table({columns_, rows_of(kind_.key, nodes)}, style, out);
    return !nodes.empty();
}

void print_columns(const ListingOptions &options, unsigned kinds, std::FILE *out) {
    Table table = table_of_columns(kinds);
    const Style style = options.style();
    if (style.format == Format::kTable) table = for_people(std::move(table));
    print_table(table, style, out);
}

} // namespace tool
