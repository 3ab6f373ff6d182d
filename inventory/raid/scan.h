// Texts of RAID tools, as all of their readers take them apart. A text is bytes: it may be cut off anywhere, have CR
// before its line ends, be no UTF-8.
#pragma once

#include "inventory/raid/model.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace inventory::raid {

// More than any controller bears; what a broken tool prints beyond that costs no memory.
inline constexpr std::size_t kMostDrives = 2048;
inline constexpr std::size_t kMostLogicalDrives = 2048;
inline constexpr std::size_t kMostControllers = 64;
inline constexpr std::size_t kMostDoubts = 200;

std::string_view trimmed(std::string_view text); // blanks, tabs, CR, NUL at both ends
std::string lower(std::string_view text);
bool same_word(std::string_view left, std::string_view right);       // without regard to case
bool begins_with(std::string_view text, std::string_view beginning); // without regard to case
bool holds(std::string_view text, std::string_view part);            // without regard to case

// One line after the other, without CR and LF, without a copy.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}
    bool next(std::string_view &line);
    [[nodiscard]] std::size_t number() const { return number_; } // of the line last given, from 1

  private:
    std::string_view rest_;
    std::size_t number_ = 0;
};

// Both trimmed; the key is empty where the line has no colon.
struct KeyValue {
    std::string_view key;
    std::string_view value;
};
KeyValue split_at_colon(std::string_view line);       // the first colon
KeyValue split_at_colon_blank(std::string_view line); // the first colon before a blank or the line's end

// "", -, N/A, NA, None, Unknown, Not Available, Not Applicable, Not Supported, Not Installed.
bool is_nothing(std::string_view value);
// With U+FFFD for bytes that are no UTF-8, and blanks for control characters.
std::string as_utf8(std::string_view text);
// The value as UTF-8, trimmed; "" for those words.
std::string told(std::string_view value);

// All of the text is a number, or it begins with one.
std::optional<std::uint64_t> whole_number(std::string_view text, unsigned base = 10);
std::optional<std::uint64_t> leading_number(std::string_view text);
std::optional<std::int64_t> leading_integer(std::string_view text); // "-5 C", "35C (95.00 F)", " 21C"

// "893.750 GB", "953869 MB", "696960MB", "9.094 TiB": K, M, G, T, P with or without B, powers of `thousand` (1024 or
// 1000); "iB" is always 1024. Rounded as the text is.
std::optional<std::uint64_t> bytes_of(std::string_view text, std::uint64_t thousand = 1024);

// "894.252 GB [0x6fc81ab0 Sectors]": the count, nothing when it is 0 or not there.
std::optional<std::uint64_t> sectors_in(std::string_view text);

// A count of sectors in bytes. The sector size is the told one, or of that, 512 and 4096 the one that comes nearest to
// the printed size: firmware tells 0 or the wrong one.
std::uint64_t bytes_of_sectors(std::uint64_t count, std::optional<std::uint64_t> sector, std::string_view printed);

// "50014EE000000001", "0x5000...", "naa.6...": lower-case hex digits alone; "" when it is something else.
std::string world_wide_name(std::string_view text);

// Domain, bus, device, function in hex, separated by ':' or '.': "00:65:00:00" is "0000:65:00.0". "" when it is not
// that.
std::string pci_address(std::string_view text);

// Notes what could not be read; the doubts of a broken tool are bounded.
void doubt(Survey &survey, std::string tool, std::size_t line, std::string where, std::string words);

} // namespace inventory::raid
