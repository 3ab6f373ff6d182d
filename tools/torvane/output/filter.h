// --filter: an expression over columns, such as 'size > 1T and rpm > 0' or 'model =~ "^WDC" or not used_by'.
#pragma once

#include "output/table.h"

#include <functional>
#include <memory>
#include <string>

namespace tool {

// What a column holds for the row in question.
using Lookup = std::function<Value(const Column &column)>;

class Filter {
  public:
    // WrongUsage with the place and what was expected there.
    Filter(const std::string &expression, unsigned kinds);

    [[nodiscard]] bool keeps(const Lookup &lookup) const { return test_(lookup); }
    [[nodiscard]] const Columns &columns() const { return columns_; } // that it asks for

  private:
    std::function<bool(const Lookup &)> test_;
    Columns columns_;
};

} // namespace tool
