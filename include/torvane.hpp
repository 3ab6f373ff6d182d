/* torvane for C++17: owners, ranges and results as values over torvane.h. Header only; link libtorvane.
 *
 *   const auto drives = torvane::drives();
 *   if (!drives) return report(drives.error().text);
 *   for (const DriveRecord &drive : *drives) use(torvane::text(drive.serial));
 *
 * What a record leads to lives as long as the owner that it came from. The contract of torvane.h holds: no
 * threads, and what each reader needs. Nothing here throws but what allocating throws.
 */
#ifndef TORVANE_HPP
#define TORVANE_HPP

#include "torvane.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace torvane {

/* ---- Results ------------------------------------------------------------------------------------- */

enum class Category : uint32_t {
    geometry = TORVANE_ERROR_GEOMETRY,
    identity = TORVANE_ERROR_IDENTITY,
    defects = TORVANE_ERROR_DEFECTS,
    sysfs = TORVANE_ERROR_SYSFS,
    state = TORVANE_ERROR_STATE,
    raid = TORVANE_ERROR_RAID,
    drive_list = TORVANE_ERROR_DRIVE_LIST,
    device = TORVANE_ERROR_DEVICE,
    mount = TORVANE_ERROR_MOUNT
};

/* A failed call: its result, and the words that it left in its category. */
struct Error {
    int result = -1;
    Category category = Category::drive_list;
    std::string text;
};

/* The error that a call has just left. */
inline Error last_error(Category category, int result = -1) {
    const char *words = get_error_str(static_cast<uint32_t>(category));
    return {result, category, words != nullptr ? words : ""};
}

/* A value, or the error in its place. Looking at the one that is not there is undefined, as with pointers. */
template <class Value> class Result {
  public:
    Result(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : held_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const noexcept { return held_.index() == 0; }
    Value &operator*() noexcept { return *std::get_if<0>(&held_); }
    const Value &operator*() const noexcept { return *std::get_if<0>(&held_); }
    Value *operator->() noexcept { return std::get_if<0>(&held_); }
    const Value *operator->() const noexcept { return std::get_if<0>(&held_); }
    const Error &error() const noexcept { return *std::get_if<1>(&held_); }

  private:
    std::variant<Value, Error> held_;
};

/* Whether a composite result, or a result field of a DriveRecord, says that a piece failed
 * (TORVANE_GEOMETRY_START and its like). All of them did when the device could not be opened. */
template <class Integer> bool failed(Integer result, int piece) noexcept {
    const auto sum = static_cast<int32_t>(result);
    return sum == TORVANE_NOT_OPENED || (sum < 0 && has_error(sum, piece) != 0);
}

/* A text of a record; empty for null. */
inline std::string_view text(const char *words) noexcept { return words != nullptr ? words : std::string_view(); }

/* ---- Ranges -------------------------------------------------------------------------------------- */

/* A counted array of records. */
template <class Record> class Range {
  public:
    Range(Record *first, size_t count) noexcept : first_(first), count_(first != nullptr ? count : 0) {}
    Record *begin() const noexcept { return first_; }
    Record *end() const noexcept { return first_ + count_; }
    size_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    Record &operator[](size_t index) const noexcept { return first_[index]; }

  private:
    Record *first_;
    size_t count_;
};

inline Range<const PartitionRecord> partitions(const DriveRecord &drive) noexcept {
    return {drive.partitions.entries, drive.partitions.count};
}
inline Range<const ScsiDeviceInfo> devices(const MediaRecord &media) noexcept {
    return {media.devices.devices, media.devices.count};
}
inline Range<const RaidDriveGroup> groups(const RaidController &controller) noexcept {
    return {controller.groups, controller.group_count};
}
/* The member drives of a group, and the drives of a controller that belong to no group. */
inline Range<const RaidDrive> drives(const RaidDriveGroup &group) noexcept { return {group.drives, group.drive_count}; }
inline Range<const RaidDrive> drives(const RaidController &controller) noexcept {
    return {controller.drives, controller.drive_count};
}

/* ---- Owners -------------------------------------------------------------------------------------- */

namespace detail {
template <auto Function> struct Calls {
    template <class Type> void operator()(Type *pointer) const noexcept { Function(pointer); }
};
struct Free {
    void operator()(char *string) const noexcept { std::free(string); }
};
} // namespace detail

using String = std::unique_ptr<char, detail::Free>;
using Drive = std::unique_ptr<DriveRecord, detail::Calls<&release_drive>>;
using Media = std::unique_ptr<MediaRecord, detail::Calls<&release_media>>;
using Monitor = std::unique_ptr<FileMonitor, detail::Calls<&release_monitor>>;
using Event = std::unique_ptr<inotify_event, detail::Calls<&release_event>>;

/* The records of a DriveList; empty slots are passed over. */
class Drives {
  public:
    class iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = DriveRecord;
        using difference_type = std::ptrdiff_t;
        using pointer = const DriveRecord *;
        using reference = const DriveRecord &;

        iterator() = default;
        iterator(DriveRecord *const *place, DriveRecord *const *end) noexcept : place_(place), end_(end) { settle(); }
        reference operator*() const noexcept { return **place_; }
        pointer operator->() const noexcept { return *place_; }
        iterator &operator++() noexcept {
            ++place_;
            settle();
            return *this;
        }
        iterator operator++(int) noexcept {
            const iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(iterator a, iterator b) noexcept { return a.place_ == b.place_; }
        friend bool operator!=(iterator a, iterator b) noexcept { return a.place_ != b.place_; }

      private:
        void settle() noexcept {
            while (place_ != end_ && *place_ == nullptr) ++place_;
        }
        DriveRecord *const *place_ = nullptr;
        DriveRecord *const *end_ = nullptr;
    };

    Drives() = default;
    Drives(Drives &&other) noexcept : list_(std::exchange(other.list_, DriveList{})) {}
    Drives &operator=(Drives &&other) noexcept {
        std::swap(list_, other.list_);
        return *this;
    }
    ~Drives() { release_drives(&list_); }

    iterator begin() const noexcept { return {list_.drives, stop()}; }
    iterator end() const noexcept { return {stop(), stop()}; }
    bool empty() const noexcept { return begin() == end(); }
    size_t size() const noexcept { return static_cast<size_t>(std::distance(begin(), end())); }
    DriveList *list() noexcept { return &list_; } /* for the functions of torvane.h */

  private:
    DriveRecord *const *stop() const noexcept { return list_.drives != nullptr ? list_.drives + list_.count : nullptr; }

    DriveList list_{};
};

/* The RAID controllers of a machine. */
class Raids {
  public:
    Raids() = default;
    Raids(Raids &&other) noexcept
        : list_(std::exchange(other.list_, nullptr)), count_(std::exchange(other.count_, 0U)) {}
    Raids &operator=(Raids &&other) noexcept {
        std::swap(list_, other.list_);
        std::swap(count_, other.count_);
        return *this;
    }
    ~Raids() { destroy_raids(list_, static_cast<int>(count_)); }

    const RaidController *begin() const noexcept { return list_; }
    const RaidController *end() const noexcept { return list_ != nullptr ? list_ + count_ : nullptr; }
    size_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }

  private:
    friend Result<Raids> raids();
    RaidController *list_ = nullptr;
    uint32_t count_ = 0;
};

/* USB mass-storage interfaces. */
class Interfaces {
  public:
    Interfaces() = default;
    Interfaces(Interfaces &&other) noexcept : list_(std::exchange(other.list_, MediaList{})) {}
    Interfaces &operator=(Interfaces &&other) noexcept {
        std::swap(list_, other.list_);
        return *this;
    }
    ~Interfaces() { release_media_list(&list_); }

    const MediaRecord *begin() const noexcept { return list_.media; }
    const MediaRecord *end() const noexcept { return list_.media != nullptr ? list_.media + list_.count : nullptr; }
    size_t size() const noexcept { return list_.count; }
    bool empty() const noexcept { return list_.count == 0; }
    MediaList *list() noexcept { return &list_; } /* for the functions of torvane.h */

  private:
    MediaList list_{};
};

/* A USB drive's file systems, mounted below a directory of their own; unmounted and removed at the end. */
class TemporaryMount {
  public:
    explicit TemporaryMount(String directory) noexcept : directory_(std::move(directory)) {}
    TemporaryMount(TemporaryMount &&) noexcept = default;
    TemporaryMount &operator=(TemporaryMount &&other) noexcept {
        std::swap(directory_, other.directory_);
        return *this;
    }
    ~TemporaryMount() {
        if (directory_) remove_and_umount_in_temp_dir(directory_.get());
    }

    std::string_view directory() const noexcept { return text(directory_.get()); }

    /* Unmounts now, and tells whether that failed; the directory is then tried no more. */
    Result<std::monostate> unmount() {
        const String directory = std::move(directory_);
        const int result = directory ? remove_and_umount_in_temp_dir(directory.get()) : 0;
        if (result != 0) return last_error(Category::mount, result);
        return std::monostate{};
    }

  private:
    String directory_;
};

/* ---- Readers ------------------------------------------------------------------------------------- */

constexpr DriveOptions kEveryday = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY | DRIVE_OPTION_GEOMETRY;

/* get_drives(): what the options choose, and the drives with these device paths. */
inline Result<Drives> drives(DriveOptions options = kEveryday, const std::vector<std::string> &names = {}) {
    std::vector<const char *> paths;
    paths.reserve(names.size());
    for (const std::string &name : names) paths.push_back(name.c_str());
    Drives found;
    const int result = get_drives(found.list(), options, paths.data(), static_cast<uint32_t>(paths.size()));
    if (result != 0) return last_error(Category::drive_list, result);
    return found;
}

/* The drives whose serial number begins with the text. */
inline Result<Drives> drives_by_serial(const std::string &serial, DriveOptions options = kEveryday) {
    Drives found;
    const int result = get_drive_by_serial(found.list(), options | DRIVE_OPTION_IDENTITY, serial.c_str());
    if (result != 0) return last_error(Category::drive_list, result);
    return found;
}

/* get_raids(). */
inline Result<Raids> raids() {
    Raids found;
    const int result = get_raids(&found.list_, &found.count_);
    if (result != 0) return last_error(Category::raid, result);
    return found;
}

/* get_usb_mass_storage_devices(). */
inline Result<Interfaces> usb_storage() {
    Interfaces found;
    const int result = get_usb_mass_storage_devices(found.list());
    if (result != 0) return last_error(Category::device, result);
    return found;
}

/* create_and_mount_in_temp_dir(): read-only, by serial number. */
inline Result<TemporaryMount> mount(const std::string &serial) {
    char *directory = nullptr;
    const int result = create_and_mount_in_temp_dir(serial.c_str(), &directory);
    String owned(directory);
    if (result != 0) return last_error(Category::mount, result);
    return TemporaryMount(std::move(owned));
}

} // namespace torvane

#endif
