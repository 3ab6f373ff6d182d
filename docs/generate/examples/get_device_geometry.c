#include <inttypes.h>
#include <stdio.h>
#include <torvane.h>

int main(void) {
    uint64_t sizes[256] = {0}; /* room for every partition */
    DeviceGeometry geometry = {.partition_sizes = sizes};
    const int result = get_device_geometry(-1, "/dev/sda", &geometry);
    if (has_error(result, TORVANE_GEOMETRY_BLOCK_COUNT)) return 1;
    printf("%" PRIu64 " bytes, %" PRIu32 " partitions\n",
           geometry.block_count * geometry.block_size,
           geometry.partition_count);
    return 0;
}
