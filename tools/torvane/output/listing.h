// What every listing has in common: things in branches, columns, filter, order, and how they are printed.
#pragma once

#include "output/columns.h"
#include "output/filter.h"

#include <optional>

namespace tool {

struct ListingOptions {
    bool json = false;
    bool ndjson = false;
    bool raw = false;
    bool pairs = false;
    bool no_headings = false;
    bool bytes = false;
    bool paths = false;
    bool tree = false;
    bool all_columns = false;
    bool list_columns = false;
    std::string columns;
    std::string sort;
    std::string filter;

    [[nodiscard]] Style style() const;
    [[nodiscard]] bool is_json() const { return json || ndjson; }
    // Programs get every thing once; people on a terminal see what is built on what.
    [[nodiscard]] bool wants_tree() const;
    // Whether anything was given that only rows of a table or lines can have.
    [[nodiscard]] bool asks_for_rows() const;
};

struct NodeBranch;

struct Node {
    const inventory::Thing *thing = nullptr;
    unsigned of = 0; // 0: the thing's own kind; else what JSON takes it for
    bool failed = false;
    std::vector<NodeBranch> branches;
};

struct NodeBranch {
    const char *key; // JSON key of the array
    std::vector<Node> nodes;
};

struct ListingKind {
    const char *key; // JSON key of the whole
    unsigned kinds;  // of things that can be in it
    std::vector<const char *> usual;
};

// Read from the command line before anything is looked at, so that a wrong column costs no time.
class Listing {
  public:
    Listing(const ListingOptions &options, const ListingKind &kind);
    // With these columns, whatever the options name.
    Listing(const ListingOptions &options, ListingKind kind, Columns columns);

    [[nodiscard]] const Columns &columns() const { return columns_; }
    // Columns, and what filter and order ask for.
    [[nodiscard]] const Columns &asked() const { return asked_; }
    [[nodiscard]] bool asks(bool (*predicate)(const Column &column)) const;
    // Whether the filter, if any, lets it pass.
    [[nodiscard]] bool keeps(const inventory::Thing &thing) const;

    [[nodiscard]] Json document(std::vector<Node> nodes, const Style &style) const;
    // Whether any row was printed.
    bool print(std::vector<Node> nodes, std::FILE *out) const;

  private:
    [[nodiscard]] std::vector<Node> filtered(std::vector<Node> nodes) const;
    void arrange(std::vector<Node> &nodes) const;
    [[nodiscard]] Branch rows_of(const char *key, const std::vector<Node> &nodes) const;
    void flatten(const std::vector<Node> &nodes, std::vector<Node> &rows) const;

    ListingOptions options_;
    ListingKind kind_;
    Columns columns_;
    Columns asked_;
    std::optional<Filter> filter_;
    const Column *sort_ = nullptr;
    bool descending_ = false;
};

// The columns there are, in the format that was asked for.
void print_columns(const ListingOptions &options, unsigned kinds, std::FILE *out);

} // namespace tool
