#include "foundation/sysfs.h"

#include "foundation/errors.h"
#include "foundation/text.h"
#include "torvane.h"

#include <algorithm>
#include <cstring>

using namespace torvane;

namespace torvane {

constexpr const char *kDigits = "1234567890";

int first_digit_index(const char *name) noexcept {
    if (name == nullptr) return -1;
    const size_t index = std::strcspn(name, kDigits);
    return name[index] == '\0' ? -1 : static_cast<int>(index);
}

std::string_view disk_name_prefix(std::string_view name) noexcept {
    size_t length = 0;
    while (length < name.size() && (name[length] < '0' || name[length] > '9')) ++length;
    return {name.data(), length};
}

} // namespace torvane

namespace {

constexpr size_t kLongPathSize = 4096;

// An attribute's stream, with a buffer that spares asking the kernel for the right size of one.
class Attribute {
  public:
    explicit Attribute(const char *path) noexcept : file_(std::fopen(path, "r")) {
        if (file_) {
            (void)std::setvbuf(file_.get(), buffer_, _IOFBF, sizeof buffer_);
        } else {
            fail(kSysfs, "failed to open '%s'", path);
        }
    }
    FILE *get() const noexcept { return file_.get(); }
    explicit operator bool() const noexcept { return file_ != nullptr; }

  private:
    char buffer_[512];
    File file_; // closed before its buffer goes
};

// "%[^\n]" without asking for what comes after the line: an attribute's end costs another read.
bool scan_line(FILE *file, char (&text)[kValueSize]) noexcept {
    if (std::fgets(text, sizeof text, file) == nullptr || text[0] == '\n') return false;
    text[std::strcspn(text, "\n")] = '\0';
    return true;
}

// The caller's format has no bound of its own, so no more is scanned than the text has room for.
bool scan_bounded(FILE *file, const char *format, char (&text)[kValueSize]) noexcept {
    char bytes[kValueSize - 1];
    const size_t length = std::fread(bytes, 1, sizeof bytes, file);
    if (length == 0) return false;
    const File bounded(fmemopen(bytes, length, "r"));
    return bounded && std::fscanf(bounded.get(), format, text) >= 1;
}

bool is_generic(std::string_view name, int generic) noexcept { return generic != 0 || name.find("sg") == 0; }

// /dev/sda12 is looked up below the directory sda1: the first digit stays with the disk's name.
void format_attribute_path(char (&path)[kPathSize], std::string_view name, const char *attribute, int generic,
                           int partition) noexcept {
    if (is_generic(name, generic)) {
        return join_text(path, kPathSize, {kSysGeneric, "/", name, "/device/", attribute});
    }
    constexpr size_t kDirectoryLength = 7;
    const size_t digit = disk_name_prefix(name).size();
    const bool is_numbered = digit < name.size();
    const std::string_view disk =
        is_numbered ? std::string_view(name.data(), std::min(digit + 1, kDirectoryLength)) : name;
    const bool of_partition = is_numbered && partition != 0;
    join_text(path, kPathSize, {kSysBlock, "/", disk, "/", of_partition ? name : "device", "/", attribute});
}

// The newer form of the same path.
void format_value_path(char (&path)[kLongPathSize], std::string_view name, std::string_view attribute, int generic,
                       int partition) noexcept {
    const auto limit = [](size_t size) noexcept { return std::min(size, kLongPathSize); };
    if (is_generic(name, generic)) {
        return join_text(path, limit(name.size() + attribute.size() + 33),
                         {kSysGeneric, "/", name, "/device/", attribute});
    }
    const std::string_view letters = disk_name_prefix(name);
    const bool is_numbered = !letters.empty() && letters.size() < name.size();
    if (is_numbered && partition != 0) {
        // Kept: one byte short of the text, which costs the attribute its last character, so that a partition's
        // attribute is not found.
        return join_text(path, limit(letters.size() + name.size() + attribute.size() + 13),
                         {kSysBlock, "/", letters, "/", name, "/", attribute});
    }
    constexpr size_t kNone = std::string_view::npos;
    const bool named_by_letters = is_numbered && (name.find("sd") != kNone || name.find("hd") != kNone);
    join_text(path, limit(name.size() + attribute.size() + 20),
              {kSysBlock, "/", named_by_letters ? letters : name, "/device/", attribute});
}

} // namespace

int read_value_from_sys_file(const char *path, const char *format, void *place) noexcept {
    if (path == nullptr || format == nullptr || place == nullptr) return -1;
    const Attribute file(path);
    if (!file) return -1;
    return std::fscanf(file.get(), format, place) < 1 ? -1 : 0;
}

int allocate_value_from_sys_file(const char *path, const char *format, char **value) noexcept {
    if (path == nullptr || format == nullptr || value == nullptr) return -1;
    const Attribute file(path);
    if (!file) return -1;
    char text[kValueSize] = "";
    const bool scanned =
        equal(format, kWholeLine) ? scan_line(file.get(), text) : scan_bounded(file.get(), format, text);
    if (!scanned) return -1;
    char *copy = duplicate_str(text);
    if (copy == nullptr) return -1;
    *value = copy;
    return 0;
}

int get_value_from_sys(const char *path, const char *attribute, const char *format, int generic, int partition,
                       void *place) noexcept {
    if (path == nullptr || attribute == nullptr) return -1;
    char attribute_path[kPathSize];
    format_attribute_path(attribute_path, last_token(path, "/"), attribute, generic, partition);
    return read_value_from_sys_file(attribute_path, format, place);
}

int _get_value_from_sys(const char *path, const char *attribute, const char *format, int generic, int partition,
                        char **value) noexcept {
    if (path == nullptr || attribute == nullptr) return -1;
    const std::string_view name = last_token(path, "/");
    if (name.empty()) return -1;
    char attribute_path[kLongPathSize];
    format_value_path(attribute_path, name, attribute, generic, partition);
    return allocate_value_from_sys_file(attribute_path, format, value);
}

int read_device_id(const char *path, int32_t *major, int32_t *minor) noexcept {
    if (major == nullptr || minor == nullptr) return -1;
    *major = -1;
    *minor = -1;
    if (path == nullptr) return -1;
    char *line = nullptr;
    if (allocate_value_from_sys_file(path, kWholeLine, &line) != 0) {
        return fail(kSysfs, "failed to read contents of %s", path);
    }
    const CString text(line);
    int32_t numbers[2];
    if (std::sscanf(line, "%d:%d", &numbers[0], &numbers[1]) < 2) {
        return fail(kSysfs, "failed to read device id from '%s'", line);
    }
    *major = numbers[0];
    *minor = numbers[1];
    return 0;
}

int has_same_device_id(const char *name, uint32_t major, uint32_t minor) noexcept {
    if (name == nullptr) return 0;
    const CString path = make_text("%s/%s/%s", kSysClassBlock, name, "dev");
    if (!path) {
        fail(kSysfs, "failed to allocate device path");
        return 0;
    }
    int32_t numbers[2];
    if (read_device_id(path.get(), &numbers[0], &numbers[1]) != 0) return 0;
    return static_cast<uint32_t>(numbers[0]) == major && static_cast<uint32_t>(numbers[1]) == minor ? 1 : 0;
}
