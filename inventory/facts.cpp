#include "inventory/facts.h"

#include <strings.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>

namespace inventory {
namespace {

constexpr unsigned kDisk = bit(ThingKind::kDrive);
constexpr unsigned kPart = bit(ThingKind::kPartition);
constexpr unsigned kMd = bit(ThingKind::kArray);
constexpr unsigned kDm = bit(ThingKind::kMapped);
constexpr unsigned kDisc = bit(ThingKind::kOptical);
constexpr unsigned kLoop = bit(ThingKind::kVirtual);
constexpr unsigned kUsb = bit(ThingKind::kUsbInterface);
constexpr unsigned kCard = bit(ThingKind::kController);
constexpr unsigned kLogical = bit(ThingKind::kLogical);
constexpr unsigned kMember = bit(ThingKind::kMember);
constexpr unsigned kBay = bit(ThingKind::kBay);
constexpr unsigned kHardware = kDisk | kDisc;
constexpr unsigned kBlock = kDisk | kPart | kMd | kDm | kDisc | kLoop;
constexpr unsigned kWhole = kBlock & ~kPart;
constexpr unsigned kRaid = kCard | kLogical | kMember;
constexpr unsigned kAll = kBlock | kRaid | kUsb | kBay;

// The kernel measures what it uses; a drive's own answer may be of before a resize.
constexpr Source kKernelFirst[kSources] = {Source::kKernel, Source::kDrive, Source::kIdentity, Source::kDatabase,
                                           Source::kMounts, Source::kTool,  Source::kDerived};
// SCSI's INQUIRY cuts models at 16 characters; the ATA identity and the database have all 40.
constexpr Source kModelOrder[kSources] = {Source::kIdentity, Source::kDatabase, Source::kDrive,  Source::kKernel,
                                          Source::kTool,     Source::kMounts,   Source::kDerived};

constexpr FactRow kFacts[] = {
    {"name", "NAME", Kind::kDevice, "", "kernel name, or the name that this tool gives", kAll, Cost::kKernel, "/sys"},
    {"path", "PATH", Kind::kText, "", "path of the device node", kBlock, Cost::kKernel, "/sys"},
    {"type", "TYPE", Kind::kText, "", "what it is", kAll, Cost::kKernel, "/sys", Compare::kIgnore,
     "disk part optical removable softraid raid-member iscsi adapter lvm crypt mpath dm loop zram nbd ram pmem boot "
     "rpmb "
     "controller logical member spare unassigned foreign jbod failed missing device bay unknown"},
    {"model", "MODEL", Kind::kText, "", "model", kHardware | kUsb | kCard | kMember | kMd, Cost::kKernel,
     "ATA identity, database, drive, /sys", Compare::kCut, "", kModelOrder},
    {"serial", "SERIAL", Kind::kText, "", "serial number", kHardware | kUsb | kCard | kMember, Cost::kKernel,
     "drive, VPD 80h, /sys, database"},
    {"size", "SIZE", Kind::kBytes, "bytes", "size", kBlock | kLogical | kMember, Cost::kKernel, "/sys, drive",
     Compare::kIgnore, "", kKernelFirst},
    {"sector", "SECTOR", Kind::kCount, "bytes", "bytes per logical block", kWhole | kMember, Cost::kKernel,
     "/sys, drive", Compare::kEqual, "", kKernelFirst},
    {"rpm", "RPM", Kind::kCount, "1/min", "rotations per minute; 0 does not rotate", kDisk, Cost::kKernel,
     "drive, VPD B1h, database"},
    {"tran", "TRAN", Kind::kText, "", "transport", kHardware | kMember, Cost::kKernel, "/sys", Compare::kIgnore,
     "sata sas usb uas nvme virtio mmc iscsi fc ide scsi xen raid pmem"},
    {"media", "MEDIA", Kind::kText, "", "what the data lies on", kWhole | kMember, Cost::kKernel, "drive, /sys",
     Compare::kIgnore, "hdd ssd flash optical virtual"},
    {"used_by", "USED-BY", Kind::kWords, "", "mounts, swap, arrays and volumes that use it, or what lies on it unused",
     kBlock, Cost::kKernel, "/proc, /sys, database", Compare::kIgnore},
    {"generic", "GENERIC", Kind::kDevice, "", "SCSI generic node", kHardware, Cost::kKernel, "/sys"},
    {"maj_min", "MAJ:MIN", Kind::kText, "", "device numbers", kBlock, Cost::kKernel, "/sys"},
    {"kind", "KIND", Kind::kText, "", "kind by major number", kWhole, Cost::kKernel, "/sys", Compare::kIgnore,
     "other ide scsi scsi-generic"},
    {"blocks", "BLOCKS", Kind::kCount, "logical blocks", "number of logical blocks", kWhole, Cost::kKernel,
     "/sys, drive", Compare::kIgnore, "", kKernelFirst},
    {"start", "START", Kind::kCount, "512-byte sectors", "start within the disk", kBlock, Cost::kKernel, "/sys"},
    {"partn", "PARTN", Kind::kCount, "", "the kernel's number of the partition", kPart, Cost::kKernel, "/sys"},
    {"wwn", "WWN", Kind::kText, "", "world-wide name: NAA, EUI-64 or UUID", kHardware | kMember | kLogical,
     Cost::kKernel, "VPD 83h, NVMe, database, tool", Compare::kEqual},
    {"firmware", "FIRMWARE", Kind::kText, "", "firmware revision", kHardware | kCard | kMember, Cost::kKernel,
     "ATA identity, /sys, database", Compare::kCut},
    {"vendor", "VENDOR", Kind::kText, "", "vendor as the drive names it", kHardware | kMember, Cost::kKernel, "/sys"},
    {"hctl", "HCTL", Kind::kText, "", "SCSI host:channel:target:unit", kHardware, Cost::kKernel, "/sys"},
    {"physical_sector", "PHY-SEC", Kind::kCount, "bytes", "bytes per physical block", kWhole, Cost::kKernel, "/sys"},
    {"read_only", "RO", Kind::kFlag, "", "cannot be written", kBlock, Cost::kKernel, "/sys"},
    {"removable", "RM", Kind::kFlag, "", "its medium can be taken out", kWhole, Cost::kKernel, "/sys"},
    {"rotational", "ROTA", Kind::kFlag, "", "rotates", kWhole, Cost::kKernel, "/sys"},
    {"device_state", "DEVICE-STATE", Kind::kText, "", "state that the kernel has it in: running, offline, live ...",
     kHardware, Cost::kKernel, "/sys"},
    {"fs_type", "FSTYPE", Kind::kText, "", "file system or other signature", kBlock, Cost::kKernel, "database, mounts"},
    {"fs_label", "FSLABEL", Kind::kText, "", "label of the file system", kBlock, Cost::kKernel, "database"},
    {"uuid", "UUID", Kind::kText, "", "UUID of the file system", kBlock, Cost::kKernel, "database"},
    {"pt_type", "PTTYPE", Kind::kText, "", "kind of the partition table", kBlock, Cost::kKernel, "database"},
    {"pt_uuid", "PTUUID", Kind::kText, "", "UUID of the partition table", kBlock, Cost::kKernel, "database"},
    {"part_type", "PARTTYPE", Kind::kText, "", "type of the partition", kPart, Cost::kKernel, "database"},
    {"part_uuid", "PARTUUID", Kind::kText, "", "UUID of the partition", kPart, Cost::kKernel, "database"},
    {"part_label", "PARTLABEL", Kind::kText, "", "name of the partition", kPart, Cost::kKernel, "database"},
    {"mount_points", "MOUNTPOINTS", Kind::kWords, "", "where it is mounted; [SWAP] for swap space", kBlock,
     Cost::kKernel, "mounts"},
    {"holders", "HOLDERS", Kind::kWords, "", "devices built on it", kBlock, Cost::kKernel, "/sys"},
    {"members", "MEMBERS", Kind::kWords, "", "devices or drives that it is made of", kMd | kDm | kLogical,
     Cost::kKernel, "/sys, tool", Compare::kIgnore},
    {"verdict", "VERDICT", Kind::kText, "", "free, or why it must not be pulled", kBlock | kMember, Cost::kKernel,
     "/proc, /sys, database", Compare::kIgnore,
     "mounted swap array lvm crypt mpath mapped loop zfs filesystem member partitioned unknown free"},
    {"dm_name", "DM-NAME", Kind::kText, "", "name of the mapped device", kDm, Cost::kKernel, "/sys"},
    {"level", "LEVEL", Kind::kText, "", "RAID level", kMd | kLogical, Cost::kKernel, "/sys, tool"},
    {"state", "STATE", Kind::kText, "", "state in the words of who runs it", kMd | kRaid | kHardware, Cost::kKernel,
     "/sys, tool"},
    {"degraded", "DEGRADED", Kind::kCount, "drives", "members that an array lacks", kMd, Cost::kKernel, "/sys"},
    {"sync_action", "SYNC", Kind::kText, "", "what the array is busy with", kMd, Cost::kKernel, "/sys"},
    {"sync_percent", "SYNC%", Kind::kCount, "%", "how far that has come", kMd, Cost::kKernel, "/sys"},
    {"role", "ROLE", Kind::kText, "", "role in the array or controller", kDisk | kPart | kMember, Cost::kKernel,
     "/sys, tool", Compare::kIgnore},
    {"paths", "PATHS", Kind::kWords, "", "the other paths to the same drive", kDisk, Cost::kKernel, "WWN",
     Compare::kIgnore},
    {"duplicate_serial", "DUPLICATE-SERIAL", Kind::kFlag, "", "another drive has the same serial number",
     kHardware | kMember, Cost::kKernel, "serial numbers", Compare::kIgnore},
    {"by_id", "BY-ID", Kind::kWords, "", "links below /dev/disk/by-id", kBlock, Cost::kKernel, "database"},
    {"by_path", "BY-PATH", Kind::kWords, "", "links below /dev/disk/by-path", kBlock, Cost::kKernel, "database"},
    {"enclosure", "ENCLOSURE", Kind::kText, "", "enclosure that it sits in", kHardware | kMember | kBay | kUsb,
     Cost::kKernel, "/sys/class/enclosure, tool", Compare::kIgnore},
    {"bay", "BAY", Kind::kText, "", "bay or slot of the enclosure", kHardware | kMember | kBay, Cost::kKernel,
     "/sys/class/enclosure, tool", Compare::kIgnore},
    {"locate_led", "LOCATE", Kind::kFlag, "", "its locating light is on", kBay, Cost::kKernel, "/sys/class/enclosure"},
    {"address", "ADDRESS", Kind::kText, "", "address on its bus", kHardware | kUsb, Cost::kKernel, "/sys"},
    {"port", "PORT", Kind::kText, "", "where it is plugged in", kHardware | kUsb | kCard, Cost::kKernel, "/sys"},
    {"driver", "DRIVER", Kind::kText, "", "kernel driver", kHardware | kUsb | kCard, Cost::kKernel, "/sys, tool"},
    {"pci", "PCI", Kind::kText, "", "PCI address", kHardware | kCard, Cost::kKernel, "/sys, tool"},
    {"diskseq", "DISKSEQ", Kind::kCount, "", "the kernel's running number of this medium", kWhole, Cost::kKernel,
     "/sys"},
    {"status", "STATUS", Kind::kText, "", "of a USB device: unbound, bound, or node when it has one in /dev", kHardware,
     Cost::kKernel, "/sys", Compare::kIgnore, "unbound bound node"},
    {"has_enclosure", "HAS-ENCLOSURE", Kind::kFlag, "", "has an enclosure of its own", kUsb, Cost::kKernel, "/sys"},
    {"permission", "PERMISSION", Kind::kCount, "", "permission level, where the maker is known", kDisk, Cost::kState,
     "drive"},
    {"manufacturer_defects", "MDEFECTS", Kind::kCount, "", "entries of the manufacturer's defect list", kDisk,
     Cost::kDefects, "drive"},
    {"manufacturer_defect_bytes", "MDEFECT-BYTES", Kind::kCount, "bytes", "bytes of that list", kDisk, Cost::kDefects,
     "drive"},
    {"grown_defects", "GDEFECTS", Kind::kCount, "", "entries of the grown defect list", kDisk, Cost::kDefects, "drive"},
    {"grown_defect_bytes", "GDEFECT-BYTES", Kind::kCount, "bytes", "bytes of that list", kDisk, Cost::kDefects,
     "drive"},
    {"location", "LOCATION", Kind::kText, "", "place of a RAID member drive", kMember, Cost::kTool, "tool"},
    {"raid_device", "RAID-DEVICE", Kind::kDevice, "", "logical drive that a RAID member drive belongs to", kMember,
     Cost::kTool, "tool"},
    {"number", "NUMBER", Kind::kText, "", "number that the tool gives", kRaid, Cost::kTool, "tool"},
    {"label", "LABEL", Kind::kText, "", "name of the logical drive", kLogical, Cost::kTool, "tool"},
    {"match", "MATCH", Kind::kText, "", "how the kernel's device was told", kLogical | kMember, Cost::kTool,
     "tool, /sys", Compare::kIgnore, "wwn name address serial model size pci none"},
    {"predictive_failure", "PREDICTIVE-FAILURE", Kind::kFlag, "", "the drive expects to fail", kMember, Cost::kTool,
     "tool"},
    {"media_errors", "MEDIA-ERRORS", Kind::kCount, "", "errors of the medium", kMember, Cost::kTool, "tool"},
    {"other_errors", "OTHER-ERRORS", Kind::kCount, "", "errors of link and drive", kMember, Cost::kTool, "tool"},
    {"temperature", "TEMP", Kind::kCount, "degrees Celsius", "temperature", kCard | kMember, Cost::kTool, "tool"},
    {"tool", "TOOL", Kind::kText, "", "the maker's tool that told", kRaid, Cost::kTool, "tool"},
    {"failed", "FAILED", Kind::kWords, "", "what could not be read", kAll, Cost::kKernel, "this tool",
     Compare::kIgnore},
};

} // namespace

const char *name_of(Source source) {
    constexpr std::array<const char *, kSources> kNames{"the drive",       "the drive's identity pages",
                                                        "the kernel",      "the device manager's database",
                                                        "the mount table", "the RAID tool",
                                                        "other facts"};
    return kNames.at(static_cast<std::size_t>(source));
}

const char *name_of(ThingKind kind) {
    constexpr std::array<const char *, kThingKinds> kNames{"drive",
                                                           "partition",
                                                           "array",
                                                           "mapped device",
                                                           "optical drive",
                                                           "virtual device",
                                                           "USB interface",
                                                           "controller",
                                                           "logical drive",
                                                           "member drive",
                                                           "bay"};
    return kNames.at(static_cast<std::size_t>(kind));
}

std::span<const FactRow> all_facts() { return kFacts; }

const FactRow *find_fact(std::string_view name) {
    const std::string wanted(name);
    for (const FactRow &row : kFacts) {
        if (strcasecmp(wanted.c_str(), row.heading) == 0 || strcasecmp(wanted.c_str(), row.key) == 0) return &row;
    }
    return nullptr;
}

namespace {

// Keys are short words of our own, told apart by far less than all of their letters.
struct HashKey {
    std::size_t operator()(std::string_view key) const {
        if (key.empty()) return 0;
        constexpr std::size_t kFactor = 31;
        const auto at = [key](std::size_t place) {
            return static_cast<std::size_t>(static_cast<unsigned char>(key[place]));
        };
        return ((key.size() * kFactor + at(0)) * kFactor + at(key.size() / 2)) * kFactor + at(key.size() - 1);
    }
};

} // namespace

std::size_t index_of(std::string_view key) {
    static const std::unordered_map<std::string_view, std::size_t, HashKey> places = [] {
        std::unordered_map<std::string_view, std::size_t, HashKey> made;
        for (std::size_t i = 0; i < std::size(kFacts); ++i) made.emplace(kFacts[i].key, i);
        return made;
    }();
    const auto found = places.find(key);
    if (found != places.end()) return found->second;
    std::fprintf(stderr, "no fact '%.*s' in the table\n", static_cast<int>(key.size()), key.data());
    std::abort();
}

} // namespace inventory
