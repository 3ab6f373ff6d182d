// The rows of one disk in a file of the form of /proc/partitions.
#include "stream.h"
#include "torvane.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    PartitionList partitions = {};
    const int result = parse_partition(open_bytes(data, size).get(), "sda", &partitions);
    for (uint32_t i = 0; i < partitions.count; ++i) require(partitions.entries[i].name != nullptr);
    require(result == 0 || result == -1);
    for (uint32_t i = 0; i < partitions.count; ++i) std::free(partitions.entries[i].name);
    std::free(partitions.entries);
    return 0;
}
