#include "inventory/drives/drives.h"

#include "inventory/drives/questions.h"
#include "inventory/reading/locks.h"
#include "inventory/reading/packing.h"
#include "inventory/reading/workers.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace inventory {
namespace {

constexpr const char *kHungRemedy = "a device that does not answer may be failing: see the kernel's log (dmesg), or "
                                    "wait longer with --timeout";
constexpr const char *kHeldRemedy = "the process goes when the device answers or is unplugged; see the kernel's log "
                                    "(dmesg)";

std::vector<Thing *> askable(Machine &machine, const std::vector<Thing *> &only) {
    std::vector<Thing *> drives;
    if (only.empty()) {
        for (Thing &thing : machine.things()) drives.push_back(&thing);
    } else {
        drives = only;
    }
    std::erase_if(drives, [](const Thing *thing) { return !can_be_asked(*thing); });
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

void take(const Outcome &outcome, Thing &drive, const DriveRequest &request) {
    if (outcome.state == Outcome::State::kDone && unpack(outcome.answer, drive)) return;
    const bool is_done = outcome.state == Outcome::State::kDone;
    const std::string words = is_done ? "the reader's answer was no answer" : outcome.words;
    const char *remedy = "";
    if (outcome.state == Outcome::State::kTimedOut) remedy = kHungRemedy;
    if (outcome.state == Outcome::State::kHeld) remedy = kHeldRemedy;
    lack_all(drive, request, words);
    drive.troubles.push_back({drive.text("path"), {}, words, remedy, true});
}

Job job_for(Thing &drive, const DriveRequest &request) {
    return {[&drive, &request] { return pack(ask(drive, request)); },
            [&drive, &request](const Outcome &outcome) { take(outcome, drive, request); },
            lock_name(drive.text("maj_min"), drive.number("diskseq"))};
}

} // namespace

void read_drives(Machine &machine, const DriveRequest &request) {
    const std::vector<Thing *> drives = askable(machine, request.only);
    if (drives.empty()) return;
    if (!may_ask(drives)) return tell_that_root_is_needed(machine, drives, request);
    std::vector<Job> jobs;
    jobs.reserve(drives.size());
    for (Thing *drive : drives) jobs.push_back(job_for(*drive, request));
    do_jobs(jobs, {.limit = request.limit, .tick = request.tick});
}

} // namespace inventory
