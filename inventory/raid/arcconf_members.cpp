// Which drive belongs to which logical drive: by the serial number that a segment names, else by its place. Nothing
// else ties them: an index, a model or a state proves nothing.
#include "inventory/raid/arcconf.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>

namespace inventory::raid::arcconf {
namespace {

std::string spell(const Place &place) {
    constexpr std::array<const char *, 4> kKinds{"", "channel", "enclosure", "connector"};
    return kKinds[static_cast<std::size_t>(place.kind)] + (" " + place.first) + "," + place.second;
}

bool share_a_word(const std::string &left, const std::string &right) {
    const std::string padded = " " + right + " ";
    for (std::size_t start = 0; start <= left.size();) {
        const std::size_t end = std::min(left.find(' ', start), left.size());
        if (end > start && padded.find(" " + left.substr(start, end - start) + " ") != std::string::npos) return true;
        start = end + 1;
    }
    return false;
}

struct StateRole {
    std::string_view word;
    Role role;
};
// The first that the state holds decides.
constexpr std::array<StateRole, 10> kStateRoles{{
    {"not ready", Role::kUnknown},
    {"spare", Role::kSpare},
    {"jbod", Role::kJbod},
    {"pass through", Role::kJbod},
    {"raw", Role::kJbod},
    {"missing", Role::kMissing},
    {"failed", Role::kFailed},
    {"defunct", Role::kFailed},
    {"ready", Role::kUnassigned},
    {"unassigned", Role::kUnassigned},
}};

Role role_in(std::string_view words) {
    const auto *const found = std::find_if(kStateRoles.begin(), kStateRoles.end(),
                                           [&](const StateRole &known) { return holds(words, known.word); });
    return found == kStateRoles.end() ? Role::kUnknown : found->role;
}

// "Online" alone is no proof of anything: caches are Online and in no logical drive.
Role own_role(const Drive &drive) {
    if (drive.is_gone()) return Role::kMissing;
    const Role by_state = role_in(drive.state);
    const bool handed_through = same_word(drive.configuration, "hba");
    if (handed_through && by_state != Role::kSpare && by_state != Role::kFailed) return Role::kJbod;
    return by_state == Role::kUnknown ? role_in(drive.configuration) : by_state;
}

class Ties {
  public:
    Ties(Page &page, Config &config) : page_(page), config_(config) {
        for (std::size_t i = 0; i < config.drives.size(); ++i) {
            const Drive &drive = config.drives[i];
            if (!drive.serial.empty()) by_serial_.emplace(drive.serial, i);
            by_place_.emplace(spell(drive.location), i);
            by_place_.emplace(spell(drive.channel_place), i);
            for (const std::string &array : drive.arrays) in_array_.emplace(array, i);
            roles_.push_back(own_role(drive));
            tied_.push_back(false);
        }
    }

    void tie_segments(Volume &volume);
    void tie_arrays();
    void tie_gone();
    void tie_spares();
    void set_roles();

  private:
    [[nodiscard]] std::vector<std::size_t> at(const Place &place) const;
    [[nodiscard]] std::optional<std::size_t> with_serial_of(const Segment &segment) const;
    std::optional<std::size_t> find(const Segment &segment);
    std::optional<std::size_t> new_drive(const Volume &volume, const Segment &segment);
    std::size_t make_drive(const Segment &segment);
    [[nodiscard]] std::size_t unnamed_in_array(const Volume &volume,
                                               const std::vector<const Segment *> &unmatched) const;
    void tie_array(Volume &volume, const Volume *array);
    void add(Volume &volume, std::size_t drive);

    Page &page_;
    Config &config_;
    std::unordered_multimap<std::string, std::size_t> by_serial_;
    std::unordered_multimap<std::string, std::size_t> by_place_;
    std::multimap<std::string, std::size_t> in_array_; // in the order of the reply
    std::vector<Role> roles_;
    std::vector<bool> tied_;
    std::unordered_map<std::string, std::size_t> nameless_; // made of a bare "Missing"; of array and segment
};

std::vector<std::size_t> Ties::at(const Place &place) const {
    std::vector<std::size_t> found;
    if (place.kind == Place::Kind::kNone) return found;
    const auto [first, last] = by_place_.equal_range(spell(place));
    for (auto entry = first; entry != last && found.size() < kMostDrives; ++entry) found.push_back(entry->second);
    if (found.size() < 2 || place.connectors.empty()) return found;
    // Enclosures of different connectors may have the same number.
    std::erase_if(found, [&](std::size_t i) {
        const std::string &connectors = config_.drives[i].location.connectors;
        return !connectors.empty() && !share_a_word(place.connectors, connectors);
    });
    return found;
}

std::optional<std::size_t> Ties::with_serial_of(const Segment &segment) const {
    const auto [first, last] = by_serial_.equal_range(segment.serial);
    if (first == last) return std::nullopt;
    if (std::next(first) == last) return first->second;
    // Drives without a number of their own all answer the same one.
    for (const std::size_t i : at(segment.place)) {
        if (config_.drives[i].serial == segment.serial) return i;
    }
    return std::nullopt;
}

std::optional<std::size_t> Ties::find(const Segment &segment) {
    if (!segment.serial.empty()) {
        if (const auto drive = with_serial_of(segment)) return drive;
    }
    std::vector<std::size_t> there = at(segment.place);
    // Another drive may have been put where the logical drive misses one.
    std::erase_if(there, [&](std::size_t i) {
        const bool another = !segment.serial.empty() && !config_.drives[i].serial.empty();
        const bool works = roles_[i] != Role::kMissing && roles_[i] != Role::kFailed;
        return another || (segment.is_gone() && works);
    });
    if (there.size() == 1) return there.front();
    if (there.size() > 1) page_.note(segment.line, segment.name + ": several drives are at its place");
    return std::nullopt;
}

// Of a drive that only the segment names, nothing else is told.
std::size_t Ties::make_drive(const Segment &segment) {
    Drive drive;
    drive.line = segment.line;
    drive.what = Drive::What::kDisk;
    drive.only_in_a_segment = true;
    drive.state = segment.word;
    drive.device_id = number_after(segment.name, "device").value_or("");
    drive.serial = segment.serial;
    drive.interface = segment.interface;
    drive.media = segment.media;
    const std::size_t index = config_.drives.size();
    // A drive that works may sit there by now.
    if (at(segment.place).empty()) {
        (segment.place.kind == Place::Kind::kChannel ? drive.channel_place : drive.location) = segment.place;
        by_place_.emplace(spell(segment.place), index);
    }
    if (!drive.serial.empty()) by_serial_.emplace(drive.serial, index);
    if (!segment.is_gone() && config_.drives_told && config_.complete) {
        page_.note(segment.line, segment.name + ": the list of drives does not have this drive");
    }
    config_.drives.push_back(std::move(drive));
    roles_.push_back(segment.is_gone() ? Role::kMissing : Role::kUnknown);
    tied_.push_back(false);
    return index;
}

std::optional<std::size_t> Ties::new_drive(const Volume &volume, const Segment &segment) {
    if (config_.drives.size() >= 2 * kMostDrives) return std::nullopt;
    const bool nameless = segment.serial.empty() && segment.place.kind == Place::Kind::kNone;
    if (!nameless) return make_drive(segment);
    // Logical drives of one array miss the same drive.
    const std::string owner = volume.array.empty() ? "logical " + volume.number : "array " + volume.array;
    const auto [entry, is_new] = nameless_.emplace(owner + "/" + segment.name, config_.drives.size());
    return is_new ? make_drive(segment) : entry->second;
}

void Ties::add(Volume &volume, std::size_t drive) {
    // A spare that stands in for a failed drive changes its state: one that still says spare waits.
    const bool waits = roles_[drive] == Role::kSpare;
    (waits ? volume.spares : volume.members).push_back(drive);
    if (!waits) tied_[drive] = true;
}

// Drives of the volume's array without serial number, to which a segment may belong that names its place in another
// way than the drive does.
std::size_t Ties::unnamed_in_array(const Volume &volume, const std::vector<const Segment *> &unmatched) const {
    std::size_t unnamed = 0;
    const auto [first, last] = in_array_.equal_range(volume.array);
    for (auto entry = first; entry != last; ++entry) {
        const Drive &drive = config_.drives[entry->second];
        const bool open = drive.serial.empty() && !tied_[entry->second] && roles_[entry->second] != Role::kSpare;
        const bool fits = std::any_of(unmatched.begin(), unmatched.end(), [&](const Segment *segment) {
            return segment->place.kind != drive.location.kind;
        });
        if (open && fits) ++unnamed;
    }
    return unnamed;
}

void Ties::tie_segments(Volume &volume) {
    std::vector<const Segment *> unmatched;
    for (const Segment &segment : volume.segments) {
        const auto drive = find(segment);
        if (drive) add(volume, *drive);
        if (!drive) unmatched.push_back(&segment);
    }
    const auto by_connector = [](const Segment *segment) { return segment->place.kind == Place::Kind::kConnector; };
    const auto candidates = std::count_if(unmatched.begin(), unmatched.end(), by_connector);
    // As many as there are drives for: these are told already, and the array makes them members.
    const bool told = static_cast<std::size_t>(candidates) <= unnamed_in_array(volume, unmatched);
    for (const Segment *segment : unmatched) {
        if (told && by_connector(segment)) continue;
        if (const auto drive = new_drive(volume, *segment)) add(volume, *drive);
    }
    volume.members_known = !volume.members.empty();
}

void Ties::tie_array(Volume &volume, const Volume *array) {
    if (volume.segments.empty() && array) {
        volume.segments = array->segments;
        tie_segments(volume);
    }
    const auto [first, last] = in_array_.equal_range(volume.array);
    for (auto entry = first; entry != last; ++entry) add(volume, entry->second);
    volume.members_known = !volume.members.empty();
}

// Where drives and logical drives name their array, that tells members which no segment does.
void Ties::tie_arrays() {
    std::unordered_map<std::string, const Volume *> arrays;
    for (const Volume &volume : config_.volumes) {
        if (volume.is_array) arrays.emplace(volume.number, &volume);
    }
    for (Volume &volume : config_.volumes) {
        if (volume.is_array || volume.is_cache || volume.array.empty()) continue;
        const auto array = arrays.find(volume.array);
        tie_array(volume, array == arrays.end() ? nullptr : array->second);
    }
}

// A drive that is gone can stay in the list without anything that a bare "Missing" could be held against. As many
// gone drives as one logical drive misses are these.
void Ties::tie_gone() {
    std::vector<std::size_t> gone;
    for (std::size_t i = 0; i < config_.drives.size(); ++i) {
        if (config_.drives[i].is_gone() && !tied_[i]) gone.push_back(i);
    }
    std::vector<bool> nameless(config_.drives.size(), false);
    for (const auto &[segment, drive] : nameless_) nameless[drive] = true;
    const auto is_nameless = [&](std::size_t i) { return nameless[i]; };
    if (gone.empty() || gone.size() != nameless_.size()) return;
    const auto misses_all = [&](const Volume &volume) {
        return static_cast<std::size_t>(std::count_if(volume.members.begin(), volume.members.end(), is_nameless)) ==
               gone.size();
    };
    if (std::none_of(config_.volumes.begin(), config_.volumes.end(), misses_all)) return;
    for (Volume &volume : config_.volumes) {
        std::size_t next = 0;
        for (std::size_t &member : volume.members) {
            if (!is_nameless(member)) continue;
            config_.drives[member].what = Drive::What::kOther;
            member = gone[next++ % gone.size()];
            tied_[member] = true;
        }
    }
}

void Ties::tie_spares() {
    const auto add_spare = [&](Volume &volume, std::size_t drive) {
        if (roles_[drive] == Role::kUnknown && !tied_[drive]) roles_[drive] = Role::kSpare;
        volume.spares.push_back(drive);
    };
    std::unordered_map<std::string, std::vector<std::size_t>> dedicated;
    for (std::size_t i = 0; i < config_.drives.size(); ++i) {
        for (const std::string &logical : config_.drives[i].spare_for) dedicated[logical].push_back(i);
    }
    for (Volume &volume : config_.volumes) {
        for (const Segment &line : volume.spare_lines) {
            const std::vector<std::size_t> there = at(line.place);
            if (there.size() == 1) {
                add_spare(volume, there.front());
            } else if (config_.drives_told && config_.complete) {
                page_.note(line.line, "the list of drives does not have this spare");
            }
        }
        if (volume.is_array || volume.is_cache) continue;
        for (const std::size_t drive : dedicated[volume.number]) add_spare(volume, drive);
    }
}

void Ties::set_roles() {
    for (std::size_t i = 0; i < config_.drives.size(); ++i) {
        const bool is_member = tied_[i] && roles_[i] != Role::kMissing;
        config_.drives[i].role = is_member ? Role::kMember : roles_[i];
    }
}

} // namespace

void tie_drives(Page &page, Config &config) {
    Ties ties(page, config);
    for (Volume &volume : config.volumes) {
        if (!volume.is_array) ties.tie_segments(volume);
    }
    ties.tie_arrays();
    ties.tie_gone();
    ties.tie_spares();
    ties.set_roles();
    if (!config.volumes.empty() && config.cut_in_a_volume) config.volumes.back().members_known = false;
}

} // namespace inventory::raid::arcconf
