#include "usb_users.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tool {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> entries_of(const fs::path &directory) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory, ignored)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

std::string first_line(const fs::path &path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::string sentence(std::string subject, const char *verb, const std::string &object) {
    subject += verb;
    return subject += object;
}

// The disk and its partitions by kernel name.
std::vector<std::string> nodes_of(const std::string &disk) {
    std::vector<std::string> nodes{disk};
    for (const std::string &name : entries_of("/sys/block/" + disk)) {
        if (fs::exists(fs::path("/sys/block") / disk / name / "partition")) nodes.push_back(name);
    }
    return nodes;
}

void add_mounts(const std::string &node, std::vector<std::string> &users) {
    const std::string source = " /dev/" + node + " ";
    const std::string numbers = first_line("/sys/class/block/" + node + "/dev");
    std::ifstream mounts("/proc/self/mountinfo"); // proc(5): id, parent, major:minor, root, mount point ...
    std::string line;
    while (std::getline(mounts, line)) {
        std::istringstream fields(line);
        std::string skipped;
        std::string device;
        std::string point;
        fields >> skipped >> skipped >> device >> skipped >> point;
        const bool is_source = line.find(source) != std::string::npos;
        if ((!numbers.empty() && device == numbers) || is_source)
            users.push_back(sentence(node, " is mounted on ", point));
    }
}

void add_swaps(const std::string &node, std::vector<std::string> &users) {
    const std::string path = "/dev/" + node;
    std::ifstream swaps("/proc/swaps");
    std::string line;
    while (std::getline(swaps, line)) {
        if (line.starts_with(path) && line.size() > path.size() &&
            (line[path.size()] == ' ' || line[path.size()] == '\t')) {
            users.push_back(node + " holds swap space");
        }
    }
}

} // namespace

std::vector<std::string> users_of(const std::string &disk) {
    std::vector<std::string> users;
    for (const std::string &node : nodes_of(disk)) {
        add_mounts(node, users);
        add_swaps(node, users);
        for (const std::string &holder : entries_of("/sys/class/block/" + node + "/holders")) {
            users.push_back(sentence(node, " is part of ", holder));
        }
    }
    return users;
}

} // namespace tool
