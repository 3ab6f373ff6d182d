#include "inventory/kernel/kernel.h"

#include "inventory/kernel/block.h"
#include "inventory/kernel/members.h"
#include "inventory/kernel/mounts.h"
#include "inventory/kernel/uses.h"

#include <linux/major.h>

#include <algorithm>
#include <deque>
#include <unordered_set>

namespace inventory {
namespace {

constexpr const char *kClass = "/sys/class/block";

constexpr AttributeRow kEveryBlock[] = {
    {"size", "size", Reading::kSectors},
    {"start", "start", Reading::kNumber},
    {"read_only", "ro", Reading::kFlag},
};
constexpr AttributeRow kWhole[] = {
    {"sector", "queue/logical_block_size", Reading::kNumber},
    {"physical_sector", "queue/physical_block_size", Reading::kNumber},
    {"rotational", "queue/rotational", Reading::kFlag},
    {"removable", "removable", Reading::kFlag},
};
constexpr AttributeRow kDiskseq[] = {{"diskseq", "diskseq", Reading::kNumber}};
constexpr AttributeRow kPartition[] = {{"partn", "partition", Reading::kNumber}};

struct Numbers {
    unsigned major = 0;
    unsigned minor = 0;
};

struct Listed {
    Numbers numbers;
    std::uint64_t kibibytes = 0;
};
using Listing = std::unordered_map<std::string, Listed>;

std::string_view next_word(std::string_view &line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

// The kernel's list of everything that has a size: device numbers without a look into every folder.
Listing read_partitions(Machine &machine) {
    Listing listing;
    ReadFailures failures;
    const std::string table = Folder("/proc", &failures).table("partitions");
    tell_failures(machine, "/proc/partitions", failures);
    for (std::string_view lines = table; !lines.empty();) {
        std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        const auto major = parse_number(next_word(line));
        const auto minor = parse_number(next_word(line));
        const auto kibibytes = parse_number(next_word(line));
        const std::string_view name = next_word(line);
        if (!major || !minor || !kibibytes || name.empty()) continue; // the headings
        listing.emplace(name, Listed{{static_cast<unsigned>(*major), static_cast<unsigned>(*minor)}, *kibibytes});
    }
    return listing;
}

std::optional<Numbers> parse_numbers(const std::string &text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const auto major = parse_number(text.substr(0, colon));
    const auto minor = parse_number(text.substr(colon + 1));
    if (!major || !minor) return std::nullopt;
    return Numbers{static_cast<unsigned>(*major), static_cast<unsigned>(*minor)};
}

// Linux devices.txt.
const char *kind_of_major(unsigned number) {
    switch (number) {
    case IDE0_MAJOR:
    case IDE1_MAJOR:
    case IDE2_MAJOR:
    case IDE3_MAJOR:
    case IDE4_MAJOR:
    case IDE5_MAJOR: return "ide";
    case SCSI_DISK0_MAJOR:
    case SCSI_CDROM_MAJOR: return "scsi";
    default: break;
    }
    const bool is_more = (number >= SCSI_DISK1_MAJOR && number <= SCSI_DISK7_MAJOR) ||
                         (number >= SCSI_DISK8_MAJOR && number <= SCSI_DISK15_MAJOR);
    return is_more ? "scsi" : "other";
}

// A path to an NVMe namespace that the kernel gathers under another name: "nvme0c1n1".
bool is_hidden_path(std::string_view name) {
    return name.starts_with("nvme") && name.find('c') != std::string_view::npos;
}

// Of a driver that is unknown here, with no hardware below it.
constexpr NameRow kStranger{"", ThingKind::kVirtual, "unknown", "", "virtual"};

class KernelReader {
  public:
    KernelReader(Machine &machine, const KernelRequest &request)
        : machine_(machine), request_(request), wanted_(request.keys) {}

    std::vector<Thing *> read() {
        listing_ = read_partitions(machine_);
        const std::vector<std::string> all = names();
        tell_failures(machine_, kClass, failures_);
        for (const std::string &name : all) {
            read_device(name);
            take_failures(machine_.find(name), name);
        }
        for (const Block &block : compounds_) {
            tell_members(machine_, block);
            take_failures(block.thing, block.name);
        }
        if (wanted_.uses()) {
            if (!tell_mounts(machine_) || !knows_all_) examined_.clear();
            conclude_uses(machine_, examined_);
        }
        return std::move(put_off_);
    }

    bool read_put_off(Thing &drive);

  private:
    [[nodiscard]] std::vector<std::string> names() const;
    void read_device(const std::string &name);
    bool place_in_machine(Block &block);
    void tell_numbers(const Block &block, const Numbers &numbers);
    void tell_kind(Block &block);
    void tell_all(Block &block);
    void tell_listed(const std::string &name, const Listed &listed);
    // A device whose examination failed may hold what nobody knows of.
    void take_failures(Thing *thing, const std::string &name) {
        if (failures_.empty()) return;
        if (thing == nullptr) {
            knows_all_ = false;
            return tell_failures(machine_, name, failures_);
        }
        examined_.erase(thing);
        tell_failures(*thing, failures_);
    }
    void tell_measures(const Block &block);
    void tell_database(Thing &thing, const Numbers &numbers, const Folder &folder);
    [[nodiscard]] bool is_about(const Entry &entry, const Thing &thing, const Folder &folder) const;
    [[nodiscard]] bool is_put_off(const Block &block) const;
    [[nodiscard]] bool is_of_another(const Block &block, const std::string &link) const;
    void put_off(Block &block, const Numbers &numbers);

    Machine &machine_;
    const KernelRequest &request_;
    Wanted wanted_;
    Listing listing_;
    ReadFailures failures_;
    bool knows_all_ = true; // what cannot be placed may be a part of anything
    Folder class_{kClass, &failures_};
    Database database_{&failures_};
    Hosts hosts_{&failures_};
    Examined examined_;
    std::vector<Thing *> put_off_;
    std::unordered_map<std::string, std::string> links_; // where whole disks are in /sys, by name
    std::deque<Block> compounds_;                        // arrays and mapped devices: their members may come later
};

std::vector<std::string> KernelReader::names() const {
    std::vector<std::string> names = class_.names();
    for (std::string &name : names) std::replace(name.begin(), name.end(), '!', '/');
    const auto is_listed = [this](const std::string &name) { return listing_.contains(name); };
    // Mostly /sys has all that is listed.
    if (static_cast<std::size_t>(std::count_if(names.begin(), names.end(), is_listed)) < listing_.size()) {
        const std::unordered_set<std::string> known(names.begin(), names.end());
        for (const auto &[name, listed] : listing_) {
            if (!known.contains(name)) names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end(), natural_less);
    return names;
}

// Makes the thing; false for what is not to be shown.
bool KernelReader::place_in_machine(Block &block) {
    std::string above = block.place.parent;
    std::replace(above.begin(), above.end(), '!', '/');
    Thing *parent = machine_.find(above);
    const bool is_part = parent != nullptr || (above != "block" && block.folder.has("partition"));
    if (is_part && parent == nullptr) return false; // of something that is not shown
    ThingKind kind = is_part ? ThingKind::kPartition : block.row->kind;
    if (kind == ThingKind::kVirtual && (!request_.all || block.folder.number("size").value_or(0) == 0)) return false;
    if (!is_part && block.row->pattern.empty() && block.place.virtual_device) {
        kind = ThingKind::kVirtual;
        block.row = &kStranger;
    }
    block.thing = &machine_.add(kind, block.name);
    if (is_part) Machine::relate(*block.thing, RelationKind::kPartOf, *parent);
    return true;
}

void KernelReader::tell_numbers(const Block &block, const Numbers &numbers) {
    Thing &thing = *block.thing;
    thing.tell("maj_min", std::to_string(numbers.major) + ":" + std::to_string(numbers.minor), Source::kKernel, "dev");
    if (thing.kind() != ThingKind::kPartition) {
        thing.tell("kind", std::string(kind_of_major(numbers.major)), Source::kKernel, "dev");
    }
}

// A disk that was just plugged in has the number of one that is gone, and the device manager may not have come to it:
// its entry is then about the other. The kernel numbers disks through, and the entry has that number as a link. The
// folder is that of the disk whose facts are told: under its name there may be the next one by now.
bool KernelReader::is_about(const Entry &entry, const Thing &thing, const Folder &folder) const {
    constexpr std::string_view kLink = "disk/by-diskseq/";
    for (const std::string &link : entry.links()) {
        if (!link.starts_with(kLink)) continue;
        if (!folder.is_open()) return !class_.is_open();
        const auto noted = parse_number(link.substr(kLink.size(), link.find('-', kLink.size()) - kLink.size()));
        const auto now = folder.number(thing.kind() == ThingKind::kPartition ? "../diskseq" : "diskseq");
        return !noted || noted == now;
    }
    return true;
}

void KernelReader::tell_database(Thing &thing, const Numbers &numbers, const Folder &folder) {
    if (!wanted_.database() && !wanted_.uses()) return;
    const Entry entry = database_.entry(numbers.major, numbers.minor);
    if (entry.lines.empty() || !is_about(entry, thing, folder)) return;
    if (entry.known) examined_.insert(&thing);
    tell_entry(thing, entry);
}

void KernelReader::tell_kind(Block &block) {
    switch (block.thing->kind()) {
    case ThingKind::kPartition: {
        const char *area = mmc_area(block.name);
        block.thing->tell("type", std::string(*area == '\0' ? "part" : area), Source::kKernel, "partition");
        tell_attributes(*block.thing, block.folder, kPartition, wanted_);
        break;
    }
    case ThingKind::kArray: tell_array(block, wanted_); [[fallthrough]];
    case ThingKind::kVirtual:
        block.thing->tell("type", std::string(block.row->type), Source::kKernel, "name");
        block.thing->tell("media", std::string(block.row->media), Source::kKernel, "name");
        break;
    case ThingKind::kMapped: tell_mapped(block, wanted_); break;
    default:
        block.unit = Folder(block.folder, "device");
        tell_place(block, hosts_, wanted_);
        tell_hardware(block, wanted_);
        break;
    }
}

void KernelReader::tell_all(Block &block) {
    Thing &thing = *block.thing;
    thing.tell("name", "/dev/" + block.name, Source::kKernel, kClass);
    tell_kind(block);
    if (is_missing(thing.value("path"))) thing.tell("path", "/dev/" + block.name, Source::kKernel, kClass);
    tell_measures(block);
}

void KernelReader::tell_measures(const Block &block) {
    Thing &thing = *block.thing;
    tell_attributes(thing, block.folder, kEveryBlock, wanted_);
    if (thing.kind() == ThingKind::kPartition) return;
    tell_attributes(thing, block.folder, kWhole, wanted_);
    if (is_missing(thing.value("diskseq"))) tell_attributes(thing, block.folder, kDiskseq, wanted_);
    if (wanted_.has("start") && is_missing(thing.value("start")))
        thing.tell("start", std::uint64_t{0}, Source::kKernel, "size");
    if (!wanted_.has("blocks")) return;
    const auto size = thing.number("size");
    const auto sector = thing.number("sector");
    if (size && sector && *sector > 0) thing.tell("blocks", *size / *sector, Source::kKernel, "size");
}

// What a USB drive's interface is asked for goes by the drive's attributes.
bool KernelReader::is_put_off(const Block &block) const {
    const bool is_drive = block.row->kind == ThingKind::kDrive || block.row->kind == ThingKind::kOptical;
    return request_.puts_off && is_drive && block.place.parent == "block" && !block.place.scsi_address.empty() &&
           block.place.usb_interface.empty();
}

// What others are told by comes at once: name, place and, for those that use it, what lies on it.
void KernelReader::put_off(Block &block, const Numbers &numbers) {
    block.thing = &machine_.add(block.row->kind, block.name);
    for (const char *key : {"name", "path"}) {
        block.thing->tell(key, "/dev/" + block.name, Source::kKernel, kClass);
    }
    tell_place(block, hosts_, wanted_);
    tell_numbers(block, numbers);
    if (wanted_.uses()) {
        const Folder folder(class_, block.name);
        tell_attributes(*block.thing, folder, kDiskseq, wanted_);
        tell_database(*block.thing, numbers, folder);
    }
    put_off_.push_back(block.thing);
}

// Whether the name has come to belong to another drive since the first look. A disc that was changed is none.
bool is_another(const Block &block) {
    const Thing &drive = *block.thing;
    if (block.place.scsi_address != drive.text("hctl")) return true;
    const auto known = drive.kind() == ThingKind::kDrive ? drive.number("diskseq") : std::nullopt;
    const auto now = known ? block.folder.number("diskseq") : std::nullopt;
    return now && now != known;
}

bool KernelReader::read_put_off(Thing &drive) {
    const std::string link = class_.link(drive.id().c_str());
    Block block{drive.id(), Folder(class_, drive.id()), {}, place_of(link), &row_of_name(drive.id()), &drive};
    if (block.folder.is_open()) {
        if (is_another(block)) return false;
        block.unit = Folder(block.folder, "device");
        tell_hardware(block, wanted_);
        tell_measures(block);
    }
    const auto numbers = parse_numbers(drive.text("maj_min"));
    if (numbers && !wanted_.uses()) tell_database(drive, *numbers, block.folder);
    conclude_hardware(block, wanted_);
    tell_failures(drive, failures_);
    return true;
}

void KernelReader::tell_listed(const std::string &name, const Listed &listed) {
    constexpr std::uint64_t kKibibyte = 1024;
    const NameRow &row = row_of_name(name);
    if (row.kind == ThingKind::kVirtual && !request_.all) return;
    Block block{name, {}, {}, {}, &row, nullptr};
    std::string whole = name;
    while (!whole.empty() && whole.back() >= '0' && whole.back() <= '9') whole.pop_back();
    if (machine_.find(whole) == nullptr && whole.ends_with('p')) whole.pop_back();
    Thing *parent = whole == name ? nullptr : machine_.find(whole);
    block.thing = &machine_.add(parent == nullptr ? row.kind : ThingKind::kPartition, name);
    if (parent != nullptr) Machine::relate(*block.thing, RelationKind::kPartOf, *parent);
    Thing &thing = *block.thing;
    for (const char *key : {"name", "path"}) thing.tell(key, "/dev/" + name, Source::kKernel, "/proc/partitions");
    thing.tell("type", std::string(parent == nullptr ? row.type : "part"), Source::kKernel, "/proc/partitions");
    thing.tell("size", listed.kibibytes * kKibibyte, Source::kKernel, "/proc/partitions");
    const auto number = parse_number(name.substr(name.find_last_not_of("0123456789") + 1));
    if (parent != nullptr && number) thing.tell("partn", *number, Source::kKernel, "/proc/partitions");
    tell_numbers(block, listed.numbers);
    tell_database(thing, listed.numbers, block.folder);
}

// A partition of a disk that has come by the name of the one that is told of already.
bool KernelReader::is_of_another(const Block &block, const std::string &link) const {
    const auto whole = links_.find(block.place.parent);
    return whole != links_.end() && !link.starts_with(whole->second + "/");
}

void KernelReader::read_device(const std::string &name) {
    if (is_hidden_path(name)) return;
    std::string in_class = name;
    std::replace(in_class.begin(), in_class.end(), '/', '!');
    const std::string link = class_.link(in_class.c_str());
    const auto listed = listing_.find(name);
    Block block{name, {}, {}, place_of(link), &row_of_name(name), nullptr};
    if (block.place.parent == "block") links_[last_part(link)] = link;
    if (is_of_another(block, link)) return;
    if (listed != listing_.end() && is_put_off(block)) return put_off(block, listed->second.numbers);
    block.folder = Folder(class_, in_class);
    if (!block.folder.is_open()) {
        // It went away meanwhile, or /sys is kept from this process.
        if (listed != listing_.end()) tell_listed(name, listed->second);
        return;
    }
    if (!place_in_machine(block)) return;
    tell_all(block);
    const auto numbers = listed == listing_.end() ? parse_numbers(block.folder.text("dev"))
                                                  : std::optional<Numbers>(listed->second.numbers);
    if (numbers) {
        tell_numbers(block, *numbers);
        tell_database(*block.thing, *numbers, block.folder);
    }
    const ThingKind kind = block.thing->kind();
    if (kind == ThingKind::kDrive || kind == ThingKind::kOptical) conclude_hardware(block, wanted_);
    const bool is_stacked = kind == ThingKind::kArray || kind == ThingKind::kMapped || block.row == &kStranger;
    if (is_stacked) compounds_.push_back(std::move(block));
}

} // namespace

std::vector<Thing *> read_kernel(Machine &machine, const KernelRequest &request) {
    std::vector<Thing *> put_off = KernelReader(machine, request).read();
    settle(machine);
    return put_off;
}

struct KernelDetails::Reader {
    explicit Reader(const KernelRequest &request) : kernel(nobody, request) {}
    Machine nobody;
    KernelReader kernel;
};

KernelDetails::KernelDetails(const KernelRequest &request) : reader_(std::make_unique<Reader>(request)) {}
KernelDetails::~KernelDetails() = default;
bool KernelDetails::read(Thing &drive) { return reader_->kernel.read_put_off(drive); }

} // namespace inventory
