// Vital product data pages that the kernel kept when it found the drive (vpd_pg80, vpd_pg83 ... in /sys), and what ATA
// identity is wrapped in one of them. Pages come from devices: lengths in them are never believed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace inventory {

// Page 80h (SPC, Unit Serial Number VPD page); "" when it is none.
std::string serial_of_page(std::string_view page);

// Page 83h (SPC, Device Identification VPD page): the best name of the logical unit, as the device manager writes it:
// "0x" and NAA digits, "eui." and EUI-64 digits, or "uuid." and a UUID; "" when there is none.
std::string wwn_of_page(std::string_view page);

// Rotations per minute by their code in page B1h and in ATA word 217: 0 for a medium that does not rotate; nothing
// when the drive keeps it to itself.
std::optional<std::uint64_t> rotation_of_code(unsigned code);

// Page B1h (SBC, Block Device Characteristics VPD page).
std::optional<std::uint64_t> rotation_of_page(std::string_view page);

struct AtaIdentity {
    std::string serial;                    // 20 characters at most
    std::string firmware;                  // 8
    std::string model;                     // 40
    std::string wwn;                       // "0x" and 16 digits; "" when the drive has none
    std::optional<std::uint64_t> rotation; // see rotation_of_code
};

// Page 89h (SAT, ATA Information VPD page); nothing when it holds no identity.
std::optional<AtaIdentity> ata_identity_of_page(std::string_view page);

std::string hexadecimal(std::string_view bytes);

} // namespace inventory
