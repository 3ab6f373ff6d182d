// Text on the heap beyond the public string functions.
#ifndef TORVANE_FOUNDATION_TEXT_H
#define TORVANE_FOUNDATION_TEXT_H

#include "foundation/owners.h"

#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace torvane {

// The text's length, or -1 when it is made of more than words and "%s" or does not fit. Most texts are paths, and a
// fourth of what a disk costs in user space would go into their general formatting.
int join_plainly(char *text, size_t size, const char *format, va_list arguments) noexcept;

// The pieces one after the other, cut to the room that there is.
void join_text(char *place, size_t size, std::initializer_list<std::string_view> pieces) noexcept;

// The same as a heap string, uncut; null without memory.
CString joined(std::initializer_list<std::string_view> pieces) noexcept;

// Formats into a heap string of just the needed size; null without memory.
[[gnu::format(printf, 1, 2)]] CString make_text(const char *format, ...) noexcept;

// Copies into a fixed buffer, cut to fit and always terminated.
template <size_t Size> void copy_text(char (&destination)[Size], const char *source) noexcept {
    const size_t length = strnlen(source, Size - 1);
    std::memcpy(destination, source, length);
    destination[length] = '\0';
}

// What is behind the last delimiter but for those at the text's end; empty when there is nothing else.
std::string_view last_token(std::string_view text, const char *delimiters) noexcept;

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
