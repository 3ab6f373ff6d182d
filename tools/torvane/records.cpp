#include "records.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace tool {
namespace {

template <class T> struct Field {
    const char *key;
    T DriveRecord::*member;
};

constexpr Field<char *> kTexts[] = {
    {"name", &DriveRecord::name},         {"generic_name", &DriveRecord::generic_name},
    {"model", &DriveRecord::model},       {"serial", &DriveRecord::serial},
    {"location", &DriveRecord::location}, {"raid_device", &DriveRecord::raid_device},
};
constexpr Field<int32_t> kNumbers[] = {
    {"major", &DriveRecord::major},
    {"minor", &DriveRecord::minor},
    {"device_type", &DriveRecord::device_type},
    {"rotation_speed", &DriveRecord::rotation_speed},
    {"permission", &DriveRecord::permission},
    {"status", &DriveRecord::status},
    {"manufacturer_defects", &DriveRecord::manufacturer_defects},
    {"grown_defects", &DriveRecord::grown_defects},
};
constexpr Field<uint32_t> kCounts[] = {
    {"drive_type", &DriveRecord::drive_type},
    {"manufacturer_defect_bytes", &DriveRecord::manufacturer_defect_bytes},
    {"grown_defect_bytes", &DriveRecord::grown_defect_bytes},
    {"geometry_result", &DriveRecord::geometry_result},
    {"specification_result", &DriveRecord::specification_result},
    {"defects_result", &DriveRecord::defects_result},
    {"state_result", &DriveRecord::state_result},
};
constexpr Field<uint64_t> kSizes[] = {
    {"block_count", &DriveRecord::block_count},
    {"device_start", &DriveRecord::device_start},
    {"block_size", &DriveRecord::block_size},
};

// The record releases its strings with free().
char *owned_copy(const std::string &text) {
    char *copy = strdup(text.c_str());
    if (!copy) throw std::bad_alloc();
    return copy;
}

Wire partitions_to_wire(const PartitionList &partitions) {
    Wire wire = Wire::array();
    for (uint32_t i = 0; i < partitions.count; ++i) {
        const PartitionRecord &partition = partitions.entries[i];
        wire.push_back({partition.name ? partition.name : "", partition.number, partition.size});
    }
    return wire;
}

void partitions_from_wire(const Wire &wire, PartitionList &partitions) {
    if (wire.empty()) return;
    partitions.entries = static_cast<PartitionRecord *>(std::calloc(wire.size(), sizeof(PartitionRecord)));
    if (!partitions.entries) throw std::bad_alloc();
    for (const Wire &entry : wire) {
        PartitionRecord &partition = partitions.entries[partitions.count++];
        partition.name = owned_copy(entry.at(0).get<std::string>());
        partition.number = entry.at(1).get<uint32_t>();
        partition.size = entry.at(2).get<uint64_t>();
    }
}

template <class T, std::size_t N> void to_wire(const DriveRecord &record, const Field<T> (&fields)[N], Wire &wire) {
    for (const Field<T> &field : fields) wire[field.key] = record.*field.member;
}

template <class T, std::size_t N> void from_wire(const Wire &wire, const Field<T> (&fields)[N], DriveRecord &record) {
    for (const Field<T> &field : fields) wire.at(field.key).get_to(record.*field.member);
}

} // namespace

Wire record_to_wire(const DriveRecord &record) {
    Wire wire = Wire::object();
    for (const Field<char *> &field : kTexts) {
        if (record.*field.member) wire[field.key] = std::string(record.*field.member);
    }
    to_wire(record, kNumbers, wire);
    to_wire(record, kCounts, wire);
    to_wire(record, kSizes, wire);
    wire["partitions"] = partitions_to_wire(record.partitions);
    return wire;
}

Record record_from_wire(const Wire &wire) {
    Record record(static_cast<DriveRecord *>(std::calloc(1, sizeof(DriveRecord))));
    if (!record) throw std::bad_alloc();
    for (const Field<char *> &field : kTexts) {
        const auto text = wire.find(field.key);
        if (text != wire.end()) (*record).*field.member = owned_copy(text->get<std::string>());
    }
    from_wire(wire, kNumbers, *record);
    from_wire(wire, kCounts, *record);
    from_wire(wire, kSizes, *record);
    partitions_from_wire(wire.at("partitions"), record->partitions);
    return record;
}

Wire failures_to_wire(const std::vector<Failure> &failures) {
    Wire wire = Wire::array();
    for (const Failure &f : failures) wire.push_back({f.source, f.reader, f.words, f.remedy, f.essential});
    return wire;
}

std::vector<Failure> failures_from_wire(const Wire &wire) {
    std::vector<Failure> failures;
    for (const Wire &f : wire) failures.push_back({f.at(0), f.at(1), f.at(2), f.at(3), f.at(4)});
    return failures;
}

Record unread_record(const std::string &name) {
    Record record(init_drive(name.c_str()));
    if (!record) throw std::bad_alloc();
    return record;
}

std::string words_about(std::initializer_list<uint32_t> categories) {
    for (const uint32_t category : categories) {
        const std::string_view words = get_error_str(category);
        if (!words.empty() && words != "No error") return std::string(words);
    }
    return {};
}

} // namespace tool
