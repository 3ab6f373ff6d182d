#include "inventory/kernel/uses.h"

#include "inventory/kernel/members.h"

#include <algorithm>
#include <map>

namespace inventory {
namespace {

// Verdicts, the gravest first.
enum Verdict : std::size_t {
    kMounted,
    kSwap,
    kArrayMember,
    kLvm,
    kCrypt,
    kMpath,
    kOtherMapped,
    kLoop,
    kZfs,
    kFileSystem,
    kSignature,
    kPartitioned,
    kUnknown,
    kFree
};
constexpr const char *kVerdicts[] = {"mounted", "swap", "array",      "lvm",    "crypt",       "mpath",   "mapped",
                                     "loop",    "zfs",  "filesystem", "member", "partitioned", "unknown", "free"};

struct Use {
    std::vector<std::string> users;
    Verdict verdict = kFree;

    void add(const std::string &user, Verdict why) {
        if (std::find(users.begin(), users.end(), user) == users.end()) users.push_back(user);
        verdict = std::min(verdict, why);
    }
    void add(const Use &other) {
        for (const std::string &user : other.users) add(user, kFree);
        verdict = std::min(verdict, other.verdict);
    }
};

Verdict verdict_of_holder(const Thing &holder) {
    static const std::map<std::string, Verdict, std::less<>> by_type{
        {"softraid", kArrayMember}, {"lvm", kLvm}, {"crypt", kCrypt}, {"mpath", kMpath}, {"loop", kLoop}};
    const auto found = by_type.find(holder.text("type"));
    return found == by_type.end() ? kOtherMapped : found->second;
}

// What lies on it while nobody that the kernel names uses it.
void add_contents(const Thing &thing, Use &use) {
    static const std::map<std::string, Verdict, std::less<>> signatures{{"zfs_member", kZfs},
                                                                        {"LVM2_member", kSignature},
                                                                        {"LVM1_member", kSignature},
                                                                        {"crypto_LUKS", kSignature},
                                                                        {"linux_raid_member", kSignature},
                                                                        {"ddf_raid_member", kSignature},
                                                                        {"isw_raid_member", kSignature},
                                                                        {"mpath_member", kSignature},
                                                                        {"drbd", kSignature},
                                                                        {"bcache", kSignature},
                                                                        {"swap", kSignature}};
    const std::string signature = thing.text("fs_type");
    if (signature.empty()) return;
    const auto found = signatures.find(signature);
    const Verdict verdict = found == signatures.end() ? kFileSystem : found->second;
    // The pool's own driver uses it, and tells the kernel nothing: it may well be in use.
    use.add(verdict == kZfs ? signature : signature + " unused", verdict);
}

Use use_of(const Thing &thing, const Examined &examined) {
    Use use;
    if (const auto *points = std::get_if<std::vector<std::string>>(&thing.value("mount_points"))) {
        for (const std::string &point : *points) use.add(point, point == "[SWAP]" ? kSwap : kMounted);
    }
    const std::vector<Thing *> holders = thing.related_to(RelationKind::kBuiltOn);
    const std::vector<std::string> names = holders_of(thing);
    for (const Thing *holder : holders) use.verdict = std::min(use.verdict, verdict_of_holder(*holder));
    for (const std::string &name : names) use.add(name, kFree);
    if (use.verdict == kFree) add_contents(thing, use);
    for (const Thing *part : thing.related_to(RelationKind::kPartOf)) {
        use.add(use_of(*part, examined));
        // The boot areas of an MMC are no partitions.
        if (part->number("partn")) use.verdict = std::min(use.verdict, kPartitioned);
    }
    if (use.verdict == kFree && !thing.text("pt_type").empty() && thing.kind() != ThingKind::kPartition) {
        use.verdict = kPartitioned;
    }
    if (use.verdict == kFree && !examined.contains(&thing)) use.verdict = kUnknown;
    return use;
}

} // namespace

const std::string &graver(const std::string &left, const std::string &right) {
    const auto place = [](const std::string &verdict) {
        return std::find(std::begin(kVerdicts), std::end(kVerdicts), verdict) - std::begin(kVerdicts);
    };
    return place(right) < place(left) ? right : left;
}

void conclude_uses(Machine &machine, const Examined &examined) {
    for (Thing &thing : machine.things()) {
        if ((all_facts()[index_of("used_by")].of & bit(thing.kind())) == 0) continue;
        std::vector<std::string> holders = holders_of(thing);
        if (!holders.empty()) thing.tell("holders", holders, Source::kKernel, "slaves");
        const Use use = use_of(thing, examined);
        if (!use.users.empty()) thing.tell("used_by", use.users, Source::kDerived);
        thing.tell("verdict", std::string(kVerdicts[use.verdict]), Source::kDerived);
        if (use.verdict == kUnknown) {
            thing.lacks("fs_type", "no device manager has looked at it");
        }
    }
}

} // namespace inventory
