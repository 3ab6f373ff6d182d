#include "output/table.h"

#include "output/text.h"

#include <libsmartcols.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace tool {
namespace {

struct UnrefTable {
    void operator()(libscols_table *table) const { scols_unref_table(table); }
};
using ScolsTable = std::unique_ptr<libscols_table, UnrefTable>;

constexpr const char *kHeadingColour = "bold";
constexpr const char *kFailedColour = "red";

// The library reports every failure of these calls as a negative number, and lack of memory is the only one left.
void check(int result) {
    if (result < 0) throw std::bad_alloc();
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) {
        if (!text.empty()) text += ',';
        text += word;
    }
    return text;
}

bool is_right_aligned(Kind kind) { return kind == Kind::kNumber || kind == Kind::kBytes; }

int column_flags(const Column &column, bool is_tree) {
    return (is_right_aligned(column.kind) ? SCOLS_FL_RIGHT : 0) | (column.truncate ? SCOLS_FL_TRUNC : 0) |
           (is_tree ? SCOLS_FL_TREE : 0);
}

void add_columns(libscols_table *table, const Table &content, const Style &style, bool colour) {
    for (const Column *column : content.columns) {
        const bool is_tree = style.format == Format::kTable && column == content.columns.front();
        libscols_column *added = scols_table_new_column(table, column->name, 0, column_flags(*column, is_tree));
        if (!added) throw std::bad_alloc();
        if (colour) check(scols_cell_set_color(scols_column_get_header(added), kHeadingColour));
    }
}

void add_rows(libscols_table *table, const Table &content, const Branch &branch, const Style &style,
              libscols_line *parent) {
    for (const Row &row : branch.rows) {
        libscols_line *line = scols_table_new_line(table, parent);
        if (!line) throw std::bad_alloc();
        for (std::size_t i = 0; i < content.columns.size(); ++i) {
            check(scols_line_set_data(line, i, to_text(*content.columns[i], row.cells[i], style).c_str()));
        }
        if (row.failed) check(scols_line_set_color(line, kFailedColour));
        for (const Branch &children : row.branches) add_rows(table, content, children, style, line);
    }
}

void enable_format(libscols_table *table, const Style &style) {
    check(scols_table_enable_raw(table, style.format == Format::kRaw ? 1 : 0));
    if (style.format == Format::kPairs) {
        check(scols_table_enable_export(table, 1));
        check(scols_table_enable_shellvar(table, 1));
    }
    check(scols_table_enable_noheadings(table, style.headings ? 0 : 1));
}

Json rows_to_json(const Table &table, const Branch &branch, const Style &style) {
    Json rows = Json::array();
    for (const Row &row : branch.rows) {
        Json object = Json::object();
        for (std::size_t i = 0; i < table.columns.size(); ++i) {
            const Column &column = *table.columns[i];
            if ((column.levels & (1U << row.level)) != 0) object[column.key] = to_json(column, row.cells[i], style);
        }
        for (const Branch &children : row.branches) object[children.key] = rows_to_json(table, children, style);
        rows.push_back(std::move(object));
    }
    return rows;
}

} // namespace

bool wants_colour(std::FILE *out) {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    if ((no_colour && *no_colour != '\0') || !terminal || std::string_view(terminal) == "dumb") return false;
    return isatty(fileno(out)) == 1;
}

std::string to_text(const Column &column, const Value &value, const Style &style) {
    if (const auto *text = std::get_if<std::string>(&value)) {
        return column.kind == Kind::kName && !style.paths ? short_name(*text) : *text;
    }
    if (const auto *number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) return joined(*words);
    if (const auto *yes = std::get_if<bool>(&value)) return *yes ? "yes" : "no";
    const auto *count = std::get_if<std::uint64_t>(&value);
    if (!count) return {};
    const bool abbreviated = column.kind == Kind::kBytes && !style.bytes && style.format == Format::kTable;
    return abbreviated ? human_size(*count) : std::to_string(*count);
}

Json to_json(const Column &column, const Value &value, const Style &style) {
    if (std::holds_alternative<std::string>(value)) return to_text(column, value, style);
    if (const auto *number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto *count = std::get_if<std::uint64_t>(&value)) return *count;
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) return *words;
    if (const auto *yes = std::get_if<bool>(&value)) return *yes;
    return nullptr;
}

Json to_json(const Table &table, const Style &style) {
    Json document = {{"schema_version", kSchemaVersion}};
    document[table.root.key] = rows_to_json(table, table.root, style);
    return document;
}

void print_json(const Json &document, std::FILE *out) {
    const std::string text = document.dump(2, ' ', false, Json::error_handler_t::replace);
    std::fprintf(out, "%s\n", text.c_str());
}

void print_table(const Table &table, const Style &style, std::FILE *out) {
    if (style.format == Format::kJson) return print_json(to_json(table, style), out);
    // Only for the width of characters and the shape of the tree; the library is called before this, in the C locale.
    std::setlocale(LC_CTYPE, "");
    const ScolsTable rendered(scols_new_table());
    if (!rendered) throw std::bad_alloc();
    const bool colour = style.format == Format::kTable && wants_colour(out);
    check(scols_table_set_stream(rendered.get(), out));
    check(scols_table_enable_colors(rendered.get(), colour ? 1 : 0));
    enable_format(rendered.get(), style);
    add_columns(rendered.get(), table, style, colour);
    add_rows(rendered.get(), table, table.root, style, nullptr);
    check(scols_print_table(rendered.get()));
}

} // namespace tool
