// What an emulated machine's own tools and files say there: the truth that the tests hold the answers against.
#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

namespace truth {

inline std::string bytes_of(const std::string &command) {
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen((command + " 2>/dev/null").c_str(), "r"), pclose);
    std::string text;
    for (int c = fgetc(pipe.get()); c != EOF; c = fgetc(pipe.get())) text.push_back(static_cast<char>(c));
    return text;
}

inline std::string trimmed(const std::string &text) {
    constexpr const char *kBlanks = " \n\t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

inline std::string output_of(const std::string &command) { return trimmed(bytes_of(command)); }

inline std::string content_of(const std::filesystem::path &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf(); // what a device that is just going cannot tell any more is empty
    return trimmed(text.str());
}

// "/dev/sdc"
inline std::string node_of(const std::string &serial) { return output_of("node_of " + serial); }

// "sdc"
inline std::string name_of(const std::string &serial) { return std::filesystem::path(node_of(serial)).filename(); }

// The SCSI generic node of a disk's node.
inline std::string generic_of(const std::string &node) {
    std::istringstream lines(output_of("lsscsi --generic"));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string last;
        std::string before;
        for (std::string word; words >> word; last = word) before = last;
        if (before == node) return last;
    }
    return "(null)";
}

inline bool holds_soon(const std::function<bool()> &test, std::chrono::seconds limit = std::chrono::seconds(30)) {
    for (const auto end = std::chrono::steady_clock::now() + limit; !test();) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace truth
