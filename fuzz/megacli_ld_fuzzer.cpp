#include "raid_tree.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    RaidTree tree;
    (void)parse_ldinfo_output(open_bytes(data, size).get(), &tree.list, &tree.count);
    return 0;
}
