#include "output/columns.h"

#include "output/messages.h"
#include "output/suggest.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tool {
namespace {

std::vector<std::string> split(const std::string &text) {
    std::vector<std::string> names;
    std::string name;
    for (const char c : text + ',') {
        if (c != ',') {
            name += c;
        } else if (!name.empty()) {
            names.push_back(std::exchange(name, {}));
        }
    }
    return names;
}

void append(Columns &columns, const Column *column) {
    if (std::find(columns.begin(), columns.end(), column) == columns.end()) columns.push_back(column);
}

constexpr Column of_columns(const char *key, const char *heading) {
    return {key, heading, Kind::kText, "", "", ~0U, inventory::Cost::kKernel, "this tool"};
}

constexpr std::array<Column, 6> kOfColumns{of_columns("column", "COLUMN"),   of_columns("key", "KEY"),
                                           of_columns("holds", "HOLDS"),     of_columns("unit", "UNIT"),
                                           of_columns("sources", "SOURCES"), of_columns("words", "WORDS")};
// People read the first columns; the others are for programs.
constexpr std::size_t kForPeople = 3;

Cell text(std::string_view words) { return {words.empty() ? Value() : Value(std::string(words)), {}}; }

} // namespace

Columns columns_of(unsigned kinds) {
    Columns columns;
    for (const Column &row : inventory::all_facts()) {
        if ((row.of & kinds) != 0) columns.push_back(&row);
    }
    return columns;
}

const Column *column_named(std::string_view name, unsigned kinds) {
    const Column *row = inventory::find_fact(name);
    if (row != nullptr && (row->of & kinds) != 0) return row;
    std::vector<std::string> names;
    for (const Column *known : columns_of(kinds)) names.emplace_back(known->heading);
    throw WrongUsage("unknown column '" + std::string(name) + "'" + did_you_mean(name, names) +
                     "; --list-columns lists them");
}

Columns choose_columns(const ColumnChoice &choice) {
    if (choice.all) return columns_of(choice.kinds);
    Columns columns;
    const bool adds = choice.text.starts_with('+');
    if (adds || choice.text.empty()) {
        for (const char *name : choice.usual) append(columns, column_named(name, choice.kinds));
    }
    for (const std::string &name : split(choice.text.substr(adds ? 1 : 0))) {
        append(columns, column_named(name, choice.kinds));
    }
    if (columns.empty()) throw WrongUsage("--output names no column");
    return columns;
}

Table table_of_columns(unsigned kinds) {
    Table table;
    for (const Column &column : kOfColumns) table.columns.push_back(&column);
    table.root.key = "columns";
    for (const Column *column : columns_of(kinds)) {
        Row row;
        row.cells = {text(column->heading), text(column->key),    text(column->meaning),
                     text(column->unit),    text(column->origin), text(column->words)};
        table.root.rows.push_back(std::move(row));
    }
    return table;
}

Table for_people(Table table) {
    table.columns.resize(kForPeople);
    for (Row &row : table.root.rows) row.cells.resize(kForPeople);
    return table;
}

bool is_costly(const Column &column) {
    return column.cost == inventory::Cost::kDefects || column.cost == inventory::Cost::kState;
}

Cell cell_of(const inventory::Thing &thing, const Column &column) {
    const inventory::Fact *fact = thing.fact(column.key);
    if (fact != nullptr) return {fact->value(), fact->reason};
    // Nobody asks such a drive; who asked for the column wants to know why it is empty.
    const bool is_of_it = (column.of & inventory::bit(thing.kind())) != 0;
    return {{}, is_costly(column) && is_of_it ? "drives of this kind do not tell it" : ""};
}

} // namespace tool
