#include "inventory/kernel/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <memory>
#include <utility>

namespace inventory {
namespace {

// An attribute is a page at most, and binary ones (SCSI's VPD pages) hardly more; a file that is longer is none.
constexpr std::size_t kPage = 4096;
constexpr std::size_t kLongest = std::size_t{1} << 16;

class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] int release() { return std::exchange(number_, -1); }

  private:
    int number_;
};

int shortage = 0; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): of the whole process, as its cause is

// As openat(), and remembers when it was for want of something.
int open_at(int parent, const char *path, int flags) {
    const int number = openat(parent, path, flags | O_CLOEXEC);
    const bool is_short = number < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM);
    if (is_short && shortage == 0) shortage = errno;
    return number;
}

int open_folder(int parent, const char *path) { return open_at(parent, path, O_PATH | O_DIRECTORY); }

} // namespace

Folder::Folder(const std::string &path) : descriptor_(open_folder(AT_FDCWD, path.c_str())) {}

Folder::Folder(const Folder &parent, const std::string &name)
    : descriptor_(parent.is_open() ? open_folder(parent.descriptor_, name.c_str()) : -1) {}

Folder &Folder::operator=(Folder &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Folder::~Folder() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::optional<std::string> Folder::bytes(const char *name) const {
    if (!is_open()) return std::nullopt;
    const Descriptor file(open_at(descriptor_, name, O_RDONLY | O_NONBLOCK));
    if (file.number() < 0) return std::nullopt;
    std::string content;
    std::array<char, kPage> page; // NOLINT(cppcoreguidelines-pro-type-member-init): read() fills it
    while (content.size() < kLongest) {
        const ssize_t got = read(file.number(), page.data(), page.size());
        if (got < 0) return std::nullopt;
        content.append(page.data(), static_cast<std::size_t>(got));
        if (static_cast<std::size_t>(got) < page.size()) break;
    }
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
    const ssize_t size = is_open() ? readlinkat(descriptor_, name, target.data(), target.size()) : -1;
    return size < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(size));
}

bool Folder::has(const char *name) const {
    return is_open() && faccessat(descriptor_, name, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

std::vector<std::string> Folder::names(const char *below) const {
    std::vector<std::string> found;
    if (!is_open()) return found;
    Descriptor folder(open_at(descriptor_, below, O_RDONLY | O_DIRECTORY));
    if (folder.number() < 0) return found;
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(fdopendir(folder.number()), closedir);
    if (!stream) return found;
    static_cast<void>(folder.release()); // the stream's now
    while (const dirent *entry = readdir(stream.get())) {
        if (entry->d_name[0] != '.') found.emplace_back(entry->d_name);
    }
    std::sort(found.begin(), found.end());
    return found;
}

int Folder::write(const char *name, std::string_view text) const {
    const Descriptor file(is_open() ? openat(descriptor_, name, O_WRONLY | O_CLOEXEC) : -1);
    if (file.number() < 0) return is_open() ? errno : ENOENT;
    const ssize_t written = ::write(file.number(), text.data(), text.size());
    if (written < 0) return errno;
    return static_cast<std::size_t>(written) == text.size() ? 0 : EIO;
}

int take_shortage() { return std::exchange(shortage, 0); }

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
