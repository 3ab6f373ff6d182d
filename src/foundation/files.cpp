#include "foundation/files.h"

#include "foundation/errors.h"
#include "foundation/owners.h"
#include "foundation/text.h"
#include "torvane.h"

#include <fcntl.h>
#include <unistd.h>

using namespace torvane;

int validate_fd(int fd, const char *path) noexcept {
    if (fd > 0) return fd;
    if (path == nullptr) return -1;
    Descriptor opened(open(path, O_RDONLY));
    // Descriptor 0 stands for "no descriptor" everywhere, so a device opened as 0 could not be handed on.
    return opened.get() > 0 ? opened.release() : -1;
}

int close_valid_fd(int given, int active) noexcept {
    if (active <= 0 || given > 0) return active;
    std::FILE *stream = fdopen(active, "r");
    return stream == nullptr ? 0 : std::fclose(stream);
}

int torvane::close_active_fd(int given, int active) noexcept {
    if (active <= 0 || given > 0) return active;
    std::FILE *stream = fdopen(active, "r");
    return stream == nullptr ? close(active) : std::fclose(stream);
}

ActiveDescriptor::ActiveDescriptor(int given, const char *path, uint32_t category) noexcept
    : given_(given), active_(validate_fd(given, path)), path_(path), category_(category) {
    record_failure();
}

ActiveDescriptor::~ActiveDescriptor() {
    record_failure();
    close_active_fd(given_, active_);
}

void ActiveDescriptor::replace(int opened) noexcept {
    close_active_fd(given_, active_);
    given_ = -1;
    active_ = opened;
}

void ActiveDescriptor::record_failure() const noexcept {
    if (active_ < 0 && path_ != nullptr) fail(category_, "failed to open '%s'", path_);
}

int write_to_file(const char *path, const char *text) noexcept {
    if (path == nullptr || text == nullptr) return -1;
    File file(std::fopen(path, "w"));
    if (!file) return -1;
    const size_t length = std::strlen(text);
    const size_t written = std::fwrite(text, 1, length, file.get());
    // sysfs answers the write itself, which the stream makes no earlier than on closing.
    const int closed = std::fclose(file.release());
    return written == length && closed == 0 ? 0 : -1;
}

int file_exists(const char *path) noexcept { return path != nullptr && access(path, F_OK) == 0 ? 1 : 0; }

int device_exists(const char *name) noexcept {
    if (name == nullptr) return -1;
    const CString path = make_text("%s/%s", "/dev", name);
    return path ? file_exists(path.get()) : -1;
}
