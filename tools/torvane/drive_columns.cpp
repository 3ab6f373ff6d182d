#include "drive_columns.h"

#include <strings.h>

#include <array>
#include <iterator>

namespace tool {
namespace {

constexpr unsigned kDrives = 1;
constexpr unsigned kBoth = 3;
constexpr uint64_t kSectorBytes = 512;

Value text_or_nothing(const char *text) { return text ? Value(std::string(text)) : Value(); }

// The library's "not read" is -1.
Value number_or_nothing(int32_t number) { return number < 0 ? Value() : Value(std::int64_t{number}); }

template <std::size_t N> Value word_or_nothing(const std::array<const char *, N> &words, int64_t index) {
    if (index < 0 || static_cast<std::size_t>(index) >= N) return {};
    return text_or_nothing(words.at(static_cast<std::size_t>(index)));
}

bool has_geometry(const DriveRecord &record) { return record.block_size != 0 || record.block_count != 0; }

Value name_of(const Drive &drive) {
    // Devices known only through USB have no name in /dev.
    return text_or_nothing(drive.record->name);
}

Value size_value(const Drive &drive) {
    const std::optional<uint64_t> size = size_of(*drive.record);
    return size ? Value(std::uint64_t{*size}) : Value();
}

Value sector_of(const Drive &drive) {
    return drive.record->block_size == 0 ? Value() : Value(std::uint64_t{drive.record->block_size});
}

Value numbers_of(const Drive &drive) {
    if (drive.record->major < 0) return {};
    return std::to_string(drive.record->major) + ":" + std::to_string(drive.record->minor);
}

Value kind_of(const Drive &drive) {
    constexpr std::array<const char *, 5> kKinds{nullptr, "other", "ide", "scsi", "scsi-generic"};
    return word_or_nothing(kKinds, drive.record->device_type);
}

Value blocks_of(const Drive &drive) {
    return has_geometry(*drive.record) ? Value(std::uint64_t{drive.record->block_count}) : Value();
}

Value start_of(const Drive &drive) {
    return has_geometry(*drive.record) ? Value(std::uint64_t{drive.record->device_start}) : Value();
}

Value status_of(const Drive &drive) {
    constexpr std::array<const char *, 3> kStates{"unbound", "bound", "node"};
    return word_or_nothing(kStates, drive.record->status);
}

Value defect_bytes(int32_t entries, uint32_t bytes) { return entries < 0 ? Value() : Value(std::int64_t{bytes}); }

Value failed_of(const Drive &drive) {
    std::vector<std::string> readers;
    for (const Failure &failure : drive.failures) {
        readers.push_back(failure.reader.empty() ? "device" : failure.reader);
    }
    return readers;
}

Value partition_name(const DriveRecord &, const PartitionRecord &partition) { return text_or_nothing(partition.name); }
Value partition_type(const DriveRecord &, const PartitionRecord &) { return std::string("part"); }
Value partition_size(const DriveRecord &, const PartitionRecord &partition) { return std::uint64_t{partition.size}; }
Value partition_number(const DriveRecord &, const PartitionRecord &partition) { return std::int64_t{partition.number}; }

constexpr DriveOptions kGeometry = DRIVE_OPTION_GEOMETRY;
constexpr DriveOptions kIdentity = DRIVE_OPTION_IDENTITY;
constexpr DriveOptions kDefects = DRIVE_OPTION_DEFECTS;

constexpr DriveColumn kColumns[] = {
    {{"NAME", "name", Kind::kName, "device name", kBoth}, 0, name_of, partition_name},
    {{"PATH", "path", Kind::kText, "path of the device node", kBoth}, 0, name_of, partition_name},
    {{"TYPE", "type", Kind::kText, "disk, part, optical, removable, softraid, raid-member, iscsi or adapter", kBoth},
     kGeometry,
     [](const Drive &drive) { return Value(type_word(*drive.record)); },
     partition_type},
    {{"MODEL", "model", Kind::kText, "model", kDrives, true},
     kIdentity,
     [](const Drive &drive) { return text_or_nothing(drive.record->model); },
     nullptr},
    {{"SERIAL", "serial", Kind::kText, "serial number", kDrives, true},
     kIdentity,
     [](const Drive &drive) { return text_or_nothing(drive.record->serial); },
     nullptr},
    {{"SIZE", "size", Kind::kBytes, "size", kBoth}, kGeometry, size_value, partition_size},
    {{"SECTOR", "sector", Kind::kNumber, "bytes per logical block", kDrives}, kGeometry, sector_of, nullptr},
    {{"RPM", "rpm", Kind::kNumber, "rotations per minute", kDrives},
     kGeometry,
     [](const Drive &drive) { return number_or_nothing(drive.record->rotation_speed); },
     nullptr},
    {{"GENERIC", "generic", Kind::kName, "SCSI generic node", kDrives},
     kIdentity,
     [](const Drive &drive) { return text_or_nothing(drive.record->generic_name); },
     nullptr},
    {{"MAJ:MIN", "maj_min", Kind::kText, "device numbers", kDrives}, kIdentity, numbers_of, nullptr},
    {{"KIND", "kind", Kind::kText, "kind by major number: scsi, scsi-generic, ide or other", kDrives},
     kIdentity,
     kind_of,
     nullptr},
    {{"BLOCKS", "blocks", Kind::kNumber, "number of logical blocks", kDrives}, kGeometry, blocks_of, nullptr},
    {{"START", "start", Kind::kNumber, "start within the disk, in 512-byte sectors", kDrives},
     kGeometry,
     start_of,
     nullptr},
    {{"PARTN", "partn", Kind::kNumber, "position among the disk's partitions, from 1", 2},
     kGeometry,
     [](const Drive &) { return Value(); },
     partition_number},
    {{"STATUS", "status", Kind::kText, "USB drives: unbound, bound, or node when it has one in /dev", kDrives},
     DRIVE_OPTION_USB,
     status_of,
     nullptr},
    {{"PERMISSION", "permission", Kind::kNumber, "permission level, where the maker is known", kDrives},
     DRIVE_OPTION_STATE | kIdentity,
     [](const Drive &drive) { return number_or_nothing(drive.record->permission); },
     nullptr},
    {{"MDEFECTS", "manufacturer_defects", Kind::kNumber, "entries of the manufacturer's defect list", kDrives},
     kDefects,
     [](const Drive &drive) { return number_or_nothing(drive.record->manufacturer_defects); },
     nullptr},
    {{"MDEFECT-BYTES", "manufacturer_defect_bytes", Kind::kNumber, "bytes of that list", kDrives},
     kDefects,
     [](const Drive &drive) {
         return defect_bytes(drive.record->manufacturer_defects, drive.record->manufacturer_defect_bytes);
     },
     nullptr},
    {{"GDEFECTS", "grown_defects", Kind::kNumber, "entries of the grown defect list", kDrives},
     kDefects,
     [](const Drive &drive) { return number_or_nothing(drive.record->grown_defects); },
     nullptr},
    {{"GDEFECT-BYTES", "grown_defect_bytes", Kind::kNumber, "bytes of that list", kDrives},
     kDefects,
     [](const Drive &drive) { return defect_bytes(drive.record->grown_defects, drive.record->grown_defect_bytes); },
     nullptr},
    {{"LOCATION", "location", Kind::kText, "place of a RAID member drive", kDrives},
     DRIVE_OPTION_RAID,
     [](const Drive &drive) { return text_or_nothing(drive.record->location); },
     nullptr},
    {{"RAID-DEVICE", "raid_device", Kind::kName, "logical drive that a RAID member drive belongs to", kDrives},
     DRIVE_OPTION_RAID,
     [](const Drive &drive) { return text_or_nothing(drive.record->raid_device); },
     nullptr},
    {{"FAILED", "failed", Kind::kWords, "what could not be read", kDrives}, 0, failed_of, nullptr},
};

Row partition_row(const DriveColumns &columns, const DriveRecord &drive, const PartitionRecord &partition) {
    Row row;
    row.level = 1;
    for (const DriveColumn *column : columns) {
        row.cells.push_back(column->of_partition ? column->of_partition(drive, partition) : Value());
    }
    return row;
}

} // namespace

std::span<const DriveColumn> all_drive_columns() { return kColumns; }

const DriveColumn *find_drive_column(std::string_view name) {
    for (const DriveColumn &column : kColumns) {
        if (strcasecmp(std::string(name).c_str(), column.column.name) == 0) return &column;
    }
    return nullptr;
}

std::string type_word(const DriveRecord &record) {
    constexpr std::array<const char *, 7> kTypes{"disk",      "iscsi",   "softraid", "raid-member",
                                                 "removable", "optical", "adapter"};
    if (record.drive_type == DRIVE_TYPE_DISK && record.device_start != 0) return "part";
    return record.drive_type < kTypes.size() ? kTypes.at(record.drive_type) : "unknown";
}

std::optional<uint64_t> size_of(const DriveRecord &record) {
    // Nobody has measured a device without a node.
    if (!has_geometry(record) || (!record.name && record.block_count == 0)) return std::nullopt;
    // Without a block size the library counts 512-byte sectors.
    const uint64_t block = record.block_size == 0 ? kSectorBytes : record.block_size;
    uint64_t size = 0;
    if (__builtin_mul_overflow(record.block_count, block, &size)) return std::nullopt;
    return size;
}

Row drive_row(const DriveColumns &columns, const Drive &drive, bool with_partitions) {
    Row row;
    for (const DriveColumn *column : columns) row.cells.push_back(column->of_drive(drive));
    for (const Failure &failure : drive.failures) row.failed = row.failed || failure.essential;
    if (!with_partitions) return row;
    const PartitionList &partitions = drive.record->partitions;
    Branch branch{"partitions", {}};
    for (uint32_t i = 0; i < partitions.count; ++i) {
        branch.rows.push_back(partition_row(columns, *drive.record, partitions.entries[i]));
    }
    row.branches.push_back(std::move(branch));
    return row;
}

Table drive_table(const DriveColumns &columns, const std::vector<Drive> &drives, bool with_partitions) {
    Table table;
    for (const DriveColumn *column : columns) table.columns.push_back(&column->column);
    table.root.key = "drives";
    for (const Drive &drive : drives) table.root.rows.push_back(drive_row(columns, drive, with_partitions));
    return table;
}

} // namespace tool
