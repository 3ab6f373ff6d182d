#include "drives/open_disks.h"
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

// One call of get_drives() or get_drives_from_names().
class Discovery {
  public:
    Discovery(DriveList *list, DriveOptions options, bool has_system_disks) noexcept;

    // The system's whole disks, which then are the first names of run().
    int read_names(OwnNames &system) noexcept { return table_.read_names(&system.names, &system.count, disks_); }

    int run(const char *const *names, uint32_t count) noexcept;

  private:
    bool wants(DriveOptions option) const noexcept { return has(options_, option); }
    const PartitionTable *read_partitions(uint32_t count) noexcept;
    int add_named(const char *name, const PartitionTable *table, KnownDrive known) noexcept;
    int add_all(const char *const *names, uint32_t count) noexcept;
    int add_unnamed() noexcept;

    DriveList *list_;
    DriveOptions options_;
    bool has_system_disks_;
    OpenDisks disks_;
    PartitionTable table_;
    RaidView raid_;
};

// RAID tools may run for minutes and inherit what is open, so disks do not stay open while they run.
Discovery::Discovery(DriveList *list, DriveOptions options, bool has_system_disks) noexcept
    : list_(list), options_(options), has_system_disks_(has_system_disks),
      disks_(has_system_disks && has(options, kReaders) && !has(options, DRIVE_OPTION_RAID)) {}

// Null where each drive has to read the file for itself. What was read before the RAID tools ran is of another
// moment than the drives are.
const PartitionTable *Discovery::read_partitions(uint32_t count) noexcept {
    if (!wants(DRIVE_OPTION_GEOMETRY) || count == 0) return nullptr;
    const bool is_current = has_system_disks_ && !wants(DRIVE_OPTION_RAID);
    if (!is_current && (count == 1 || !table_.load())) return nullptr;
    return table_.index() ? &table_ : nullptr;
}

int Discovery::add_named(const char *name, const PartitionTable *table, KnownDrive known) noexcept {
    if (wants(DRIVE_OPTION_RAID)) {
        const int members = resolve_to_raid(name, list_, raid_.controllers, raid_.count);
        if (members != 0) return members < 0 ? -1 : 0;
    }
    if (create_drive_with(list_, name, options_, table, known) != 0) return -1;
    if (wants(DRIVE_OPTION_RAID)) {
        resolve_to_special(list_->drives[list_->count - 1], raid_.arrays.names, raid_.arrays.count);
    }
    return 0;
}

// The order of the sources is part of the interface: records without a name come only after all those that
// are compared by name.
int Discovery::add_all(const char *const *names, uint32_t count) noexcept {
    if (wants(DRIVE_OPTION_RAID)) {
        disks_.close();
        if (!raid_.load()) return -1;
    }
    const PartitionTable *table = read_partitions(count);
    for (uint32_t i = 0; i < count; ++i) {
        if (add_named(names[i], table, disks_.known(i)) != 0) return -1;
    }
    disks_.close();
    return add_unnamed();
}

int Discovery::add_unnamed() noexcept {
    const bool all = wants(DRIVE_OPTION_SYSTEM);
    if (all && wants(DRIVE_OPTION_RAID) && add_all_raid_drives(list_, raid_.controllers, raid_.count) != 0) return -1;
    if (wants(DRIVE_OPTION_USB) && add_removable_media(list_, all ? 1 : 0) != 0) return -1;
    return wants(DRIVE_OPTION_OPTICAL) ? add_all_optical_drives(list_, options_) : 0;
}

int Discovery::run(const char *const *names, uint32_t count) noexcept {
    *list_ = DriveList{};
    if (names == nullptr && count > 0) return fail(kDriveList, "no drive names specified");
    if (count == 0 && !wants(kSources)) return fail(kDriveList, "no drive names specified");
    if (add_all(names, count) == 0) return 0;
    release_drives(list_);
    list_->count = 0;
    return -1;
}

} // namespace

int get_drives(DriveList *list, DriveOptions options, const char *const *names, uint32_t count) noexcept {
    if (list == nullptr) return fail(kDriveList, "no drive list (NULL)");
    if (options < 1) return fail(kDriveList, "no options specified");
    const bool with_system = has(options, DRIVE_OPTION_SYSTEM);
    Discovery discovery(list, options, with_system);
    OwnNames merged;
    if (with_system && discovery.read_names(merged) != 0) return -1;
    if (add_names_to_list(&merged.names, &merged.count, names, count) != 0) return -1;
    return discovery.run(merged.names, merged.count);
}

int get_drives_from_names(DriveList *list, DriveOptions options, const char *const *names, uint32_t count) noexcept {
    if (list == nullptr) return fail(kDriveList, "no drive list (NULL)");
    return Discovery(list, options, false).run(names, count);
}
