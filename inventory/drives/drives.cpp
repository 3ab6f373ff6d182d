#include "inventory/drives/drives.h"

#include "inventory/drives/questions.h"
#include "inventory/reading/device.h"
#include "inventory/reading/locks.h"
#include "inventory/reading/packing.h"
#include "inventory/reading/workers.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <unordered_set>

namespace inventory {
namespace {

constexpr const char *kHungRemedy = "a device that does not answer may be failing: see the kernel's log (dmesg), or "
                                    "wait longer with --timeout";
constexpr const char *kHeldRemedy = "the process goes when the device answers or is unplugged; see the kernel's log "
                                    "(dmesg)";

// Those that there is something to ask.
std::vector<Thing *> askable(Machine &machine, const DriveRequest &request) {
    std::vector<Thing *> drives;
    if (request.only.empty()) {
        for (Thing &thing : machine.things()) drives.push_back(&thing);
    } else {
        drives = request.only;
    }
    std::erase_if(drives, [&request](const Thing *thing) {
        return !can_be_asked(*thing) || asked_facts(*thing, request).empty();
    });
    return drives;
}

bool may_open(const Thing *drive) { return faccessat(AT_FDCWD, drive->text("path").c_str(), R_OK, AT_EACCESS) == 0; }

// Without a lock nothing would remember who waits for a device that does not answer, and nothing is sent.
bool may_ask(const std::vector<Thing *> &drives) {
    if (geteuid() == 0) return true;
    return std::any_of(drives.begin(), drives.end(), may_open) && LockFolder::open().has_value();
}

void lack_all(Thing &drive, const DriveRequest &request, const std::string &reason) {
    for (const std::string_view key : asked_facts(drive, request)) drive.lacks(key, reason);
}

// One line for all drives: nobody wants to read the same words as often as there are disks.
void tell_that_root_is_needed(Machine &machine, const std::vector<Thing *> &drives, const DriveRequest &request) {
    for (Thing *drive : drives) lack_all(*drive, request, "only root may ask the drive");
    machine.troubles.push_back(
        {"",
         {},
         "without root the drives themselves are not asked: what only they tell is missing (try sudo)",
         "",
         false});
}

// Whose attributes have been put off, and the readers of them: workers make one each, which is none of the parent's.
struct PutOff {
    const DriveRequest &request;
    std::unordered_set<const Thing *> drives{request.put_off.begin(), request.put_off.end()};
    std::optional<KernelDetails> in_worker = {};
    std::optional<KernelDetails> in_parent = {};

    const Thing *replaced = nullptr;     // the last that had its name taken by another drive
    std::vector<std::size_t> words = {}; // how many of each fact the drive had before

    [[nodiscard]] bool has(const Thing &drive) const { return drives.contains(&drive); }
    void read(Thing &drive, std::optional<KernelDetails> &details) {
        if (!has(drive)) return;
        if (!details) details.emplace(request.kernel);
        if (!details->read(drive)) replaced = &drive;
    }
};

void tell_replaced(Thing &drive, const DriveRequest &request) {
    lack_all(drive, request, kAnotherDevice);
    drive.troubles.push_back({drive.text("path"), {}, kAnotherDevice, "", true});
}

void count_words(const Thing &drive, std::vector<std::size_t> &words) {
    words.assign(all_facts().size(), 0);
    for (const auto &[index, fact] : drive.facts()) words[index] = fact.words.size();
}

// Of the worker's copy of the drive, with what it answered, those facts that its parent does not have so yet.
std::string pack_news(Thing &drive, const Thing &found, const std::vector<std::size_t> &words) {
    for (const auto &[index, fact] : found.facts()) {
        Fact &known = drive.facts()[index];
        known.words.insert(known.words.end(), fact.words.begin(), fact.words.end());
        if (!fact.reason.empty()) known.reason = fact.reason;
    }
    drive.troubles.insert(drive.troubles.end(), found.troubles.begin(), found.troubles.end());
    drive.facts().erase_if([&words](const Facts::Entry &entry) {
        return entry.second.reason.empty() && entry.second.words.size() == words[entry.first];
    });
    return pack(drive);
}

bool take_answer(std::string_view answer, Thing &drive, bool is_news) {
    if (!is_news) return unpack(answer, drive);
    Thing news(drive.kind(), drive.id());
    if (!unpack(answer, news)) return false;
    for (auto &[index, fact] : news.facts()) drive.facts()[index] = std::move(fact);
    drive.troubles.insert(drive.troubles.end(), news.troubles.begin(), news.troubles.end());
    return true;
}

void take(const Outcome &outcome, Thing &drive, PutOff &put_off) {
    if (outcome.state == Outcome::State::kDone && take_answer(outcome.answer, drive, put_off.has(drive))) return;
    const bool is_done = outcome.state == Outcome::State::kDone;
    const std::string words = is_done ? "the reader's answer was no answer" : outcome.words;
    const char *remedy = "";
    if (outcome.state == Outcome::State::kTimedOut) remedy = kHungRemedy;
    if (outcome.state == Outcome::State::kHeld) remedy = kHeldRemedy;
    put_off.read(drive, put_off.in_parent);
    lack_all(drive, put_off.request, words);
    drive.troubles.push_back({drive.text("path"), {}, words, remedy, true});
}

Job job_for(Thing &drive, PutOff &put_off) {
    const auto read = [&drive, &put_off] {
        if (put_off.replaced == &drive) {
            tell_replaced(drive, put_off.request);
            return pack(drive);
        }
        const Thing found = ask(drive, put_off.request);
        return put_off.has(drive) ? pack_news(drive, found, put_off.words) : pack(found);
    };
    // What the kernel tells decides what is asked; who is asked for nothing is not opened.
    const auto lock = [&drive, &put_off]() -> std::string {
        if (put_off.has(drive)) {
            drive.troubles.clear(); // the parent has those so far
            count_words(drive, put_off.words);
        }
        put_off.read(drive, put_off.in_worker);
        if (put_off.replaced == &drive || asked_facts(drive, put_off.request).empty()) return "";
        return lock_name(drive.text("maj_min"), drive.number("diskseq"));
    };
    return {read, [&drive, &put_off](const Outcome &outcome) { take(outcome, drive, put_off); }, lock};
}

} // namespace

void read_drives(Machine &machine, const DriveRequest &request) {
    const std::vector<Thing *> drives = askable(machine, request);
    PutOff put_off{request};
    const std::unordered_set<const Thing *> asked(drives.begin(), drives.end());
    for (Thing *drive : request.put_off) {
        if (asked.contains(drive)) continue;
        put_off.read(*drive, put_off.in_parent);
        if (put_off.replaced == drive) tell_replaced(*drive, request);
    }
    if (drives.empty()) return;
    if (!may_ask(drives)) return tell_that_root_is_needed(machine, drives, request);
    std::vector<Job> jobs;
    jobs.reserve(drives.size());
    for (Thing *drive : drives) jobs.push_back(job_for(*drive, put_off));
    do_jobs(jobs, {.limit = request.limit, .tick = request.tick});
}

} // namespace inventory
