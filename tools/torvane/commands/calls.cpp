#include "commands/calls.h"

#include <torvane.h>

#include <unistd.h>

#include <string_view>

namespace tool {

std::string words_about(std::initializer_list<std::uint32_t> categories, const char *otherwise) {
    for (const std::uint32_t category : categories) {
        const std::string_view words = get_error_str(category);
        if (!words.empty() && words != "No error") return std::string(words);
    }
    return otherwise;
}

std::string remedy_without_root() { return geteuid() == 0 ? "" : "this needs root: try again with sudo"; }

std::string error_of(const Ended &ended) {
    if (!is_done(ended)) return ended.words;
    const bool failed = ended.result.is_object() && ended.result.contains("error");
    return failed ? ended.result.at("error").get<std::string>() : "";
}

} // namespace tool
