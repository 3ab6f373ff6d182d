// The one renderer: what a command found, as a table, a tree, raw lines, pairs or JSON.
#pragma once

#include "inventory/machine.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace tool {

using Json = nlohmann::ordered_json;
using Column = inventory::FactRow;
using Columns = std::vector<const Column *>;
using inventory::Kind;
using inventory::Value;

// Raised when a key of a JSON document changes its meaning or goes; new keys do not raise it.
constexpr int kSchemaVersion = 1;

struct Cell {
    Value value;
    std::string reason; // why there is none, "" when nobody knows
};

struct Branch;

struct Row {
    unsigned of = ~0U;       // kinds of things that this row stands for: in JSON it has only their columns
    std::vector<Cell> cells; // one for each column of the table
    std::vector<Branch> branches;
    bool failed = false; // shown in red
};

struct Branch {
    const char *key; // JSON key of the array
    std::vector<Row> rows;
};

struct Table {
    Columns columns; // the first carries the tree
    Branch root;
};

enum class Format { kTable, kRaw, kPairs, kJson, kNdjson };

struct Style {
    Format format = Format::kTable;
    bool headings = true;
    bool bytes = false;
    bool paths = false;
    bool tree = true;
};

// One value as text, as this style prints it; raw output has a dash for a missing one, so that fields can be counted.
std::string to_text(const Column &column, const Value &value, const Style &style);

Json to_json(const Column &column, const Value &value, const Style &style);
Json to_json(const Table &table, const Style &style);

// A whole document, or one line of it; bytes that are not UTF-8 are replaced.
void print_json(const Json &document, std::FILE *out);
void print_json_line(const Json &document, std::FILE *out);
void print_table(const Table &table, const Style &style, std::FILE *out);

// Whether escape sequences for colours are welcome on the stream.
bool wants_colour(std::FILE *out);

} // namespace tool
