// torvane diff, check: what is missing, new, moved or changed among the drives.
#include "commands/commands.h"
#include "commands/compare.h"
#include "commands/looks.h"
#include "commands/trees.h"
#include "output/messages.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

namespace tool {
namespace {

struct DiffOptions {
    bool json = false;
    double timeout = kDefaultSeconds;
    std::string older;
    std::string newer;
};

// Columns that tell which drive it is and where.
constexpr const char *kColumns = "NAME,TYPE,MODEL,SERIAL,WWN,SIZE,FIRMWARE,ENCLOSURE,BAY,PORT,LOCATION";

Json read_listing(const std::string &file) {
    std::ifstream stream(file);
    if (!stream) throw WrongUsage(file + ": " + std::strerror(errno));
    return listing_in(stream, file);
}

bool has(const Json &document, const char *key, const char *word) {
    const Json &drives = document.at("drives");
    return std::any_of(drives.begin(), drives.end(), [&](const Json &drive) {
        const auto found = drive.find(key);
        return found != drive.end() && *found == word;
    });
}

// Member drives and USB drives without a node are in a listing only when it was asked for them.
Json look(const Json &before, const DiffOptions &options, Troubles &troubles) {
    ListingOptions all;
    all.json = true;
    all.columns = kColumns;
    const Listing listing(all, {"drives", kListedKinds, {}});
    inventory::Request request = look_for(listing);
    request.raid = has(before, "type", "raid-member");
    request.limit = to_limit(options.timeout);
    inventory::Machine machine = inventory::survey(request);
    mark_members(machine);
    troubles = told_troubles(machine, {});
    return listing.document(list_nodes(machine, {false, false, has(before, "status", "unbound")}), all.style());
}

int run(const DiffOptions &options) {
    const Json before = read_listing(options.older);
    Troubles troubles;
    const Json after = options.newer.empty() ? look(before, options, troubles) : read_listing(options.newer);
    const std::vector<Difference> differences = compare(before, after);
    if (options.json) {
        Json document = {{"schema_version", kSchemaVersion}, {"differences", Json::array()}};
        for (const Difference &difference : differences) document["differences"].push_back(to_json(difference));
        print_json(document, stdout);
    } else {
        for (const Difference &difference : differences) {
            std::printf("%s\n", printable(sentence_of(difference)).c_str());
        }
    }
    tell(troubles);
    return differences.empty() ? exit_code(troubles, true) : kFailed;
}

} // namespace

void add_diff_commands(const Command &tool) {
    const auto options = std::make_shared<DiffOptions>();
    tool.add("diff", "Tell what differs from an earlier 'list --json'.", [options] { return run(*options); })
        .argument("OLD", options->older, "a file that 'torvane list --json -O' wrote")
        .argument("NEW", options->newer, "a later one; none: the machine as it is", false)
        .json(options->json)
        .timeout(options->timeout);
    tool.add("check", "Tell whether the machine has the drives that it should.", [options] { return run(*options); })
        .option("--expect", options->older, "FILE", "a file that 'torvane list --json -O' wrote", true)
        .json(options->json)
        .timeout(options->timeout);
}

} // namespace tool
