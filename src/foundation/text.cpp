#include "foundation/text.h"

#include "torvane.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>

namespace torvane {
namespace {

// A heap string of exactly `size` bytes; null when the text is any shorter or longer.
char *format_exactly(size_t size, const char *format, va_list arguments) noexcept {
    CString text(static_cast<char *>(std::calloc(1, size)));
    if (!text) return nullptr;
    const int length = std::vsnprintf(text.get(), size, format, arguments);
    return length >= 0 && static_cast<size_t>(length) + 1 == size ? text.release() : nullptr;
}

constexpr size_t kShortText = 256; // holds nearly all texts

} // namespace

int join_plainly(char *text, size_t size, const char *format, va_list arguments) noexcept {
    size_t used = 0;
    while (*format != '\0') {
        const char *piece = format;
        size_t length = 0;
        if (*format == '%') {
            piece = format[1] == 's' ? va_arg(arguments, const char *) : nullptr;
            if (piece == nullptr) return -1;
            length = std::strlen(piece);
            format += 2;
        } else {
            const char *end = std::strchr(format, '%');
            length = end == nullptr ? std::strlen(format) : static_cast<size_t>(end - format);
            format += length;
        }
        if (length >= size - used) return -1;
        std::memcpy(text + used, piece, length);
        used += length;
    }
    text[used] = '\0';
    return static_cast<int>(used);
}

void join_text(char *place, size_t size, std::initializer_list<std::string_view> pieces) noexcept {
    if (size == 0) return;
    for (const std::string_view piece : pieces) {
        const size_t length = std::min(piece.size(), size - 1);
        std::memcpy(place, piece.data(), length);
        place += length;
        size -= length;
    }
    *place = '\0';
}

CString joined(std::initializer_list<std::string_view> pieces) noexcept {
    size_t size = 1;
    for (const std::string_view piece : pieces) size += piece.size();
    CString text(static_cast<char *>(std::malloc(size)));
    if (text) join_text(text.get(), size, pieces);
    return text;
}

CString make_text(const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    va_list plain;
    va_copy(plain, arguments);
    char shorter[kShortText]; // formatted once, then copied
    int length = join_plainly(shorter, sizeof shorter, format, plain);
    va_end(plain);
    if (length < 0) length = std::vsnprintf(shorter, sizeof shorter, format, arguments);
    CString text;
    if (length >= 0 && static_cast<size_t>(length) < sizeof shorter) {
        text.reset(strdup(shorter));
    } else if (length >= 0) {
        text.reset(format_exactly(static_cast<size_t>(length) + 1, format, again));
    }
    va_end(again);
    va_end(arguments);
    return text;
}

} // namespace torvane

using namespace torvane;

int dupnprintf(char **out, size_t size, const char *format, ...) noexcept {
    if (out == nullptr) return -1;
    *out = nullptr;
    if (format == nullptr) return -1;
    va_list arguments;
    va_start(arguments, format);
    *out = format_exactly(size, format, arguments);
    va_end(arguments);
    return *out == nullptr ? -1 : 0;
}

char *duplicate_str(const char *string) noexcept { return string == nullptr ? nullptr : strdup(string); }

char *duplicate_nstr(const char *string, size_t n) noexcept {
    if (string == nullptr || n == SIZE_MAX) return nullptr;
    char *copy = static_cast<char *>(std::calloc(n + 1, 1));
    if (copy != nullptr) std::memcpy(copy, string, strnlen(string, n));
    return copy;
}

int intlen(int32_t number) noexcept {
    if (number == 0) return 1;
    return static_cast<int>(std::floor(std::log10(std::fabs(static_cast<double>(number))))) + 1;
}

int is_blank(const char *string) noexcept {
    return string != nullptr && string[std::strspn(string, " \t\n")] == '\0' ? 1 : 0;
}

int ends_with(const char *string, const char *suffix) noexcept {
    if (string == nullptr || suffix == nullptr) return 0;
    const size_t length = std::strlen(string);
    const size_t tail = std::strlen(suffix);
    return tail <= length && equal(string + length - tail, suffix) ? 1 : 0;
}
