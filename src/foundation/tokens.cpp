#include "foundation/text.h"
#include "torvane.h"

#include <cstring>

namespace torvane {

std::string_view last_token(std::string_view text, const char *delimiters) noexcept {
    const auto ends_token = [delimiters](char c) noexcept {
        const char *each = delimiters;
        while (*each != '\0' && *each != c) ++each;
        return *each != '\0';
    };
    while (!text.empty() && ends_token(text.back())) text.remove_suffix(1);
    size_t begin = text.size();
    while (begin > 0 && !ends_token(text[begin - 1])) --begin;
    text.remove_prefix(begin);
    return text;
}

} // namespace torvane

using namespace torvane;

int allocate_last_token(const char *string, const char *delimiters, char **token) noexcept {
    if (string == nullptr || delimiters == nullptr || token == nullptr) return -1;
    const std::string_view last = last_token(string, delimiters);
    *token = last.empty() ? nullptr : joined({last}).release();
    return *token == nullptr ? -1 : static_cast<int>(last.size());
}

int get_last_token(const char *string, const char *delimiters, size_t size, char *buffer) noexcept {
    if (delimiters == nullptr || buffer == nullptr || size == 0) return -1;
    CString copy(duplicate_str(string));
    if (!copy) return -1;
    char *rest = nullptr;
    // Only the first token ends at the given delimiters: names are always split at "/".
    for (char *token = strtok_r(copy.get(), delimiters, &rest); token != nullptr;
         token = strtok_r(nullptr, "/", &rest)) {
        std::strncpy(buffer, token, size - 1);
    }
    buffer[size - 1] = '\0';
    return static_cast<int>(std::strlen(buffer));
}
