#include "inventory/reading/in_use.h"

#include "inventory/reading/device.h"
#include "inventory/reading/workers.h"

#include <fcntl.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace inventory {
namespace {

namespace fs = std::filesystem;

constexpr const char *kUsed = "used";
constexpr const char *kUsers = "the kernel does not give it away: it or a partition of it is mounted, swap space, or "
                               "part of an array or volume, perhaps in a container";

// "" for a free device, else `kUsed` or why that is not known.
std::string claim(const std::string &path, const std::string &number) {
    const OpenDevice device = open_device(path, number);
    if (!device.descriptor) return device.error == EBUSY ? kUsed : device.words;
    const Descriptor alone(retried([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_EXCL); }));
    if (alone) return {};
    return errno == EBUSY ? kUsed : std::strerror(errno);
}

std::string namespace_of(const std::string &process) {
    std::array<char, 64> text{};
    const std::string link = "/proc/" + process + "/ns/mnt";
    const ssize_t size = readlink(link.c_str(), text.data(), text.size() - 1);
    return size < 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(size));
}

// The kernel writes blanks and backslashes as three octal digits.
std::string unescaped(const std::string &text) {
    const auto is_octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\' && i + 3 < text.size() && is_octal(text[i + 1]) && is_octal(text[i + 2]) &&
                            is_octal(text[i + 3]);
        if (!escape) {
            result += text[i];
            continue;
        }
        result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
        i += 3;
    }
    return result;
}

void add_mounts(const std::string &process, std::vector<ForeignMount> &mounts) {
    const std::string folder = "/proc/" + process;
    std::ifstream table(folder + "/mountinfo");
    std::string name;
    std::getline(std::ifstream(folder + "/comm"), name);
    std::string line;
    while (std::getline(table, line)) {
        ForeignMount mount;
        if (!parse_mount(line, mount)) continue;
        mount.process = process;
        mount.process.append(" (").append(name).append(")");
        mounts.push_back(std::move(mount));
    }
}

} // namespace

// proc(5): number, parent, major:minor, root, place, options, any number of fields, "-", type, source, options.
bool parse_mount(const std::string &line, ForeignMount &mount) {
    std::istringstream fields(line);
    fields.exceptions(std::ios::badbit); // without memory
    std::string field;
    std::string place;
    if (!(fields >> field >> field >> mount.number >> field >> place)) return false;
    while (fields >> field && field != "-") {
    }
    std::string source;
    if (!(fields >> field >> source)) return false;
    mount.place = unescaped(place);
    mount.source = unescaped(source);
    return true;
}

Claim ask_for_device_alone(const std::string &path, const std::string &number, std::chrono::milliseconds limit) {
    Claim result;
    const auto take = [&result](const Outcome &outcome) {
        if (outcome.state != Outcome::State::kDone) {
            result = {Claim::State::kUnknown, outcome.words};
        } else if (outcome.answer.empty()) {
            result = {Claim::State::kFree, {}};
        } else if (outcome.answer == kUsed) {
            result = {Claim::State::kUsed, kUsers};
        } else {
            result = {Claim::State::kUnknown, outcome.answer};
        }
    };
    do_jobs({{[&] { return claim(path, number); }, take}}, {.limit = limit});
    return result;
}

std::vector<ForeignMount> mounts_elsewhere() {
    std::vector<ForeignMount> mounts;
    std::set<std::string> seen{"", namespace_of("self")};
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc", error)) {
        const std::string process = entry.path().filename();
        if (process.find_first_not_of("0123456789") != std::string::npos) continue;
        if (seen.insert(namespace_of(process)).second) add_mounts(process, mounts);
    }
    return mounts;
}

} // namespace inventory
