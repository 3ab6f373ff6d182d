// torvane health: one line a problem, for monitoring.
#include "inventory/raid/health.h"
#include "commands/commands.h"
#include "commands/devices.h"
#include "commands/looks.h"
#include "output/text.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace tool {
namespace {

struct HealthOptions {
    bool json = false;
    double timeout = kDefaultSeconds;
};

int run(const HealthOptions &options) {
    inventory::Request request;
    request.raid = true;
    request.limit = to_limit(options.timeout);
    const inventory::Machine machine = inventory::survey(request);
    const std::vector<inventory::Problem> problems = inventory::problems_of(machine);
    if (options.json) {
        Json document = {{"schema_version", kSchemaVersion}, {"problems", Json::array()}};
        for (const inventory::Problem &problem : problems) {
            document["problems"].push_back(
                {{"name", name_of(*problem.thing)}, {"problem", problem.kind}, {"message", problem.words}});
        }
        print_json(document, stdout);
    } else {
        for (const inventory::Problem &problem : problems) {
            std::printf("%s\n", printable(problem.words).c_str());
        }
    }
    const Troubles troubles = raid_troubles(machine);
    tell(troubles);
    // A problem that was seen is worth more than a source that was not.
    return problems.empty() ? exit_code(troubles, true) : kFailed;
}

} // namespace

void add_health_command(const Command &tool) {
    const auto options = std::make_shared<HealthOptions>();
    tool.add("health", "Tell what is wrong with RAID arrays and their drives.", [options] { return run(*options); })
        .json(options->json)
        .timeout(options->timeout);
}

} // namespace tool
