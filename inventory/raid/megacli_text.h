// The text that megacli prints, as blocks of keys with their values. Nothing is concluded here.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace inventory::raid {

struct MegaDrive {
    std::size_t line = 0;
    std::string enclosure;
    std::string slot;
    std::string device_id;
    std::string position; // "DiskGroup: 0, Span: 0, Arm: 1"
    std::string wwn;
    std::string type; // SAS, SATA
    std::string raw_size;
    std::string sector_size;
    std::string state;
    std::string foreign;
    std::string inquiry; // with all its blanks: columns count
    std::string media;
    std::string temperature;
    std::string alert;
    std::string media_errors;
    std::string other_errors;
    std::string predictive_failures;
    std::string spare_type;  // "Dedicated, is revertible"
    std::string spare_array; // disk group of a dedicated spare
};

struct MegaLogical {
    std::size_t line = 0;
    std::string number;
    std::string target;
    std::string name;
    std::string level; // "Primary-1, Secondary-0, RAID Level Qualifier-0"
    std::string size;
    std::string state;
    std::string drives;
    std::string drives_per_span;
    std::string span_depth;
    bool is_cache = false;
    std::vector<MegaDrive> members; // LdPdInfo prints each drive below its logical drive
};

struct MegaAdapter {
    std::string number;
    std::string product;
    std::string serial;
    std::string package;
    std::string firmware;
    std::string temperature;
    std::string bus;
    std::string device;
    std::string function;
    std::vector<MegaLogical> logical;
    std::vector<MegaDrive> drives;
};

struct MegaText {
    std::vector<MegaAdapter> adapters;
    std::string count;          // of controllers, by -adpCount
    std::size_t cut_off = 0;    // the line that breaks off in its middle; 0: none
    bool has_exit_code = false; // the last line was printed
};

MegaText read_megacli(std::string_view text);

// What INQUIRY or IDENTIFY said, taken out of its fixed columns.
struct MegaIdentity {
    std::string vendor;
    std::string model;
    std::string firmware;
    std::string serial;
    std::string fault; // why the columns cannot be told; then all else is empty
};

MegaIdentity read_inquiry(std::string_view inquiry, bool is_sata, bool type_is_told);

} // namespace inventory::raid
