#include "raid/pci.h"
#include "stream.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    PciInfo *list = nullptr;
    uint32_t count = 0;
    const int result = torvane::parse_lspci_output(open_bytes(data, size).get(), &list, &count);
    require(result == 0 || (list == nullptr && count == 0));
    for (uint32_t i = 0; i < count; ++i) require(list[i].slot != nullptr && list[i].slot[0] != '\0');
    release_pci_info(list, static_cast<int>(count));
    return 0;
}
