#include "foundation/owners.h"
#include "torvane.h"

using namespace torvane;

int add_to_string_list(StringList *list, const char *string) noexcept {
    if (list == nullptr || string == nullptr) return -1;
    uint32_t count = list->count;
    if (!grow(list->strings, count)) return -1;
    list->strings[list->count] = duplicate_str(string);
    if (list->strings[list->count] == nullptr) return -1;
    list->count = count;
    return 0;
}

void release_string_list(StringList *list) noexcept {
    if (list == nullptr) return;
    for (uint32_t i = 0; list->strings != nullptr && i < list->count; ++i) std::free(list->strings[i]);
    std::free(list->strings);
    *list = StringList{};
}
