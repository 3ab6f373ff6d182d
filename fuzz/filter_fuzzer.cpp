// --filter and --output with any text: wrong usage is told, and what is an expression is decided for every row.
#include "output/columns.h"
#include "output/filter.h"
#include "output/messages.h"
#include "stream.h"

#include <string>

using namespace torvane::fuzz;

namespace {

using tool::Column;
using tool::Value;

Value something(const Column &column) {
    switch (column.kind) {
    case inventory::Kind::kText: return std::string("WDC  WD40EFRX-68N");
    case inventory::Kind::kDevice: return std::string("/dev/sdb12");
    case inventory::Kind::kCount: return std::int64_t{-7200};
    case inventory::Kind::kBytes: return std::uint64_t{4000787030016};
    case inventory::Kind::kFlag: return true;
    case inventory::Kind::kWords: return std::vector<std::string>{"/", "md0", ""};
    }
    return {};
}

Value nothing(const Column & /*column*/) { return {}; }

bool keeps(const std::string &expression, const tool::Lookup &lookup) {
    return tool::Filter(expression, ~0U).keeps(lookup);
}

void try_filter(const std::string &text) {
    const tool::Filter filter(text, ~0U);
    for (const tool::Lookup &lookup : {tool::Lookup(something), tool::Lookup(nothing)}) {
        const bool kept = filter.keeps(lookup);
        require(keeps("(" + text + ") or (" + text + ")", lookup) == kept);
        require(keeps("not (" + text + ")", lookup) != kept);
    }
}

template <class Function> void refusing(Function function) {
    try {
        function();
    } catch (const tool::WrongUsage &) { // told with its place
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    refusing([&text] { try_filter(text); });
    refusing([&text] { tool::choose_columns({text, false, ~0U, {"name", "size"}}); });
    return 0;
}
