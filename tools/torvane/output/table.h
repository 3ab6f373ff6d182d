// The one renderer: what a command found, as a table, a tree, raw lines, pairs or JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <variant>
#include <vector>

namespace tool {

using Json = nlohmann::ordered_json;

// Raised when a key of a JSON document changes its meaning or goes; new keys do not raise it.
constexpr int kSchemaVersion = 1;

enum class Kind {
    kText,
    kName, // a device path; its last part unless whole paths are asked for
    kNumber,
    kBytes, // abbreviated for people, a plain number for programs
    kWords  // several texts
};

// Nothing, a text, a number, a size or count, several texts, yes or no.
using Value = std::variant<std::monostate, std::string, std::int64_t, std::uint64_t, std::vector<std::string>, bool>;

struct Column {
    const char *name; // heading
    const char *key;  // JSON key
    Kind kind;
    const char *help;
    unsigned levels; // bit n: rows of level n have it in JSON
    bool truncate = false;
};

struct Branch;

struct Row {
    unsigned level = 0;
    std::vector<Value> cells; // one for each column of the table
    std::vector<Branch> branches;
    bool failed = false;
};

struct Branch {
    const char *key; // JSON key of the array
    std::vector<Row> rows;
};

struct Table {
    std::vector<const Column *> columns; // the first carries the tree
    Branch root;
};

enum class Format { kTable, kRaw, kPairs, kJson };

struct Style {
    Format format = Format::kTable;
    bool headings = true;
    bool bytes = false;
    bool paths = false;
};

// One value as text, as this style prints it.
std::string to_text(const Column &column, const Value &value, const Style &style);

Json to_json(const Column &column, const Value &value, const Style &style);
Json to_json(const Table &table, const Style &style);

// A whole document on the stream; bytes that are not UTF-8 are replaced.
void print_json(const Json &document, std::FILE *out);
void print_table(const Table &table, const Style &style, std::FILE *out);

// Whether escape sequences for colours are welcome on the stream.
bool wants_colour(std::FILE *out);

} // namespace tool
