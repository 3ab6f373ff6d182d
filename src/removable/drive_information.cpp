#include "foundation/errors.h"
#include "foundation/text.h"
#include "removable/temporary_directory.h"
#include "torvane.h"

#include <fcntl.h>
#include <unistd.h>

using namespace torvane;

namespace {

// A directory of our own, gone when its owner ends.
class PrivateDirectory {
  public:
    PrivateDirectory() noexcept : made_(mkdtemp(path_.text) != nullptr) {}
    PrivateDirectory(const PrivateDirectory &) = delete;
    PrivateDirectory &operator=(const PrivateDirectory &) = delete;
    ~PrivateDirectory() {
        if (made_) rmdir(path_.text);
    }

    explicit operator bool() const noexcept { return made_; }
    const char *path() const noexcept { return path_.text; }

  private:
    TemporaryPath path_;
    bool made_;
};

inline void unlink_and_free(char *path) noexcept {
    unlink(path);
    std::free(path);
}
using NodePath = std::unique_ptr<char, Calls<&unlink_and_free>>;

constexpr DeviceKind kUnknownKind = 0;

// Opens a device through a node of our own, which serves devices that have none in /dev and keeps the device
// manager out of it. Node and directory are gone when this returns: a process that ends while the device makes it
// wait leaves nothing behind.
int open_privately(const char *name, Descriptor &device) noexcept {
    const PrivateDirectory directory;
    if (!directory) return fail(kDevice, "failed to create temp dir");
    const NodePath node(make_text("%s/%s", directory.path(), name).release());
    if (!node) return fail(kDevice, "failed to allocate device node path");
    if (const int result = create_node_in(name, directory.path()); result != 0) return result;
    device = Descriptor(open(node.get(), O_RDONLY | O_NONBLOCK));
    return device ? 0 : fail(kDevice, "failed to open '%s'", node.get());
}

} // namespace

int get_drive_information(ScsiDeviceInfo *device, uint32_t skip_serial) noexcept {
    if (device == nullptr || device->name == nullptr) return fail(kDevice, "unable to read device name (NULL)");
    Descriptor fd(-1);
    if (const int result = open_privately(device->name, fd); result != 0) return result;
    // The readers take no more of a path than the kernel name at its end.
    char *model = nullptr;
    get_drive_model(fd.get(), kUnknownKind, device->name, &model);
    replace(device->model, CString(model));
    if (skip_serial != 0) return 0;
    char *serial = nullptr;
    get_drive_serial_number(fd.get(), device->name, &serial);
    replace(device->serial, CString(serial));
    return 0;
}
