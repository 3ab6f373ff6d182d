// Text on the heap beyond the public string functions.
#ifndef TORVANE_FOUNDATION_TEXT_H
#define TORVANE_FOUNDATION_TEXT_H

#include "foundation/owners.h"

#include <cstddef>
#include <cstring>

namespace torvane {

// Formats into a heap string of just the needed size; null without memory.
[[gnu::format(printf, 1, 2)]] CString make_text(const char *format, ...) noexcept;

// Copies into a fixed buffer, cut to fit and always terminated.
template <size_t Size> void copy_text(char (&destination)[Size], const char *source) noexcept {
    const size_t length = strnlen(source, Size - 1);
    std::memcpy(destination, source, length);
    destination[length] = '\0';
}

inline bool contains(const char *text, const char *part) noexcept { return std::strstr(text, part) != nullptr; }
inline bool equal(const char *a, const char *b) noexcept { return std::strcmp(a, b) == 0; }

// Whether the text begins with the prefix: how devices are chosen by serial number, too.
inline bool begins_with(const char *text, const char *prefix) noexcept {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Whether a directory entry is one of "." and "..".
inline bool is_dot_entry(const char *name) noexcept { return equal(name, ".") || equal(name, ".."); }

} // namespace torvane

#endif
