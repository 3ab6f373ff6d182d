// Words and numbers for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

// "465.8G": one decimal in powers of 1024, none when it is 0, as block-device listers print sizes.
std::string human_size(std::uint64_t bytes);

// The text with control characters and bytes that are not UTF-8 as "\xNN": safe on any terminal.
std::string printable(std::string_view text);

// JSON text with DEL and the two-byte C1 controls as escapes too: terminals obey them, and JSON allows them bare.
std::string escaped_controls(std::string_view json);

// "sda" of "/dev/sda"; names elsewhere stay whole.
std::string short_name(std::string_view path);

// "/dev/sda" of "sda"; anything with a slash stays as it is.
std::string device_path(std::string_view name);

} // namespace tool
