#include "inventory/kernel/mounts.h"

#include "inventory/kernel/folder.h"

#include <libmount.h>
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

template <class Use> void for_each_line(libmnt_table *table, Use use) {
    const Iterator iterator(mnt_new_iter(MNT_ITER_FORWARD), mnt_free_iter);
    libmnt_fs *line = nullptr;
    while (iterator && mnt_table_next_fs(table, iterator.get(), &line) == 0) use(line);
}

void note_failure(Machine &machine, const char *path, const char *remedy) {
    const int error = errno;
    const std::string words = std::string("cannot be read: ") + std::strerror(error);
    machine.troubles.push_back({path, "", words, error == ENOENT ? remedy : "", true});
}

void read_mounts(Machine &machine, const Things &things, Points &points) {
    errno = 0;
    const Table table(mnt_new_table_from_file(kMounts), mnt_unref_table);
    if (!table) return note_failure(machine, kMounts, "mount /proc");
    for_each_line(table.get(), [&](libmnt_fs *line) {
        Thing *thing = things.with(mnt_fs_get_devno(line));
        // A file system over several devices (btrfs) has a number that is none of theirs.
        const char *source = mnt_fs_get_srcpath(line);
        if (thing == nullptr && source != nullptr) thing = things.at(source);
        add(points, thing, mnt_fs_get_target(line));
    });
}

void read_swaps(const Things &things, Points &points) {
    const Table table(mnt_new_table(), mnt_unref_table);
    // Without swap support there is no such file.
    if (!table || mnt_table_parse_swaps(table.get(), kSwaps) != 0) return;
    for_each_line(table.get(), [&](libmnt_fs *line) {
        const char *source = mnt_fs_get_srcpath(line);
        if (source != nullptr) add(points, things.at(source), kSwapSpace);
    });
}

// A mounted btrfs uses all of its devices, but the mount table names one.
void spread_btrfs(Machine &machine, Points &points) {
    const Folder all("/sys/fs/btrfs");
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
}

} // namespace

void tell_mounts(Machine &machine) {
    const Things things(machine);
    Points points;
    read_mounts(machine, things, points);
    read_swaps(things, points);
    spread_btrfs(machine, points);
    for (auto &[thing, places] : points) thing->tell("mount_points", places, Source::kMounts, kMounts);
}

} // namespace inventory
