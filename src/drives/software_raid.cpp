#include "foundation/directory.h"
#include "foundation/errors.h"
#include "foundation/text.h"
#include "torvane.h"

#include <fcntl.h>
#include <sys/stat.h>

using namespace torvane;

namespace {

constexpr const char *kMdstat = "/proc/mdstat";

// The names found so far; released unless they are handed out.
class Names {
  public:
    Names() = default;
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;
    ~Names() { release_partition_names(names_, &count_); }

    // Takes the path, which may be null without memory.
    bool add(CString path) noexcept {
        if (!grow(names_, count_)) {
            fail(kRaid, "unable to allocate software raid list");
            return false;
        }
        names_[count_ - 1] = path.release();
        return true;
    }
    void hand_out(char ***names, uint32_t *count) noexcept {
        *names = names_;
        *count = count_;
        names_ = nullptr;
        count_ = 0;
    }

  private:
    char **names_ = nullptr;
    uint32_t count_ = 0;
};

bool is_real_directory(const Directory &parent, const char *name) noexcept {
    struct stat status {};
    return fstatat(parent.fd(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

bool add_partition_of(const char *directory, const char *entry, Names &names) noexcept {
    const CString attribute = make_text("%s%s/partition", directory, entry);
    if (!attribute) {
        fail(kRaid, "failed to allocate software raid path");
        return false;
    }
    if (file_exists(attribute.get()) == 0) return true;
    CString path = make_text("/dev/%s", entry);
    if (!path) {
        fail(kRaid, "failed to allocate memory for software raid partition name");
        return false;
    }
    if (names.add(std::move(path))) return true;
    fail(kRaid, "failed to allocate memory for raid partition name");
    return false;
}

bool add_partitions(const char *array, Names &names) noexcept {
    const CString path = make_text("/sys/block/%s/", array);
    if (!path) {
        fail(kRaid, "failed to allocate directory name");
        return false;
    }
    Directory directory(path.get());
    while (const dirent *entry = directory ? directory.next() : nullptr) {
        if (is_dot_entry(entry->d_name) || !is_real_directory(directory, entry->d_name)) continue;
        if (!add_partition_of(path.get(), entry->d_name, names)) return false;
    }
    if (directory && !directory.failed()) return true;
    fail(kRaid, "failed to open '%s'", path.get());
    return false;
}

bool add_array(const char *array, Names &names) noexcept {
    CString path = make_text("/dev/%s", array);
    if (!path) {
        fail(kRaid, "failed to allocate memory for drive name");
        return false;
    }
    if (!names.add(std::move(path))) {
        fail(kRaid, "failed to add software raid name to list");
        return false;
    }
    if (add_partitions(array, names)) return true;
    fail(kRaid, "Failed to add software raid partitions to list");
    return false;
}

bool names_an_array(const char *word) noexcept {
    return *word != '\0' && !begins_with(word, "Personalities") && !equal(word, "unused");
}

// Each array is a block of lines, told by its first, and blocks are parted by blank lines.
bool read_mdstat_line(const char *line, bool &expect_name, Names &names) noexcept {
    if (is_blank(line) == 1) {
        expect_name = true;
        return true;
    }
    if (contains(line, " blocks [")) return true;
    char *scanned = nullptr;
    if (std::sscanf(line, "%ms : %*s", &scanned) < 1) {
        fail(kRaid, "failed to parse line '%s' '%s'", line, kMdstat);
        return false;
    }
    const CString word(scanned);
    if (!expect_name || !names_an_array(scanned)) return true;
    expect_name = false;
    return add_array(scanned, names);
}

} // namespace

int get_sw_raid_names(char ***names, uint32_t *count) noexcept {
    if (names == nullptr || count == nullptr) return -1;
    *names = nullptr;
    *count = 0;
    const File file(std::fopen(kMdstat, "r"));
    if (!file) {
        fail(kRaid, "failed to open '%s'", kMdstat);
        return 0; // a machine without software RAID is no failure
    }
    Names found;
    for (bool expect_name = true;;) {
        char *text = nullptr;
        const int length = get_line(&text, file.get());
        const CString line(text);
        if (length == 0) break;
        if (length < 0 || !read_mdstat_line(text, expect_name, found)) return -1;
    }
    found.hand_out(names, count);
    return 0;
}
