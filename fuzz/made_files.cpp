#include "made_files.h"

#include "stream.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

struct Entry {
    bool is_link = false;
    std::string content;
};
struct Opened {
    std::string path;
    std::size_t read = 0;
};
struct Listed {
    std::vector<std::string> names;
    std::size_t next = 0;
    dirent entry{};
};

constexpr int kFirst = 1 << 20; // no other descriptor is so high
bool is_made = false;
std::map<std::string, Entry> files;
std::map<int, Opened> opened;
std::map<void *, std::unique_ptr<Listed>> listed;

bool is_ours(std::string_view path) {
    constexpr std::string_view kRoots[] = {"/sys/", "/proc", "/run/udev/"};
    return is_made && std::any_of(std::begin(kRoots), std::end(kRoots),
                                  [path](std::string_view root) { return path.starts_with(root); });
}

bool is_folder(const std::string &path) {
    const auto next = files.lower_bound(path + "/");
    return next != files.end() && next->first.starts_with(path + "/");
}

// Absolute, without links (but a last one, on demand) and dots; nothing when a link is one too many.
std::optional<std::string> resolved(const std::string &path, bool follow_last) {
    std::string rest = path;
    std::string done;
    for (int links = 0; !rest.empty();) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        const std::string part = rest.substr(0, slash);
        rest.erase(0, std::min(slash + 1, rest.size()));
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            done.erase(std::min(done.rfind('/'), done.size()));
            continue;
        }
        const auto found = files.find(done + "/" + part);
        const bool is_link = found != files.end() && found->second.is_link && (follow_last || !rest.empty());
        if (is_link && ++links > 40) return std::nullopt;
        if (!is_link) {
            done += "/" + part;
            continue;
        }
        if (found->second.content.starts_with('/')) done.clear();
        rest = found->second.content + "/" + rest;
        if (rest.size() > 4096) return std::nullopt;
    }
    return done;
}

// Where a call's folder and name lead; nothing when that is none of the made files' business.
std::optional<std::string> place(int folder, const char *name) {
    if (name[0] == '/' || folder == AT_FDCWD) return is_ours(name) ? std::optional<std::string>(name) : std::nullopt;
    const auto found = opened.find(folder);
    return found == opened.end() ? std::nullopt : std::optional(found->second.path + "/" + name);
}

int failed(int error) {
    errno = error;
    return -1;
}

int open_made(const std::string &name, int flags) {
    const auto path = resolved(name, true);
    if (!path) return failed(ELOOP);
    const bool folder = is_folder(*path);
    if (!folder && !files.contains(*path)) return failed(ENOENT);
    if (!folder && (flags & O_DIRECTORY) != 0) return failed(ENOTDIR);
    const int number = opened.empty() ? kFirst : opened.rbegin()->first + 1;
    opened[number] = {*path};
    return number;
}

std::unique_ptr<Listed> list_made(const std::string &folder) {
    auto list = std::make_unique<Listed>();
    const std::string beginning = folder + "/";
    for (auto at = files.lower_bound(beginning); at != files.end() && at->first.starts_with(beginning); ++at) {
        const std::string rest = at->first.substr(beginning.size());
        const std::string name = rest.substr(0, rest.find('/'));
        const bool is_new = list->names.empty() || list->names.back() != name;
        if (is_new && !name.empty()) list->names.push_back(name);
    }
    return list;
}

template <class Function> Function next(const char *name) { return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name)); }

} // namespace

extern "C" int openat(int folder, const char *name, int flags, ...) {
    if (const auto path = place(folder, name)) return open_made(*path, flags);
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return static_cast<int>(syscall(SYS_openat, folder, name, flags, mode));
}

extern "C" ssize_t read(int descriptor, void *room, size_t size) {
    const auto file = opened.find(descriptor);
    if (file == opened.end()) return syscall(SYS_read, descriptor, room, size);
    const auto found = files.find(file->second.path);
    if (found == files.end()) return failed(EISDIR);
    const std::size_t count = found->second.content.copy(static_cast<char *>(room), size, file->second.read);
    file->second.read += count;
    return static_cast<ssize_t>(count);
}

extern "C" int close(int descriptor) {
    return opened.erase(descriptor) > 0 ? 0 : static_cast<int>(syscall(SYS_close, descriptor));
}

extern "C" ssize_t readlinkat(int folder, const char *name, char *room, size_t size) noexcept {
    const auto path = place(folder, name);
    if (!path) return syscall(SYS_readlinkat, folder, name, room, size);
    const auto real = resolved(*path, false);
    const auto found = real ? files.find(*real) : files.end();
    if (found == files.end() || !found->second.is_link) return failed(EINVAL);
    return static_cast<ssize_t>(found->second.content.copy(room, size));
}

extern "C" int faccessat(int folder, const char *name, int mode, int flags) noexcept {
    const auto path = place(folder, name);
    if (!path) return static_cast<int>(syscall(SYS_faccessat2, folder, name, mode, flags));
    const auto real = resolved(*path, (flags & AT_SYMLINK_NOFOLLOW) == 0);
    return real && (files.contains(*real) || is_folder(*real)) ? 0 : failed(ENOENT);
}

extern "C" DIR *fdopendir(int descriptor) {
    const auto folder = opened.find(descriptor);
    if (folder == opened.end()) return next<decltype(&fdopendir)>("fdopendir")(descriptor);
    auto list = list_made(folder->second.path);
    opened.erase(folder);
    void *stream = list.get();
    listed[stream] = std::move(list);
    return static_cast<DIR *>(stream);
}

extern "C" dirent *readdir(DIR *stream) {
    const auto found = listed.find(stream);
    if (found == listed.end()) return next<decltype(&readdir)>("readdir")(stream);
    Listed &list = *found->second;
    if (list.next == list.names.size()) return nullptr;
    const std::size_t size = list.names[list.next++].copy(list.entry.d_name, sizeof list.entry.d_name - 1);
    list.entry.d_name[size] = '\0';
    return &list.entry;
}

extern "C" int closedir(DIR *stream) {
    return listed.erase(stream) > 0 ? 0 : next<decltype(&closedir)>("closedir")(stream);
}

extern "C" FILE *fopen(const char *name, const char *mode) {
    if (!is_ours(name)) return next<decltype(&fopen)>("fopen")(name, mode);
    const auto path = resolved(name, true);
    const auto found = path ? files.find(*path) : files.end();
    if (found == files.end()) {
        errno = ENOENT;
        return nullptr;
    }
    std::string &content = found->second.content;
    return fmemopen(content.data(), content.size(), "r");
}

namespace torvane::fuzz {

void make_files(std::string_view description) {
    while (!description.empty()) {
        const std::string_view file = description.substr(0, description.find('\x1e'));
        description.remove_prefix(std::min(file.size() + 1, description.size()));
        const std::size_t end = file.find_first_of("=>");
        if (end == std::string_view::npos) continue;
        const std::string_view path = file.substr(0, end);
        std::string_view content = file.substr(end + 1);
        const bool is_link = file[end] == '>';
        if (is_link) content = content.substr(0, content.find('\0'));
        if (path.find('\0') == std::string_view::npos) files[std::string(path)] = {is_link, std::string(content)};
    }
    is_made = true;
}

// Nothing that the readers opened stays open.
void remove_files() {
    require(opened.empty() && listed.empty());
    is_made = false;
    files.clear();
}

} // namespace torvane::fuzz
