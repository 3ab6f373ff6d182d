// The kernel's own files with any bytes in them: /proc/partitions by its three readers, which must agree,
// /proc/mdstat, /proc/mounts and values of /sys.
#include "drives/partition_table.h"
#include "stream.h"

#include <dlfcn.h>
#include <mntent.h>

#include <algorithm>
#include <cstring>
#include <string_view>

using namespace torvane::fuzz;

namespace {

const uint8_t *bytes = nullptr; // in the place of every file below /proc and /sys while a target runs
size_t count_of_bytes = 0;

bool is_replaced(std::string_view path) {
    return bytes != nullptr && (path.starts_with("/proc/") || path.starts_with("/sys/"));
}

void read_rows_of(const char *name, const torvane::PartitionTable *table) {
    PartitionList whole = {};
    PartitionList shared = {};
    const int result = parse_partition(open_bytes(bytes, count_of_bytes).get(), name, &whole);
    require(result == 0 || (result == -1 && whole.count == 0));
    require(table == nullptr || (table->partitions_of(name, shared) == result && whole.count == shared.count));
    for (uint32_t i = 0; i < whole.count; ++i) {
        const PartitionRecord &one = whole.entries[i];
        const PartitionRecord &other = table == nullptr ? one : shared.entries[i];
        require(std::strcmp(one.name, other.name) == 0 && one.size == other.size && one.number == other.number);
    }
    torvane::release_partitions(whole);
    torvane::release_partitions(shared);
}

void read_all() {
    torvane::PartitionTable table;
    const bool is_shared = table.load() && table.index();
    for (const char *name : {"sda", "sdb", "md0"}) read_rows_of(name, is_shared ? &table : nullptr);
    uint64_t sizes[512] = {};
    DeviceGeometry geometry = {};
    // The caller's array must have room for every row.
    const auto rows = std::count(bytes, bytes + count_of_bytes, '\n') + static_cast<long>(count_of_bytes / 99);
    geometry.partition_sizes = rows < 500 ? sizes : nullptr;
    (void)get_partition_information("/dev/sda", &geometry);
    char **names = nullptr;
    uint32_t count = 0;
    require(get_sw_raid_names(&names, &count) == 0 || count == 0);
    release_partition_names(names, &count);
    (void)is_mounted("/tmp");
    int32_t numbers[2] = {};
    const int result = read_device_id("/sys/block/sda/dev", &numbers[0], &numbers[1]);
    require(result == 0 || (numbers[0] == -1 && numbers[1] == -1));
    char *value = nullptr;
    (void)allocate_value_from_sys_file("/sys/block/sda/device/model", "%[^\n]", &value);
    require(value == nullptr || std::strlen(value) <= 167);
    std::free(value);
}

} // namespace

extern "C" FILE *fopen(const char *path, const char *mode) {
    static auto *real = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return is_replaced(path) ? open_bytes(bytes, count_of_bytes).release() : real(path, mode);
}

extern "C" FILE *setmntent(const char *path, const char *mode) noexcept { return fopen(path, mode); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bytes = data;
    count_of_bytes = size;
    if (size > 0) read_all();
    bytes = nullptr;
    return 0;
}
