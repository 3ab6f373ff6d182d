#include "devices.h"

#include "output/text.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace tool {
namespace {

struct Free {
    void operator()(char *text) const { std::free(text); }
};

std::string real_path(const std::string &path) {
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    return real ? std::string(real.get()) : path;
}

// Why this is no device; empty when it is one.
std::string objection(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    // SCSI generic nodes are character devices.
    return S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode) ? "" : "not a device";
}

} // namespace

bool names_a_file(const std::string &text) {
    struct stat status {};
    return stat(device_path(text).c_str(), &status) == 0;
}

std::vector<std::string> resolve_devices(const std::vector<std::string> &names, bool unknown_may_pass,
                                         std::vector<Failure> &failures) {
    std::vector<std::string> paths;
    for (const std::string &name : names) {
        const std::string path = device_path(name);
        const std::string reason = objection(path);
        if (!reason.empty() && !(unknown_may_pass && !names_a_file(name))) {
            failures.push_back({path, {}, reason, {}, true});
            continue;
        }
        std::string real = real_path(path);
        if (std::find(paths.begin(), paths.end(), real) == paths.end()) paths.push_back(std::move(real));
    }
    return paths;
}

} // namespace tool
