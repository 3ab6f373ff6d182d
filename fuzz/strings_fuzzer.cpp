// The string functions: whatever the text, the forms of one operation agree.
#include "stream.h"

#include "torvane.h"

#include <cstring>
#include <string>
#include <vector>

using namespace torvane::fuzz;

namespace {

// Whether a heap string of the library holds this text; frees it.
bool is_text(char *found, const std::string &text) {
    const torvane::CString owner(found);
    return found != nullptr && text == found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), strnlen(reinterpret_cast<const char *>(data), size));
    std::vector<char> place(text.size() + 3);
    std::string in_place = text;
    require(trim(text.c_str(), place.data()) == 0 && trim_in_place(in_place.data()) == 0);
    require(is_text(trim_new(text.c_str()), place.data()) && std::strcmp(in_place.c_str(), place.data()) == 0);
    in_place = text;
    place.assign(text.size() + 3, '\0');
    require(truncate_numbers(text.c_str(), place.data()) == 0 && truncate_numbers_in_place(in_place.data()) == 0);
    require(is_text(truncate_numbers_new(text.c_str()), place.data()));
    require(std::strcmp(in_place.c_str(), place.data()) == 0 && ends_with(text.c_str(), "") == 1);
    char *token = nullptr;
    const int length = allocate_last_token(text.c_str(), "/", &token);
    const torvane::CString owner(token);
    require(length == (token == nullptr ? -1 : static_cast<int>(std::strlen(token))));
    char last[9] = "";
    require(get_last_token(text.c_str(), "/", sizeof last, last) == static_cast<int>(std::strlen(last)));
    require(token == nullptr || std::strncmp(token, last, sizeof last - 1) == 0);
    char *exact = nullptr;
    require(dupnprintf(&exact, text.size() + 1, "%s", text.c_str()) == 0 && is_text(exact, text));
    (void)(get_bytes_from_str(text.c_str()) + static_cast<uint64_t>(is_blank(text.c_str())));
    in_place = text;
    truncate_seagate_serial(in_place.data(), "SEAGATE");
    const auto stream = open_bytes(data, size);
    // At the end of the file there is an empty line to free as well.
    for (int read = 1; stream && read > 0;) {
        char *line = nullptr;
        read = get_line(&line, stream.get());
        std::free(line);
    }
    return 0;
}
