#include "drives.h"

#include "explain.h"
#include "raid.h"
#include "output/text.h"
#include "unopened.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <new>
#include <set>

namespace tool {
namespace {

// What create_drive() reads of one drive; the other bits choose drives.
constexpr DriveOptions kReadings =
    DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE;

// Up to this many drives each get a process of their own. More share processes, since every call of the
// library reads /proc/partitions, and that is long on a machine with thousands of disks.
constexpr std::size_t kAlone = 64;
constexpr std::size_t kProcesses = 32;

constexpr const char *kHungRemedy = "a device that does not answer may be failing: see the kernel's log (dmesg), "
                                    "or wait longer with --timeout";

using Names = std::vector<std::string>;

Failure source_failure(std::string source, const Outcome &outcome) {
    const bool is_late = outcome.state == Outcome::State::kTimedOut;
    return {std::move(source), {}, outcome.words, is_late ? kHungRemedy : "", true};
}

Names take_names(char **names, uint32_t count) {
    Names taken(names, names + count);
    release_drive_names(names, count);
    return taken;
}

// Names are listed in the child as well: telling whole disks from partitions may open a device.
struct NameSource {
    const char *key;
    DriveOptions option; // a failure matters when this is asked for
    bool always;
    const char *source;
    bool (*read)(Names &names);
};

bool is_refused(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return errno == EACCES || errno == EPERM;
    close(fd);
    return false;
}

// A disk that may not be opened is no whole disk for the library, which cannot ask it where it starts. People
// want to read that they lack a right, not that they have no disks, so these names are read like the others.
void add_refused_names(Names &names) {
    std::ifstream file("/proc/partitions");
    std::string line;
    std::set<std::string> known(names.begin(), names.end());
    std::getline(file, line); // headings
    while (std::getline(file, line)) {
        const std::string name = line.substr(line.find_last_of(' ') + 1);
        const std::string path = device_path(name);
        if (name.empty() || name.starts_with("dm-") || known.contains(path) || is_partition(name.c_str()) != 0)
            continue;
        if (is_refused(path)) names.push_back(path);
    }
}

bool read_disk_names(Names &names) {
    char **list = nullptr;
    uint32_t count = 0;
    if (read_drive_names_on_system(&list, &count) != 0) return false;
    names = take_names(list, count);
    add_refused_names(names);
    return true;
}

// With no reading option the records hold only names and touch no device.
bool read_optical_names(Names &names) {
    OwnedList list;
    if (get_drives(&list, DRIVE_OPTION_OPTICAL, nullptr, 0) != 0) return false;
    for (uint32_t i = 0; i < list.count; ++i) names.emplace_back(list.drives[i]->name);
    return true;
}

bool read_array_names(Names &names) {
    char **list = nullptr;
    uint32_t count = 0;
    if (get_sw_raid_names(&list, &count) != 0) return false;
    names.assign(list, list + count);
    release_partition_names(list, &count);
    return true;
}

constexpr NameSource kNameSources[] = {
    {"disks", DRIVE_OPTION_SYSTEM, false, "disks", read_disk_names},
    // These two also tell the type of drives that the user named, so they are read always.
    {"optical", DRIVE_OPTION_OPTICAL, true, "optical drives", read_optical_names},
    {"arrays", DRIVE_OPTION_RAID, true, "software RAID", read_array_names},
};

Wire read_names(DriveOptions options) {
    Wire wire;
    std::vector<Failure> failures;
    for (const NameSource &source : kNameSources) {
        Names names;
        const bool wanted = (options & source.option) != 0;
        if ((wanted || source.always) && !source.read(names) && wanted) {
            const std::string words = words_about({TORVANE_ERROR_DRIVE_LIST, TORVANE_ERROR_RAID, TORVANE_ERROR_SYSFS});
            failures.push_back({source.source, "names", words.empty() ? "failed to read names" : words, {}, true});
        }
        wire[source.key] = names;
    }
    wire["failures"] = failures_to_wire(failures);
    return wire;
}

// Reads these drives as one discovery of the library.
Wire read_drives(const Names &names, DriveOptions options, bool essential_only) {
    std::vector<const char *> paths;
    for (const std::string &name : names) paths.push_back(name.c_str());
    OwnedList list;
    const auto count = static_cast<uint32_t>(paths.size());
    if (get_drives(&list, options & kReadings, paths.data(), count) != 0 || list.count != count) {
        return {{"error", words_about({TORVANE_ERROR_DRIVE_LIST})}};
    }
    Wire drives = Wire::array();
    for (uint32_t i = 0; i < list.count; ++i) {
        const std::vector<Failure> failures = explain(*list.drives[i], essential_only);
        complete_unopened(*list.drives[i]);
        Wire wire = record_to_wire(*list.drives[i]);
        wire["failures"] = failures_to_wire(failures);
        drives.push_back(std::move(wire));
    }
    return {{"drives", std::move(drives)}};
}

Drive drive_from_wire(const Wire &wire) { return {record_from_wire(wire), failures_from_wire(wire.at("failures"))}; }

// Reads all names side by side. The answers come in the order of the names.
class DriveReaders {
  public:
    DriveReaders(const Names &names, const Request &request)
        : names_(names), request_(request), isolation_(request.limit), drives_(names.size()) {}

    std::vector<Drive> read() {
        const std::size_t batch = names_.size() <= kAlone ? 1 : (names_.size() + kProcesses - 1) / kProcesses;
        for (std::size_t first = 0; first < names_.size(); first += batch) {
            add(first, std::min(batch, names_.size() - first));
        }
        isolation_.run();
        return std::move(drives_);
    }

  private:
    void add(std::size_t first, std::size_t count) {
        const auto begin = names_.begin() + static_cast<Names::difference_type>(first);
        const Names batch(begin, begin + static_cast<Names::difference_type>(count));
        isolation_.add({[this, batch] { return read_drives(batch, request_.options, !request_.every_failure); },
                        [this, first, count](const Outcome &outcome) { take(first, count, outcome); }});
    }

    void take(std::size_t first, std::size_t count, const Outcome &outcome) {
        const bool done = outcome.state == Outcome::State::kDone;
        if (done && outcome.result.contains("drives")) {
            const Wire &drives = outcome.result.at("drives");
            for (std::size_t i = 0; i < count; ++i) drives_[first + i] = drive_from_wire(drives.at(i));
        } else if (count > 1) {
            for (std::size_t i = 0; i < count; ++i) add(first + i, 1);
        } else {
            Failure failure = source_failure(names_[first], outcome);
            if (done) failure.words = outcome.result.at("error").get<std::string>();
            drives_[first].record = unread_record(names_[first]);
            drives_[first].failures.push_back(std::move(failure));
        }
    }

    const Names &names_;
    const Request &request_;
    Isolation isolation_;
    std::vector<Drive> drives_;
};

void append_new(Names &names, const Names &added) {
    std::set<std::string> present(names.begin(), names.end());
    for (const std::string &name : added) {
        if (present.insert(name).second) names.push_back(name);
    }
}

void mark(std::vector<Drive> &drives, const Names &arrays, const Names &optical) {
    std::vector<const char *> paths;
    for (const std::string &name : arrays) paths.push_back(name.c_str());
    const std::set<std::string> optical_names(optical.begin(), optical.end());
    for (const Drive &drive : drives) {
        resolve_to_special(drive.record.get(), paths.data(), static_cast<uint32_t>(paths.size()));
        if (optical_names.contains(drive.record->name)) drive.record->drive_type = DRIVE_TYPE_OPTICAL;
    }
}

struct Plan {
    Names names;
    Names arrays;
    Names optical;
};

Plan make_plan(const Request &request, std::vector<Failure> &failures) {
    Plan plan;
    const DriveOptions options = request.options;
    Outcome outcome = run_isolated([options] { return read_names(options); }, request.limit);
    plan.names = request.names;
    if (outcome.state != Outcome::State::kDone) {
        failures.push_back(source_failure("names of the drives", outcome));
        return plan;
    }
    append_new(plan.names, outcome.result.at("disks").get<Names>());
    plan.arrays = outcome.result.at("arrays").get<Names>();
    plan.optical = outcome.result.at("optical").get<Names>();
    // The kernel lists an optical drive with a disc among the disks too: it is shown once.
    if ((options & DRIVE_OPTION_OPTICAL) != 0) append_new(plan.names, plan.optical);
    for (Failure &failure : failures_from_wire(outcome.result.at("failures"))) failures.push_back(std::move(failure));
    return plan;
}

// Lends the records to the library as one of its lists; what it appends comes back at the end.
template <class Use> auto as_list(std::vector<Drive> &drives, Use use) {
    DriveList list{static_cast<uint32_t>(drives.size()), nullptr};
    list.drives = static_cast<DriveRecord **>(std::calloc(drives.size() + 1, sizeof(DriveRecord *)));
    if (!list.drives) throw std::bad_alloc();
    for (std::size_t i = 0; i < drives.size(); ++i) list.drives[i] = drives[i].record.release();
    const auto result = use(&list);
    drives.resize(list.count);
    for (std::size_t i = 0; i < drives.size(); ++i) drives[i].record.reset(list.drives[i]);
    std::free(list.drives);
    // The library leaves an empty slot behind a record that it could not make.
    std::erase_if(drives, [](const Drive &drive) { return !drive.record; });
    return result;
}

Failure list_failure(const char *source) { return {source, {}, words_about({TORVANE_ERROR_DRIVE_LIST}), {}, true}; }

// A logical drive's members in its place, as the library lists them; empty when the name is no RAID drive.
std::vector<Drive> members_of(const std::string &name, const Controllers &controllers, std::vector<Failure> &failures) {
    std::vector<Drive> members;
    const auto added = as_list(members, [&](DriveList *list) {
        return resolve_to_raid(name.c_str(), list, controllers.list(), controllers.count());
    });
    if (added < 0) failures.push_back(list_failure(name.c_str()));
    return members;
}

// Ordinary drives are read, each on its own; RAID members are known already.
std::vector<Drive> read_all(const Plan &plan, const Request &request, const Controllers &controllers,
                            std::vector<Failure> &failures) {
    Names ordinary;
    std::vector<std::vector<Drive>> members;
    for (const std::string &name : plan.names) {
        members.push_back(members_of(name, controllers, failures));
        if (members.back().empty()) ordinary.push_back(name);
    }
    std::vector<Drive> read = DriveReaders(ordinary, request).read();
    mark(read, plan.arrays, plan.optical);
    std::vector<Drive> drives;
    auto next = read.begin();
    for (std::vector<Drive> &replaced : members) {
        if (replaced.empty()) drives.push_back(std::move(*next++));
        std::move(replaced.begin(), replaced.end(), std::back_inserter(drives));
    }
    return drives;
}

void add_raid_drives(std::vector<Drive> &drives, const Controllers &controllers, std::vector<Failure> &failures) {
    const int result = as_list(
        drives, [&](DriveList *list) { return add_all_raid_drives(list, controllers.list(), controllers.count()); });
    if (result != 0) failures.push_back(list_failure("RAID member drives"));
}

// USB devices are matched against all records at once, in one process that holds them all. Optical drives are
// among them by now, so a USB optical drive with its node is listed once.
void add_usb_drives(std::vector<Drive> &drives, const Request &request, std::vector<Failure> &failures) {
    const uint32_t add_unmatched = (request.options & DRIVE_OPTION_SYSTEM) != 0 ? 1 : 0;
    const Outcome outcome = run_isolated(
        [&drives, add_unmatched]() -> Wire {
            const int result =
                as_list(drives, [&](DriveList *list) { return add_removable_media(list, add_unmatched); });
            if (result != 0) return {{"error", words_about({TORVANE_ERROR_DEVICE, TORVANE_ERROR_DRIVE_LIST})}};
            Wire records = Wire::array();
            for (const Drive &drive : drives) records.push_back(record_to_wire(*drive.record));
            return {{"drives", std::move(records)}};
        },
        request.limit);
    const bool done = outcome.state == Outcome::State::kDone;
    if (!done || !outcome.result.contains("drives")) {
        Failure failure = source_failure("USB devices", outcome);
        if (done) failure.words = outcome.result.at("error").get<std::string>();
        failures.push_back(std::move(failure));
        return;
    }
    const Wire &records = outcome.result.at("drives");
    drives.resize(records.size());
    for (std::size_t i = 0; i < records.size(); ++i) drives[i].record = record_from_wire(records.at(i));
}

} // namespace

// The order of get_drives(): disks with RAID members in the place of their logical drives, the other members,
// USB devices. Its marks for software RAID and iSCSI are made even without its RAID option.
Found find_drives(const Request &request) {
    Found found;
    const Plan plan = make_plan(request, found.failures);
    Controllers controllers;
    if ((request.options & DRIVE_OPTION_RAID) != 0) {
        controllers = controllers_from_wire(find_controllers(request.limit, found.failures));
    }
    found.drives = read_all(plan, request, controllers, found.failures);
    if ((request.options & DRIVE_OPTION_SYSTEM) != 0) add_raid_drives(found.drives, controllers, found.failures);
    if ((request.options & DRIVE_OPTION_USB) != 0) add_usb_drives(found.drives, request, found.failures);
    return found;
}

std::vector<Failure> all_failures(const Found &found) {
    std::vector<Failure> failures = found.failures;
    for (const Drive &drive : found.drives) {
        failures.insert(failures.end(), drive.failures.begin(), drive.failures.end());
    }
    return failures;
}

} // namespace tool
