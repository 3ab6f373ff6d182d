// What an emulated machine's own tools say there: the truth that the tests hold the answers against.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace truth {

inline std::string output_of(const std::string &command) {
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen((command + " 2>/dev/null").c_str(), "r"), pclose);
    std::string text;
    for (int c = fgetc(pipe.get()); c != EOF; c = fgetc(pipe.get())) text.push_back(static_cast<char>(c));
    text.erase(text.find_last_not_of(" \n\t") + 1);
    return text.substr(std::min(text.find_first_not_of(" \n\t"), text.size()));
}

// "/dev/sdc"
inline std::string node_of(const std::string &serial) { return output_of("node_of " + serial); }

inline bool holds_soon(const std::function<bool()> &test, std::chrono::seconds limit = std::chrono::seconds(30)) {
    for (const auto end = std::chrono::steady_clock::now() + limit; !test();) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace truth
