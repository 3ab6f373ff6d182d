#include "foundation/errors.h"
#include "foundation/text.h"
#include "torvane.h"

using namespace torvane;

namespace {

constexpr const char *kCdromInfo = "/proc/sys/dev/cdrom/info";

int add_drives_of_line(const char *line, DriveList *list, DriveOptions options) noexcept {
    const char *names = std::strchr(line, ':') + 1;
    const CString copy(duplicate_str(names));
    if (!copy) return fail(kDriveList, "failed to duplicate '%s'", names);
    constexpr const char *kBlanks = " \t\r\n";
    char *rest = nullptr;
    for (const char *name = strtok_r(copy.get(), kBlanks, &rest); name != nullptr;
         name = strtok_r(nullptr, kBlanks, &rest)) {
        const CString path = make_text("/dev/%s", name);
        if (!path) return fail(kDriveList, "failed to allocate device name");
        if (add_optical_drive_to_list(path.get(), list, options) != 0) return -1;
    }
    return 0;
}

} // namespace

int add_all_optical_drives(DriveList *list, DriveOptions options) noexcept {
    if (list == nullptr) return -1;
    File file(std::fopen(kCdromInfo, "r"));
    if (!file) return 0; // a machine without the driver has no optical drives
    const int result = get_optical_drives_from_file(file.get(), list, options);
    if (std::fclose(file.release()) != 0) return fail(kDriveList, "failed to close %s", kCdromInfo);
    return result;
}

int get_optical_drives_from_file(FILE *file, DriveList *list, DriveOptions options) noexcept {
    if (file == nullptr || list == nullptr) return -1;
    for (;;) {
        char *text = nullptr;
        const int length = get_line(&text, file);
        const CString line(text);
        if (length < 1) return -1;
        if (contains(text, "drive name:")) return add_drives_of_line(text, list, options);
    }
}

int add_optical_drive_to_list(const char *path, DriveList *list, DriveOptions options) noexcept {
    if (create_drive(list, path, options) != 0) return -1;
    list->drives[list->count - 1]->drive_type = DRIVE_TYPE_OPTICAL;
    return 0;
}
