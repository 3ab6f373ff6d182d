#include "inventory/kernel/block.h"

namespace inventory {
namespace {

constexpr AttributeRow kMd[] = {
    {"level", "md/level"},
    {"state", "md/array_state"},
    {"degraded", "md/degraded", Reading::kNumber},
    {"sync_action", "md/sync_action"},
};
constexpr AttributeRow kDm[] = {{"dm_name", "dm/name"}};

struct UuidRow {
    std::string_view beginning;
    const char *type;
};
// Who made the mapped device says so in its UUID.
constexpr UuidRow kUuids[] = {{"LVM-", "lvm"}, {"CRYPT-", "crypt"}, {"mpath-", "mpath"}};

// "1024 / 2048", in sectors of what is worked on; "none" when nothing is.
void tell_progress(Thing &thing, const std::string &progress) {
    const std::size_t slash = progress.find(" / ");
    if (slash == std::string::npos) return;
    const auto done = parse_number(progress.substr(0, slash));
    const auto all = parse_number(progress.substr(slash + 3));
    if (!done || !all || *all == 0 || *done > *all) return;
    const double part = static_cast<double>(*done) / static_cast<double>(*all);
    thing.tell("sync_percent", static_cast<std::uint64_t>(part * 100), Source::kKernel, "md/sync_completed");
}

} // namespace

void tell_array(const Block &block, const Wanted &wanted) {
    tell_attributes(*block.thing, block.folder, kMd, wanted);
    if (wanted.has("sync_percent")) tell_progress(*block.thing, block.folder.text("md/sync_completed"));
}

void tell_mapped(const Block &block, const Wanted &wanted) {
    tell_attributes(*block.thing, block.folder, kDm, wanted);
    const std::string uuid = block.folder.text("dm/uuid");
    std::string type = block.row->type;
    for (const UuidRow &row : kUuids) {
        if (uuid.starts_with(row.beginning)) type = row.type;
    }
    block.thing->tell("type", type, Source::kKernel, "dm/uuid");
    const std::string name = block.folder.text("dm/name");
    if (!name.empty()) block.thing->tell("path", "/dev/mapper/" + name, Source::kKernel, "dm/name");
}

} // namespace inventory
