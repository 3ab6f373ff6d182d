#include "inventory/kernel/folder.h"

#include "inventory/reading/descriptor.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace inventory {
namespace {

// An attribute is a page at most, and binary ones (SCSI's VPD pages) hardly more; a file that is longer is none.
constexpr std::size_t kPage = 4096;
constexpr std::size_t kLongest = std::size_t{1} << 16;
// A line of /proc/partitions has 40 bytes; this is for a hundred thousand devices.
constexpr std::size_t kLongestTable = std::size_t{1} << 22;
constexpr std::size_t kTableStep = std::size_t{1} << 15;

int open_at(int parent, const char *path, int flags) {
    return retried([&] { return openat(parent, path, flags | O_CLOEXEC); });
}

int open_folder(int parent, const char *path) { return open_at(parent, path, O_PATH | O_DIRECTORY); }

// The attribute is none of this device's, has nothing to tell now, or is not for this user.
bool is_absence(int error) {
    constexpr int kAbsences[] = {ENOENT, ENOTDIR, ENXIO, EINVAL, EOPNOTSUPP, EACCES, EPERM};
    return std::find(std::begin(kAbsences), std::end(kAbsences), error) != std::end(kAbsences);
}

} // namespace

Folder::Folder(const std::string &path, ReadFailures *failures)
    : descriptor_(open_folder(AT_FDCWD, path.c_str())), failures_(failures) {
    if (!is_open()) note(path.c_str());
}

Folder::Folder(const Folder &parent, const std::string &name) : failures_(parent.failures_) {
    if (!parent.is_open()) return;
    descriptor_ = open_folder(parent.descriptor_, name.c_str());
    if (!is_open()) note(name.c_str());
}

Folder &Folder::operator=(Folder &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    failures_ = other.failures_;
    return *this;
}

Folder::~Folder() {
    if (descriptor_ >= 0) close(descriptor_);
}

// By errno.
void Folder::note(const char *name) const {
    const int error = errno;
    if (failures_ != nullptr && !is_absence(error)) failures_->push_back({name, error});
}

std::optional<std::string> Folder::bytes(const char *name) const {
    if (!is_open()) return std::nullopt;
    const Descriptor file(open_at(descriptor_, name, O_RDONLY | O_NONBLOCK));
    if (!file) {
        note(name);
        return std::nullopt;
    }
    std::string content;
    std::array<char, kPage> page; // NOLINT(cppcoreguidelines-pro-type-member-init): read() fills it
    while (content.size() < kLongest) {
        const ssize_t got = retried([&] { return read(file.get(), page.data(), page.size()); });
        if (got < 0) {
            note(name);
            return std::nullopt;
        }
        content.append(page.data(), static_cast<std::size_t>(got));
        if (static_cast<std::size_t>(got) < page.size()) break;
    }
    return content;
}

std::string Folder::table(const char *name) const {
    std::string content;
    if (!is_open()) return content;
    const Descriptor file(open_at(descriptor_, name, O_RDONLY));
    std::size_t size = 0;
    ssize_t got = file ? 1 : -1;
    while (got > 0 && size < kLongestTable) {
        content.resize(size + kTableStep);
        got = retried([&] { return read(file.get(), content.data() + size, kTableStep); });
        if (got > 0) size += static_cast<std::size_t>(got);
    }
    if (got < 0) note(name);
    content.resize(size);
    return content;
}

std::string Folder::text(const char *name) const {
    std::string content = bytes(name).value_or("");
    while (!content.empty() && content.back() == '\n') content.pop_back();
    return content;
}

std::optional<std::uint64_t> Folder::number(const char *name) const { return parse_number(text(name)); }

std::string Folder::link(const char *name) const {
    std::array<char, kPage> target; // NOLINT(cppcoreguidelines-pro-type-member-init): readlinkat() fills it
    if (!is_open()) return "";
    const ssize_t size = retried([&] { return readlinkat(descriptor_, name, target.data(), target.size()); });
    if (size >= 0) return {target.data(), static_cast<std::size_t>(size)};
    note(name);
    return "";
}

bool Folder::has(const char *name) const {
    if (!is_open()) return false;
    const bool found = retried([&] { return faccessat(descriptor_, name, F_OK, AT_SYMLINK_NOFOLLOW); }) == 0;
    if (!found) note(name);
    return found;
}

std::vector<std::string> Folder::names(const char *below) const {
    std::vector<std::string> found;
    if (!is_open()) return found;
    Descriptor folder(open_at(descriptor_, below, O_RDONLY | O_DIRECTORY));
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(folder ? fdopendir(folder.get()) : nullptr, closedir);
    if (!stream) {
        note(below);
        return found;
    }
    static_cast<void>(folder.release()); // the stream's now
    // Only errno tells a failure from the end.
    for (errno = 0; const dirent *entry = readdir(stream.get()); errno = 0) {
        if (entry->d_name[0] != '.') found.emplace_back(entry->d_name);
    }
    if (errno != 0) note(below);
    std::sort(found.begin(), found.end());
    return found;
}

int Folder::write(const char *name, std::string_view text) const {
    if (!is_open()) return ENOENT;
    const Descriptor file(open_at(descriptor_, name, O_WRONLY));
    if (!file) return errno;
    const ssize_t written = retried([&] { return ::write(file.get(), text.data(), text.size()); });
    if (written < 0) return errno;
    return static_cast<std::size_t>(written) == text.size() ? 0 : EIO;
}

namespace {

bool is_shortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

// Attributes that fail for one reason are told together. Whatever is short is so for all of them.
std::vector<Trouble> troubles_of(const std::string &source, ReadFailures &failures) {
    std::map<int, std::string> names;
    for (const ReadFailure &failure : failures) {
        std::string &list = names[failure.error];
        if (!is_shortage(failure.error)) list += (list.empty() ? "" : ", ") + failure.name;
    }
    failures.clear();
    std::vector<Trouble> troubles;
    for (auto &[error, list] : names) {
        const char *remedy = is_shortage(error) ? "raise the limit (ulimit -n), or close what else uses it up" : "";
        troubles.push_back({source, list, std::strerror(error), remedy, true});
    }
    return troubles;
}

} // namespace

void tell_failures(Thing &thing, ReadFailures &failures) {
    if (failures.empty()) return;
    const std::string path = thing.text("path");
    for (Trouble &trouble : troubles_of(path.empty() ? thing.id() : path, failures)) {
        thing.troubles.push_back(std::move(trouble));
    }
}

void tell_failures(Machine &machine, const std::string &source, ReadFailures &failures) {
    for (Trouble &trouble : troubles_of(source, failures)) machine.troubles.push_back(std::move(trouble));
}

std::string last_part(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::optional<std::uint64_t> parse_number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

} // namespace inventory
