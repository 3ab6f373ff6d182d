#include "foundation/text.h"
#include "torvane.h"

#include <cctype>
#include <cstring>

using namespace torvane;

namespace {

bool is_space(char c) noexcept { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool is_digit(char c) noexcept { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Index 0 never counts as trailing and the last index never as leading, so a lone blank is kept.
std::string_view trimmed(const char *text) noexcept {
    const size_t length = std::strlen(text);
    if (length == 0) return {text, length};
    size_t lead = 0;
    while (lead < length - 1 && is_space(text[lead])) ++lead;
    size_t end = length;
    while (end > 1 && is_space(text[end - 1])) --end;
    return {text + lead, end > lead ? end - lead : 0};
}

void keep(std::string_view kept, char *destination) noexcept {
    std::memmove(destination, kept.data(), kept.size());
    destination[kept.size()] = '\0';
}

size_t length_without_digits(const char *string) noexcept {
    size_t length = std::strlen(string);
    while (length > 0 && is_digit(string[length - 1])) --length;
    return length;
}

} // namespace

int trim(const char *source, char *destination) noexcept {
    if (source == nullptr || destination == nullptr) return -1;
    keep(trimmed(source), destination);
    return 0;
}

int trim_in_place(char *string) noexcept { return trim(string, string); }

char *trim_new(const char *string) noexcept {
    if (string == nullptr) return nullptr;
    return joined({trimmed(string)}).release();
}

char *truncate_numbers_new(const char *string) noexcept {
    return string == nullptr ? nullptr : duplicate_nstr(string, length_without_digits(string));
}

int truncate_numbers(const char *source, char *destination) noexcept {
    if (source == nullptr || destination == nullptr) return -1;
    const size_t kept = length_without_digits(source);
    std::memmove(destination, source, kept);
    // Kept: the terminator lands one past the kept text. In a zeroed buffer the text ends all the same; in any
    // other it goes on with the byte that was there.
    destination[kept + 1] = '\0';
    return 0;
}

int truncate_numbers_in_place(char *string) noexcept {
    if (string == nullptr) return -1;
    const size_t kept = length_without_digits(string);
    std::memset(string + kept, 0, std::strlen(string) - kept);
    return 0;
}

void truncate_seagate_serial(char *serial, const char *model) noexcept {
    constexpr size_t kLongSerial = 20; // the drive's 8 characters, "0000", and its board's number
    constexpr size_t kShortSerial = 8;
    if (serial == nullptr || model == nullptr || std::strlen(serial) != kLongSerial) return;
    if (begins_with(model, "SEAGATE") && begins_with(serial + kShortSerial, "0000")) serial[kShortSerial] = '\0';
}
