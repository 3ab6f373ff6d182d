#include "foundation/owners.h"
#include "torvane.h"

#include <cstring>

using namespace torvane;

int allocate_last_token(const char *string, const char *delimiters, char **token) noexcept {
    if (delimiters == nullptr || token == nullptr) return -1;
    CString copy(duplicate_str(string));
    if (!copy) return -1;
    const char *last = nullptr;
    char *rest = nullptr;
    for (char *next = strtok_r(copy.get(), delimiters, &rest); next != nullptr;
         next = strtok_r(nullptr, delimiters, &rest)) {
        last = next;
    }
    *token = duplicate_str(last);
    return *token == nullptr ? -1 : static_cast<int>(std::strlen(*token));
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
