#include "inventory/raid/tools.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace inventory::raid {
namespace {

// An entry of PATH that is empty or relative would let the folder that one stands in decide what root runs.
std::vector<std::string> folders_on_path() {
    const char *path = std::getenv("PATH");
    std::istringstream entries(path ? path : "");
    entries.exceptions(std::ios::badbit); // without memory
    std::vector<std::string> folders;
    for (std::string entry; std::getline(entries, entry, ':');) {
        if (entry.starts_with('/')) folders.push_back(entry);
    }
    return folders;
}

bool may_run(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string real_path(const std::string &path) {
    std::error_code fault;
    const std::filesystem::path real = std::filesystem::canonical(path, fault);
    return fault ? path : real.string();
}

const Tool *const kTools[] = {
    &kStorcli2, &kPerccli2, &kStorcli, &kPerccli, &kMegacli, &kArcconf, &kSsacli, &kSas3ircu, &kSas2ircu, &kMvcli,
};

} // namespace

std::span<const Tool *const> all_tools() { return kTools; }

std::vector<std::string> binaries_of(const Tool &tool) {
    std::vector<std::string> folders = folders_on_path();
    folders.insert(folders.end(), tool.folders.begin(), tool.folders.end());
    std::vector<std::string> found;
    std::vector<std::string> known;
    for (const char *binary : tool.binaries) {
        for (const std::string &folder : folders) {
            const std::string path = (std::filesystem::path(folder) / binary).string();
            if (!may_run(path)) continue;
            const std::string real = real_path(path);
            if (std::find(known.begin(), known.end(), real) == known.end()) found.push_back(path);
            known.push_back(real);
            break; // a shell would run this one of the name
        }
    }
    return found;
}

} // namespace inventory::raid
