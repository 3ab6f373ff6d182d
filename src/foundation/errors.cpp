#include "foundation/errors.h"

#include "foundation/text.h"

#include <cstdarg>
#include <cstdio>

namespace torvane {
namespace {

constexpr uint32_t kCategories = 9;
constexpr size_t kBufferSize = 256;
constexpr size_t kMessageSize = 254; // the terminator included; the last byte of a buffer is never written

struct Message {
    char text[kBufferSize];
};

constinit Message messages[kCategories] = {
    {"No error"}, {"No error"}, {"No error"}, {"No error"}, {"No error"},
    {"No error"}, {"No error"}, {"No error"}, {"No error"},
};

char *message_of(uint32_t category) noexcept {
    return category >= 1 && category <= kCategories ? messages[category - 1].text : nullptr;
}

void record(uint32_t category, const char *format, va_list arguments) noexcept {
    char *text = message_of(category);
    if (text == nullptr || format == nullptr) return;
    // An argument may be the category's own message, so the text is formed before the old one goes.
    Message formed{};
    va_list plain;
    va_copy(plain, arguments);
    if (join_plainly(formed.text, kMessageSize, format, plain) < 0) {
        std::vsnprintf(formed.text, kMessageSize, format, arguments);
    }
    va_end(plain);
    for (size_t i = 0; i < kMessageSize; ++i) text[i] = formed.text[i];
    text[kMessageSize] = '\0';
}

uint32_t magnitude(int32_t number) noexcept {
    return number < 0 ? 0U - static_cast<uint32_t>(number) : static_cast<uint32_t>(number);
}

} // namespace

int fail(uint32_t category, const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    record(category, format, arguments);
    va_end(arguments);
    return -1;
}

std::nullptr_t fail_null(uint32_t category, const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    record(category, format, arguments);
    va_end(arguments);
    return nullptr;
}

} // namespace torvane

using namespace torvane;

void set_error_str(uint32_t category, const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    record(category, format, arguments);
    va_end(arguments);
}

const char *get_error_str(uint32_t category) noexcept { return message_of(category); }

int has_error(int32_t a, int32_t b) noexcept { return (magnitude(a) & magnitude(b)) != 0 ? 1 : 0; }

int32_t get_error(const int32_t *counters) noexcept {
    if (counters == nullptr) return -1;
    if (counters[0] >= 1 && counters[1] >= 1) return 1;
    const auto field = [counters](int index, int shift) noexcept {
        return static_cast<uint32_t>(counters[index]) << shift;
    };
    return static_cast<int32_t>(field(0, 0) + field(1, 7) + field(2, 12) + field(3, 14));
}
