// The names of optical drives in a file of the form of /proc/sys/dev/cdrom/info.
#include "stream.h"
#include "torvane.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    DriveList list = {};
    const int result = get_optical_drives_from_file(open_bytes(data, size).get(), &list, 0);
    for (uint32_t i = 0; result == 0 && i < list.count; ++i) {
        require(list.drives[i] != nullptr && list.drives[i]->drive_type == DRIVE_TYPE_OPTICAL);
    }
    release_drives(&list);
    return 0;
}
