// The files that `torvane diff` and `check` compare, with any bytes in them: a listing differs in nothing from itself.
#include "commands/compare.h"
#include "output/messages.h"
#include "stream.h"

#include <nlohmann/json.hpp>

#include <sstream>

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::istringstream stream(std::string(reinterpret_cast<const char *>(data), size));
    try {
        const tool::Json listing = tool::listing_in(stream, "file");
        require(tool::compare(listing, listing).empty());
        tool::Json other = listing;
        if (!other.at("drives").empty()) other.at("drives").erase(0);
        for (const tool::Difference &difference : tool::compare(listing, other)) {
            require(!tool::sentence_of(difference).empty() && tool::to_json(difference).is_object());
        }
    } catch (const tool::WrongUsage &) { // told
    }
    return 0;
}
