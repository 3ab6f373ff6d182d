#include "output/table.h"

#include "output/text.h"
#include "output/widths.h"

#include <nlohmann/json.hpp>

#include <libsmartcols.h>
#include <unistd.h>

#include <algorithm>
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
constexpr const char *kNothing = "-";

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

bool is_right_aligned(Kind kind) { return kind == Kind::kCount || kind == Kind::kBytes; }

bool draws_tree(const Style &style) { return style.format == Format::kTable && style.tree; }

void add_columns(libscols_table *table, const Table &content, const Style &style, bool colour) {
    for (const Column *column : content.columns) {
        const bool is_tree = draws_tree(style) && column == content.columns.front();
        const int flags = (is_right_aligned(column->kind) ? SCOLS_FL_RIGHT : 0) | (is_tree ? SCOLS_FL_TREE : 0);
        libscols_column *added = scols_table_new_column(table, column->heading, 0, flags);
        if (!added) throw std::bad_alloc();
        if (colour) check(scols_cell_set_color(scols_column_get_header(added), kHeadingColour));
    }
}

void add_rows(libscols_table *table, const TextBranch &branch, const Style &style, libscols_line *parent) {
    for (const TextRow &row : branch) {
        libscols_line *line = scols_table_new_line(table, draws_tree(style) ? parent : nullptr);
        if (!line) throw std::bad_alloc();
        for (std::size_t i = 0; i < row.cells.size(); ++i) check(scols_line_set_data(line, i, row.cells[i].c_str()));
        if (row.failed) check(scols_line_set_color(line, kFailedColour));
        add_rows(table, row.below, style, line);
    }
}

void enable_format(libscols_table *table, const Style &style) {
    check(scols_table_enable_raw(table, style.format == Format::kRaw ? 1 : 0));
    if (style.format == Format::kPairs) {
        check(scols_table_enable_export(table, 1));
        check(scols_table_enable_shellvar(table, 1));
    }
    check(scols_table_enable_noheadings(table, style.headings ? 0 : 1));
    // The widths are ours: left alone, the library cuts any column on a narrow terminal and does not say so.
    check(scols_table_set_termforce(table, SCOLS_TERMFORCE_NEVER));
}

TextBranch to_texts(const Table &table, const Branch &branch, const Style &style) {
    TextBranch rows;
    for (const Row &row : branch.rows) {
        TextRow &text = rows.emplace_back();
        text.failed = row.failed;
        for (std::size_t i = 0; i < table.columns.size(); ++i) {
            text.cells.push_back(to_text(*table.columns[i], row.cells[i].value, style));
        }
        for (const Branch &children : row.branches) {
            TextBranch below = to_texts(table, children, style);
            std::move(below.begin(), below.end(), std::back_inserter(text.below));
        }
    }
    return rows;
}

Json row_to_json(const Table &table, const Row &row, const Style &style) {
    Json object = Json::object();
    Json reasons = Json::object();
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const Column &column = *table.columns[i];
        if ((column.of & row.of) == 0) continue;
        object[column.key] = to_json(column, row.cells[i].value, style);
        if (inventory::is_missing(row.cells[i].value) && !row.cells[i].reason.empty()) {
            reasons[column.key] = row.cells[i].reason;
        }
    }
    if (!reasons.empty()) object["reasons"] = std::move(reasons);
    return object;
}

Json rows_to_json(const Table &table, const Branch &branch, const Style &style) {
    Json rows = Json::array();
    for (const Row &row : branch.rows) {
        Json object = row_to_json(table, row, style);
        for (const Branch &children : row.branches) object[children.key] = rows_to_json(table, children, style);
        rows.push_back(std::move(object));
    }
    return rows;
}

// A line for every row, those below others too: what reads lines wants no nesting.
void print_lines(const Table &table, const Branch &branch, const Style &style, std::FILE *out) {
    for (const Row &row : branch.rows) {
        print_json_line(row_to_json(table, row, style), out);
        for (const Branch &children : row.branches) print_lines(table, children, style, out);
    }
}

// Characters that are one column wide and stand for themselves: the library escapes a backslash before an x.
bool is_plain(const TextBranch &branch) {
    const auto is_ascii = [](const std::string &cell) {
        return std::all_of(cell.begin(), cell.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; });
    };
    return std::all_of(branch.begin(), branch.end(), [&](const TextRow &row) {
        return std::all_of(row.cells.begin(), row.cells.end(), is_ascii) && is_plain(row.below);
    });
}

void widen(std::vector<std::size_t> &widths, const TextBranch &rows) {
    for (const TextRow &row : rows) {
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], row.cells[i].size());
        widen(widths, row.below);
    }
}

void append_rows(std::string &text, const Columns &columns, const std::vector<std::size_t> &widths,
                 const TextBranch &rows) {
    for (const TextRow &row : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string &cell = row.cells[i];
            const bool is_last = i + 1 == columns.size();
            const bool is_right = is_right_aligned(columns[i]->kind);
            const std::size_t padding = is_last && (!is_right || cell.empty()) ? 0 : widths[i] - cell.size();
            if (i > 0) text += ' ';
            if (is_right) text.append(padding, ' ');
            text += cell;
            if (!is_right) text.append(padding, ' ');
        }
        text += '\n';
        append_rows(text, columns, widths, row.below);
    }
}

// As the library would, which takes a fifth of the time of a long list for the widths of characters and for lines that
// may be coloured or drawn.
void print_plainly(const Columns &columns, const TextBranch &rows, bool headings, std::FILE *out) {
    TextBranch header(1);
    for (const Column *column : columns) header[0].cells.emplace_back(column->heading);
    std::vector<std::size_t> widths(columns.size());
    widen(widths, header);
    widen(widths, rows);
    std::string text;
    if (headings) append_rows(text, columns, widths, header);
    append_rows(text, columns, widths, rows);
    std::fwrite(text.data(), 1, text.size(), out);
}

void print_text(const Table &table, const Style &style, std::FILE *out) {
    TextBranch rows = to_texts(table, table.root, style);
    const bool plain = is_plain(rows);
    if (style.format == Format::kTable && plain && !style.tree && !rows.empty() && isatty(fileno(out)) != 1) {
        return print_plainly(table.columns, rows, style.headings, out);
    }
    // Only for the width of characters and the shape of the tree: the C library reads five files for it.
    if (draws_tree(style) || !plain) std::setlocale(LC_CTYPE, "");
    const ScolsTable rendered(scols_new_table());
    if (!rendered) throw std::bad_alloc();
    const bool colour = style.format == Format::kTable && wants_colour(out);
    check(scols_table_set_stream(rendered.get(), out));
    check(scols_table_enable_colors(rendered.get(), colour ? 1 : 0));
    enable_format(rendered.get(), style);
    add_columns(rendered.get(), table, style, colour);
    if (style.format == Format::kTable) fit_to_terminal(table.columns, rows, draws_tree(style), out);
    add_rows(rendered.get(), rows, style, nullptr);
    check(scols_print_table(rendered.get()));
}

} // namespace

bool wants_colour(std::FILE *out) {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    if ((no_colour && *no_colour != '\0') || !terminal || std::string_view(terminal) == "dumb") return false;
    return isatty(fileno(out)) == 1;
}

std::string to_text(const Column &column, const Value &value, const Style &style) {
    const bool is_empty = inventory::is_missing(value);
    if (is_empty) return style.format == Format::kRaw ? kNothing : "";
    if (const auto *text = std::get_if<std::string>(&value)) {
        return column.kind == Kind::kDevice && !style.paths ? short_name(*text) : *text;
    }
    if (const auto *number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) {
        return words->empty() && style.format == Format::kRaw ? kNothing : joined(*words);
    }
    if (const auto *yes = std::get_if<bool>(&value)) return *yes ? "yes" : "no";
    const std::uint64_t count = std::get<std::uint64_t>(value);
    const bool abbreviated = column.kind == Kind::kBytes && !style.bytes && style.format == Format::kTable;
    return abbreviated ? human_size(count) : std::to_string(count);
}

Json to_json(const Column &column, const Value &value, const Style &style) {
    if (std::holds_alternative<std::string>(value)) return to_text(column, value, style);
    if (const auto *number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto *count = std::get_if<std::uint64_t>(&value)) return *count;
    if (const auto *words = std::get_if<std::vector<std::string>>(&value)) return *words;
    if (const auto *yes = std::get_if<bool>(&value)) return *yes;
    return column.kind == Kind::kWords ? Json(Json::array()) : Json(nullptr);
}

Json to_json(const Table &table, const Style &style) {
    Json document = {{"schema_version", kSchemaVersion}};
    document[table.root.key] = rows_to_json(table, table.root, style);
    return document;
}

void print_json(const Json &document, std::FILE *out) {
    const std::string text = escaped_controls(document.dump(2, ' ', false, Json::error_handler_t::replace));
    std::fprintf(out, "%s\n", text.c_str());
}

void print_json_line(const Json &document, std::FILE *out) {
    const std::string text = escaped_controls(document.dump(-1, ' ', false, Json::error_handler_t::replace));
    std::fprintf(out, "%s\n", text.c_str());
}

void print_table(const Table &table, const Style &style, std::FILE *out) {
    switch (style.format) {
    case Format::kJson: return print_json(to_json(table, style), out);
    case Format::kNdjson: return print_lines(table, table.root, style, out);
    default: return print_text(table, style, out);
    }
}

} // namespace tool
