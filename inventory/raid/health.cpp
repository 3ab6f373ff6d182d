#include "inventory/raid/health.h"

#include "inventory/raid/scan.h"

#include <algorithm>
#include <array>
#include <optional>

namespace inventory {
namespace {

using raid::holds;
using raid::same_word;

constexpr const char *kFine = ""; // no problem

struct Meaning {
    std::string_view word;
    bool whole; // the whole state, not a part of it
    Health health;
    const char *kind;
};

// In the words of md and of all tools; the first that is found decides, so what is worse stands before.
constexpr std::array<Meaning, 68> kMeanings{{
    {"predictive", false, Health::kBad, "predictive-failure"},
    {"non-optimal", false, Health::kBad, "degraded"},
    {"nonoptimal", false, Health::kBad, "degraded"},
    {"degrad", false, Health::kBad, "degraded"},
    {"dgrd", false, Health::kBad, "degraded"},
    {"pdgd", false, Health::kBad, "degraded"},
    {"dgd", false, Health::kBad, "degraded"},
    {"suboptimal", false, Health::kBad, "degraded"},
    {"interim recovery", false, Health::kBad, "degraded"},
    {"impacted", false, Health::kBad, "degraded"},
    {"inconsistent", false, Health::kBad, "degraded"},
    {"out of sync", false, Health::kBad, "degraded"},
    {"ready for rebuild", false, Health::kBad, "degraded"},
    {"missing", false, Health::kBad, "missing"},
    {"msng", false, Health::kBad, "missing"},
    {"fail", false, Health::kBad, "failed"},
    {"offline", false, Health::kBad, "failed"},
    {"offln", false, Health::kBad, "failed"},
    {"ofln", false, Health::kBad, "failed"},
    {"defunct", false, Health::kBad, "failed"},
    {"dead", false, Health::kBad, "failed"},
    {"bad", false, Health::kBad, "failed"},
    {"unusbl", false, Health::kBad, "failed"},
    {"unusable", false, Health::kBad, "failed"},
    {"inaccessible", false, Health::kBad, "failed"},
    {"inactive", false, Health::kBad, "failed"},
    {"attention", false, Health::kBad, "other"},
    {"ndatn", false, Health::kBad, "other"},
    {"rebuild", false, Health::kBusy, "rebuilding"},
    {"rbld", false, Health::kBusy, "rebuilding"},
    {"recover", false, Health::kBusy, "rebuilding"},
    {"rec", true, Health::kBusy, "rebuilding"},
    {"copyback", false, Health::kBusy, "rebuilding"},
    {"cpybck", false, Health::kBusy, "rebuilding"},
    {"replace", false, Health::kBusy, "rebuilding"},
    {"init", false, Health::kBusy, kFine},
    {"transforming", false, Health::kBusy, kFine},
    {"expan", false, Health::kBusy, kFine},
    {"verify", false, Health::kBusy, kFine},
    {"erasing", false, Health::kBusy, kFine},
    {"sntz", false, Health::kBusy, kFine},
    {"resync", false, Health::kBusy, kFine},
    {"reshape", false, Health::kBusy, kFine},
    {"check", false, Health::kBusy, kFine},
    {"repair", false, Health::kBusy, kFine},
    {"migrat", false, Health::kBusy, kFine},
    {"optimal", false, Health::kOptimal, kFine},
    {"optl", false, Health::kOptimal, kFine},
    {"opt", true, Health::kOptimal, kFine},
    {"ok", false, Health::kOptimal, kFine},
    {"online", false, Health::kOptimal, kFine},
    {"onln", false, Health::kOptimal, kFine},
    {"conf", false, Health::kOptimal, kFine},
    {"functional", false, Health::kOptimal, kFine},
    {"active", false, Health::kOptimal, kFine},
    {"clean", false, Health::kOptimal, kFine},
    {"read-auto", false, Health::kOptimal, kFine},
    {"readonly", false, Health::kOptimal, kFine},
    {"write-pending", false, Health::kOptimal, kFine},
    {"ready", false, Health::kOptimal, kFine},
    {"available", false, Health::kOptimal, kFine},
    {"spare", false, Health::kOptimal, kFine},
    {"ghs", false, Health::kOptimal, kFine},
    {"dhs", false, Health::kOptimal, kFine},
    {"jbod", false, Health::kOptimal, kFine},
    {"raw", false, Health::kOptimal, kFine},
    {"good", false, Health::kOptimal, kFine},
    {"normal", false, Health::kOptimal, kFine},
}};

Meaning meaning_of(const std::string &state) {
    const auto found = std::find_if(kMeanings.begin(), kMeanings.end(), [&](const Meaning &row) {
        return row.whole ? same_word(state, row.word) : holds(state, row.word);
    });
    return found == kMeanings.end() ? Meaning{"", true, Health::kUnknown, kFine} : *found;
}

bool is_raid_thing(const Thing &thing) {
    constexpr unsigned kKinds =
        bit(ThingKind::kArray) | bit(ThingKind::kController) | bit(ThingKind::kLogical) | bit(ThingKind::kMember);
    return (kKinds & bit(thing.kind())) != 0;
}

struct Finding {
    std::string kind;
    std::string words;
};

std::optional<Finding> problem_of(const Meaning &meaning, const std::string &state) {
    if (*meaning.kind == '\0') return std::nullopt;
    return Finding{meaning.kind, state};
}

std::optional<Finding> of_array(const Thing &array) {
    const std::uint64_t lacking = array.number("degraded").value_or(0);
    const std::string action = array.text("sync_action");
    if (lacking > 0) {
        const std::string words = std::to_string(lacking) + (lacking == 1 ? " member is" : " members are") + " missing";
        const bool rebuilds = action == "recover";
        if (!rebuilds) return Finding{"degraded", words};
        const auto percent = array.number("sync_percent");
        return Finding{"rebuilding", words + (percent ? ", " + std::to_string(*percent) + " % done" : "")};
    }
    const std::string state = array.text("state");
    const Meaning meaning = meaning_of(state);
    return problem_of(meaning, state);
}

std::optional<Finding> of_member(const Thing &member) {
    const std::string role = member.text("role");
    const std::string state = member.text("state");
    if (role == "missing") return Finding{"missing", state.empty() ? "there is no drive" : state};
    const Meaning meaning = meaning_of(state);
    if (role == "failed" || meaning.kind == std::string_view("failed")) return Finding{"failed", state};
    if (member.flag("predictive_failure")) return Finding{"predictive-failure", "the drive expects to fail"};
    if (role == "foreign") return Finding{"foreign", "it carries another controller's configuration"};
    return problem_of(meaning, state);
}

std::optional<Finding> finding_of(const Thing &thing) {
    if (thing.kind() == ThingKind::kArray) return of_array(thing);
    if (thing.kind() == ThingKind::kMember) return of_member(thing);
    const std::string state = thing.text("state");
    const Meaning meaning = meaning_of(state);
    return problem_of(meaning, state);
}

// Enough to find it: the kernel's name and the tool's place, a label, a serial number.
std::string name_of(const Thing &thing) {
    std::string name = thing.text("name");
    if (name.empty()) name = thing.id();
    std::string more;
    const auto add = [&more](const std::string &part) {
        if (!part.empty()) more += (more.empty() ? "" : ", ") + part;
    };
    const bool has_own_id = name != thing.id() && name != "/dev/" + thing.id();
    if (has_own_id) add(thing.id());
    add(thing.text("label"));
    const std::string serial = thing.kind() == ThingKind::kMember ? thing.text("serial") : std::string();
    if (!serial.empty()) add("serial " + serial);
    return more.empty() ? name : name + " (" + more + ")";
}

} // namespace

Health health_of(const Thing &thing) {
    if (!is_raid_thing(thing)) return Health::kUnknown;
    const std::optional<Finding> finding = finding_of(thing);
    if (finding) return finding->kind == "rebuilding" ? Health::kBusy : Health::kBad;
    const bool is_busy =
        thing.kind() == ThingKind::kArray && meaning_of(thing.text("sync_action")).health == Health::kBusy;
    return is_busy ? Health::kBusy : meaning_of(thing.text("state")).health;
}

std::vector<Problem> problems_of(const Machine &machine) {
    std::vector<Problem> problems;
    for (const Thing &thing : machine.things()) {
        const std::optional<Finding> finding = is_raid_thing(thing) ? finding_of(thing) : std::nullopt;
        if (!finding) continue;
        const std::string words = finding->words.empty() ? "" : ": " + finding->words;
        problems.push_back({&thing, finding->kind, name_of(thing) + ": " + finding->kind + words});
    }
    return problems;
}

} // namespace inventory
