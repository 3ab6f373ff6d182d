#include "inventory/kernel/pages.h"

#include <algorithm>

namespace inventory {
namespace {

unsigned byte(std::string_view bytes, std::size_t place) { return static_cast<unsigned char>(bytes[place]); }

// The page's contents behind its header (code in byte 1, length in bytes 2 and 3), as far as they are there.
std::string_view contents(std::string_view page, unsigned code) {
    constexpr std::size_t kHeader = 4;
    if (page.size() < kHeader || byte(page, 1) != code) return {};
    return page.substr(kHeader, byte(page, 2) << 8 | byte(page, 3));
}

enum Designator : unsigned { kEui64 = 2, kNaa = 3, kUuid = 10 }; // SPC, designator types

// Lower is better: NAA with vendor extension names one unit for certain, locally assigned ones (NAA 3h) repeat.
int rank_of(unsigned type, std::string_view name) {
    if (type == kNaa && !name.empty()) {
        switch (byte(name, 0) >> 4) {
        case 6: return 0; // IEEE Registered Extended
        case 5: return 1; // IEEE Registered
        case 2: return 2; // IEEE Extended
        default: return 5;
        }
    }
    return type == kEui64 ? 3 : 4;
}

std::string uuid_text(std::string_view bytes) {
    std::string text = hexadecimal(bytes);
    for (const std::size_t place : {8U, 13U, 18U, 23U}) text.insert(place, 1, '-');
    return text;
}

std::string written(unsigned type, std::string_view name) {
    if (type == kNaa && (name.size() == 8 || name.size() == 16)) return "0x" + hexadecimal(name);
    if (type == kEui64 && (name.size() == 8 || name.size() == 12 || name.size() == 16)) {
        return "eui." + hexadecimal(name);
    }
    // Two bytes of its kind come before the UUID itself.
    if (type == kUuid && name.size() == 18) return "uuid." + uuid_text(name.substr(2));
    return "";
}

// Texts in ATA identities: two characters a word, the first in the upper byte; the words themselves are little-endian.
std::string ata_text(std::string_view identity, std::size_t word, std::size_t words) {
    std::string text(identity.substr(word * 2, words * 2));
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) std::swap(text[i], text[i + 1]);
    return text;
}

unsigned ata_word(std::string_view identity, std::size_t word) {
    return byte(identity, word * 2) | byte(identity, word * 2 + 1) << 8;
}

// ACS: words 108 to 111, when bits 15:14 of word 87 are 01b and bit 8 is set.
std::string ata_wwn(std::string_view identity) {
    constexpr unsigned kValidity = 0xC100;
    constexpr unsigned kSupported = 0x4100;
    if ((ata_word(identity, 87) & kValidity) != kSupported) return "";
    std::string bytes;
    for (std::size_t word = 108; word <= 111; ++word) {
        bytes += static_cast<char>(ata_word(identity, word) >> 8);
        bytes += static_cast<char>(ata_word(identity, word) & 0xFFU);
    }
    return byte(bytes, 0) >> 4 == 5 ? "0x" + hexadecimal(bytes) : "";
}

} // namespace

std::string hexadecimal(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += kDigits[byte(bytes, i) >> 4];
        text += kDigits[byte(bytes, i) & 0xFU];
    }
    return text;
}

std::string serial_of_page(std::string_view page) { return std::string(contents(page, 0x80)); }

std::string wwn_of_page(std::string_view page) {
    std::string_view rest = contents(page, 0x83);
    std::string best;
    int best_rank = 6;
    constexpr std::size_t kHeader = 4;
    while (rest.size() >= kHeader) {
        const unsigned association = byte(rest, 1) >> 4 & 3U;
        const unsigned type = byte(rest, 1) & 0xFU;
        const std::size_t length = byte(rest, 3);
        if (length > rest.size() - kHeader) break;
        const std::string_view name = rest.substr(kHeader, length);
        rest.remove_prefix(kHeader + length);
        // Others name the port or the target device, which units share.
        if (association != 0) continue;
        const std::string text = written(type, name);
        if (text.empty() || rank_of(type, name) >= best_rank) continue;
        best = text;
        best_rank = rank_of(type, name);
    }
    return best;
}

std::optional<std::uint64_t> rotation_of_code(unsigned code) {
    if (code == 1) return 0;
    if (code < 0x401 || code > 0xFFFE) return std::nullopt; // not reported, or reserved
    return code;
}

std::optional<std::uint64_t> rotation_of_page(std::string_view page) {
    const std::string_view body = contents(page, 0xB1);
    return body.size() < 2 ? std::nullopt : rotation_of_code(byte(body, 0) << 8 | byte(body, 1));
}

std::optional<AtaIdentity> ata_identity_of_page(std::string_view page) {
    constexpr std::size_t kIdentity = 60; // where it begins, counted from the page's first byte
    constexpr std::size_t kIdentitySize = 512;
    if (page.size() < kIdentity + kIdentitySize || contents(page, 0x89).empty()) return std::nullopt;
    const std::string_view identity = page.substr(kIdentity, kIdentitySize);
    if (std::all_of(identity.begin(), identity.end(), [](char c) { return c == 0; })) return std::nullopt;
    return AtaIdentity{ata_text(identity, 10, 10), ata_text(identity, 23, 4), ata_text(identity, 27, 20),
                       ata_wwn(identity), rotation_of_code(ata_word(identity, 217))};
}

} // namespace inventory
