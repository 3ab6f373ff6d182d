#include "inventory/kernel/mounts.h"

#include "inventory/kernel/folder.h"
#include "inventory/kernel/mount_library.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unordered_map>

namespace inventory {
namespace {

using Table = std::unique_ptr<libmnt_table, void (*)(libmnt_table *)>;
using Iterator = std::unique_ptr<libmnt_iter, void (*)(libmnt_iter *)>;
using Points = std::unordered_map<Thing *, std::vector<std::string>>;

constexpr const char *kMounts = "/proc/self/mountinfo";
constexpr const char *kSwaps = "/proc/swaps";
constexpr const char *kSwapSpace = "[SWAP]";
constexpr const char *kNoLibrary = "the library that reads it cannot be loaded";

// Finds things by device number and by the paths that tables name them with.
class Things {
  public:
    explicit Things(Machine &machine) : machine_(machine) {
        for (Thing &thing : machine.things()) {
            const std::string numbers = thing.text("maj_min");
            if (!numbers.empty()) by_numbers_.emplace(numbers, &thing);
        }
    }
    [[nodiscard]] Thing *with(dev_t numbers) const {
        const auto found = by_numbers_.find(std::to_string(major(numbers)) + ":" + std::to_string(minor(numbers)));
        return found == by_numbers_.end() ? nullptr : found->second;
    }
    // Symbolic links are followed, nothing is opened.
    [[nodiscard]] Thing *at(const std::string &path) const {
        constexpr std::string_view kNodes = "/dev/";
        if (!path.starts_with(kNodes)) return nullptr;
        if (Thing *known = machine_.find(path.substr(kNodes.size()))) return known;
        struct stat about = {};
        if (stat(path.c_str(), &about) != 0 || !S_ISBLK(about.st_mode)) return nullptr;
        return with(about.st_rdev);
    }

  private:
    Machine &machine_;
    std::unordered_map<std::string, Thing *> by_numbers_;
};

void add(Points &points, Thing *thing, const char *point) {
    if (thing == nullptr || point == nullptr) return;
    std::vector<std::string> &known = points[thing];
    if (std::find(known.begin(), known.end(), point) == known.end()) known.emplace_back(point);
}

// False without memory.
template <class Use> bool for_each_line(const MountLibrary &library, libmnt_table *table, Use use) {
    const Iterator iterator(library.new_iter(MNT_ITER_FORWARD), library.free_iter);
    libmnt_fs *line = nullptr;
    while (iterator && library.next_fs(table, iterator.get(), &line) == 0) use(line);
    return iterator != nullptr;
}

void note_failure(Machine &machine, const char *path, const char *remedy) {
    const int error = errno;
    const std::string words = std::string("cannot be read: ") + std::strerror(error);
    machine.troubles.push_back({path, "", words, error == ENOENT ? remedy : "", true});
}

// The library passes over lines that it has no memory for, too.
int note_line(libmnt_table *table, const char * /*file*/, int /*line*/) {
    *static_cast<bool *>(mount_library()->get_userdata(table)) = true;
    return 1;
}

// False, with errno, when not all of it was read.
template <class Parse, class Use> bool read_table(const MountLibrary &library, const char *path, Parse parse, Use use) {
    const Table table(library.new_table(), library.unref_table);
    bool has_failed = false;
    errno = ENOMEM;
    if (!table || library.set_userdata(table.get(), &has_failed) != 0) return false;
    library.set_parser_errcb(table.get(), note_line);
    errno = 0;
    const int result = parse(table.get(), path);
    const bool is_cut = errno == ENOMEM; // a success to the library
    // Without swap support there is no such file.
    if (result == -ENOENT && path == kSwaps) return true;
    errno = result < 0 ? -result : ENOMEM;
    return result == 0 && !is_cut && for_each_line(library, table.get(), use) && !has_failed;
}

bool read_mounts(const MountLibrary &library, const Things &things, Points &points) {
    bool is_whole = true;
    const bool is_read = read_table(library, kMounts, library.parse_file, [&](libmnt_fs *line) {
        Thing *thing = things.with(library.devno(line));
        // A file system over several devices (btrfs) has a number that is none of theirs.
        const char *source = library.source_path(line);
        if (thing == nullptr && source != nullptr) thing = things.at(source);
        const char *point = library.target(line);
        is_whole = is_whole && point != nullptr && library.source(line) != nullptr;
        add(points, thing, point);
    });
    return is_read && is_whole;
}

bool read_swaps(const MountLibrary &library, const Things &things, Points &points) {
    bool is_whole = true;
    const bool is_read = read_table(library, kSwaps, library.parse_swaps, [&](libmnt_fs *line) {
        const char *source = library.source_path(line);
        is_whole = is_whole && source != nullptr;
        if (source != nullptr) add(points, things.at(source), kSwapSpace);
    });
    return is_read && is_whole;
}

// A mounted btrfs uses all of its devices, but the mount table names one.
bool spread_btrfs(Machine &machine, Points &points) {
    constexpr const char *kBtrfs = "/sys/fs/btrfs";
    ReadFailures failures;
    const Folder all(kBtrfs, &failures);
    for (const std::string &id : all.names()) {
        std::vector<Thing *> devices;
        std::vector<std::string> places;
        for (const std::string &name : all.names((id + "/devices").c_str())) {
            Thing *device = machine.find(name);
            if (device == nullptr) continue;
            devices.push_back(device);
            const auto known = points.find(device);
            if (known != points.end()) places.insert(places.end(), known->second.begin(), known->second.end());
        }
        for (Thing *device : devices) {
            for (const std::string &place : places) add(points, device, place.c_str());
        }
    }
    const bool is_whole = failures.empty();
    tell_failures(machine, kBtrfs, failures);
    return is_whole;
}

} // namespace

bool tell_mounts(Machine &machine) {
    const Things things(machine);
    Points points;
    const MountLibrary *library = mount_library();
    if (library == nullptr) {
        const char *words = dlerror();
        machine.troubles.push_back({kMounts, "", words == nullptr ? kNoLibrary : words, "", true});
        return false;
    }
    const bool has_mounts = read_mounts(*library, things, points);
    if (!has_mounts) note_failure(machine, kMounts, "mount /proc");
    const bool has_swaps = read_swaps(*library, things, points);
    if (!has_swaps) note_failure(machine, kSwaps, "");
    const bool has_btrfs = spread_btrfs(machine, points);
    for (auto &[thing, places] : points) thing->tell("mount_points", places, Source::kMounts, kMounts);
    return has_mounts && has_swaps && has_btrfs;
}

} // namespace inventory
