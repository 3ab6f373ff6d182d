// What a worker tells its parent about a device, as any bytes: what is taken from them goes the same way once more.
#include "inventory/reading/packing.h"
#include "stream.h"

#include <string_view>

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace inventory;
    Thing first(ThingKind::kDrive, "sda");
    const bool is_whole = unpack({reinterpret_cast<const char *>(data), size}, first);
    const std::string packed = pack(first);
    Thing second(ThingKind::kDrive, "sda");
    require(unpack(packed, second) && pack(second) == packed);
    require(!is_whole || size >= 8); // two counts at least
    settle(first);
    return 0;
}
