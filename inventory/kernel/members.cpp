#include "inventory/kernel/members.h"

#include <algorithm>

namespace inventory {
namespace {

struct RoleRow {
    std::string_view state; // a word of the member's state, see the kernel's Documentation/admin-guide/md.rst
    const char *role;
};
// The first that the member's state has decides.
constexpr RoleRow kRoles[] = {{"faulty", "failed"}, {"journal", "journal"}, {"in_sync", "active"}};

bool has_word(const std::string &words, std::string_view word) {
    const std::string padded = "," + words + ",";
    return padded.find("," + std::string(word) + ",") != std::string::npos;
}

// "active 0": the role and, where it has one, the place in the array.
std::string role_of(const std::string &state, const std::string &slot) {
    const bool has_slot = parse_number(slot).has_value();
    for (const RoleRow &row : kRoles) {
        if (has_word(state, row.state)) return has_slot ? std::string(row.role) + " " + slot : row.role;
    }
    if (!has_word(state, "spare")) return "";
    return has_slot ? "rebuilding " + slot : "spare";
}

std::string device_name(std::string name) {
    std::replace(name.begin(), name.end(), '!', '/');
    return name;
}

void tell_role(const Block &block, const std::string &member_name, Thing &member) {
    const std::string folder = "md/dev-" + member_name + "/";
    const std::string state = block.folder.text((folder + "state").c_str());
    member.tell("role", role_of(state, block.folder.text((folder + "slot").c_str())), Source::kKernel,
                block.name + "/" + folder + "state");
}

} // namespace

void tell_members(Machine &machine, const Block &block) {
    std::vector<std::string> members;
    for (const std::string &name : block.folder.names("slaves")) {
        members.push_back(device_name(name));
        Thing *member = machine.find(members.back());
        if (member == nullptr) continue;
        Machine::relate(*block.thing, RelationKind::kBuiltOn, *member);
        const bool has_role = member->kind() == ThingKind::kDrive || member->kind() == ThingKind::kPartition;
        if (block.thing->kind() == ThingKind::kArray && has_role) tell_role(block, name, *member);
    }
    std::sort(members.begin(), members.end(), natural_less);
    const bool has_members = block.thing->kind() != ThingKind::kVirtual;
    if (has_members && !members.empty()) block.thing->tell("members", members, Source::kKernel, "slaves");
}

std::vector<std::string> holders_of(const Thing &thing) {
    std::vector<std::string> names;
    for (const Thing *holder : thing.related_to(RelationKind::kBuiltOn)) {
        const std::string mapped = holder->kind() == ThingKind::kMapped ? holder->text("dm_name") : "";
        names.push_back(mapped.empty() ? holder->id() : mapped);
    }
    std::sort(names.begin(), names.end(), natural_less);
    return names;
}

} // namespace inventory
