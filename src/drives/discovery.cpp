#include "drives/partition_table.h"
#include "drives/record.h"
#include "foundation/errors.h"

using namespace torvane;

namespace {

bool has(DriveOptions options, DriveOptions option) noexcept { return (options & option) != 0; }

// Sources that yield drives without being given a name.
constexpr DriveOptions kSources = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_USB | DRIVE_OPTION_OPTICAL;

// A name array of the library's own.
struct OwnNames {
    char **names = nullptr;
    uint32_t count = 0;

    OwnNames() = default;
    OwnNames(const OwnNames &) = delete;
    OwnNames &operator=(const OwnNames &) = delete;
    ~OwnNames() { release_drive_names(names, count); }
};

// What tools and the system's own files say about RAID, for the length of one discovery.
struct RaidView {
    RaidController *controllers = nullptr;
    uint32_t count = 0;
    OwnNames arrays;

    RaidView() = default;
    RaidView(const RaidView &) = delete;
    RaidView &operator=(const RaidView &) = delete;
    ~RaidView() { destroy_raids(controllers, static_cast<int>(count)); }

    bool load() noexcept {
        return get_raids(&controllers, &count) == 0 && get_sw_raid_names(&arrays.names, &arrays.count) == 0;
    }
};

int add_named_drive(DriveList *list, DriveOptions options, const char *name, const RaidView &raid,
                    const PartitionTable *table) noexcept {
    const bool with_raid = has(options, DRIVE_OPTION_RAID);
    if (with_raid) {
        const int members = resolve_to_raid(name, list, raid.controllers, raid.count);
        if (members != 0) return members < 0 ? -1 : 0;
    }
    if (create_drive_with(list, name, options, table) != 0) return -1;
    if (with_raid) resolve_to_special(list->drives[list->count - 1], raid.arrays.names, raid.arrays.count);
    return 0;
}

// The order of the sources is part of the interface: records without a name come only after all those that
// are compared by name.
int add_all(DriveList *list, DriveOptions options, const char *const *names, uint32_t count,
            const PartitionTable *table) noexcept {
    RaidView raid;
    if (has(options, DRIVE_OPTION_RAID) && !raid.load()) return -1;
    for (uint32_t i = 0; i < count; ++i) {
        if (add_named_drive(list, options, names[i], raid, table) != 0) return -1;
    }
    if (has(options, DRIVE_OPTION_SYSTEM) && has(options, DRIVE_OPTION_RAID) &&
        add_all_raid_drives(list, raid.controllers, raid.count) != 0) {
        return -1;
    }
    if (has(options, DRIVE_OPTION_USB) && add_removable_media(list, has(options, DRIVE_OPTION_SYSTEM) ? 1 : 0) != 0) {
        return -1;
    }
    if (has(options, DRIVE_OPTION_OPTICAL) && add_all_optical_drives(list, options) != 0) return -1;
    return 0;
}

int collect_drives(DriveList *list, DriveOptions options, const char *const *names, uint32_t count,
                   const PartitionTable *table) noexcept {
    *list = DriveList{};
    if (names == nullptr && count > 0) return fail(kDriveList, "no drive names specified");
    if (count == 0 && !has(options, kSources)) return fail(kDriveList, "no drive names specified");
    if (add_all(list, options, names, count, table) == 0) return 0;
    release_drives(list);
    list->count = 0;
    return -1;
}

// One reading of /proc/partitions for the names and for all drives' partitions.
class Snapshot {
  public:
    explicit Snapshot(DriveOptions options, uint32_t count) noexcept {
        const bool wanted = has(options, DRIVE_OPTION_SYSTEM) || (has(options, DRIVE_OPTION_GEOMETRY) && count > 1);
        loaded_ = wanted && table_.load();
    }
    int read_names(OwnNames &names) noexcept {
        return loaded_ ? table_.read_names(&names.names, &names.count)
                       : read_drive_names_on_system(&names.names, &names.count);
    }
    // Null where each drive has to read the file for itself.
    const PartitionTable *partitions() noexcept { return loaded_ && table_.index() ? &table_ : nullptr; }

  private:
    PartitionTable table_;
    bool loaded_ = false;
};

} // namespace

int get_drives(DriveList *list, DriveOptions options, const char *const *names, uint32_t count) noexcept {
    if (list == nullptr) return fail(kDriveList, "no drive list (NULL)");
    if (options < 1) return fail(kDriveList, "no options specified");
    Snapshot snapshot(options, count);
    OwnNames merged;
    if (has(options, DRIVE_OPTION_SYSTEM) && snapshot.read_names(merged) != 0) return -1;
    if (add_names_to_list(&merged.names, &merged.count, names, count) != 0) return -1;
    return collect_drives(list, options, merged.names, merged.count, snapshot.partitions());
}

int get_drives_from_names(DriveList *list, DriveOptions options, const char *const *names, uint32_t count) noexcept {
    if (list == nullptr) return fail(kDriveList, "no drive list (NULL)");
    Snapshot snapshot(options, count);
    return collect_drives(list, options, names, count, snapshot.partitions());
}
