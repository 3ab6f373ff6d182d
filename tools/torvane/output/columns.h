// Which columns a listing has: facts of the table, as people name them on the command line.
#pragma once

#include "output/table.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The columns that things of these kinds can have, in the order of the table.
inline constexpr unsigned kAnything = ~0U; // things of every kind

Columns columns_of(unsigned kinds);

// The column of this name, in any case; WrongUsage, with the nearest name, when there is none.
const Column *column_named(std::string_view name, unsigned kinds);

struct ColumnChoice {
    std::string text; // "NAME,SIZE", "+SIZE"; "": the usual ones
    bool all = false; // every column
    unsigned kinds = 0;
    std::vector<const char *> usual;
};
Columns choose_columns(const ColumnChoice &choice);

// The columns there are, as a table.
Table table_of_columns(unsigned kinds);
Table for_people(Table table); // without what only programs want

// Whether drives get commands for it that they get for nothing else.
bool is_costly(const Column &column);

// One thing's value with the reason for a missing one.
Cell cell_of(const inventory::Thing &thing, const Column &column);

} // namespace tool
