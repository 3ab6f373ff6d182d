#include "raid/adaptec.h"
#include "raid_tree.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    RaidTree tree;
    (void)torvane::parse_adaptec_version(open_bytes(data, size).get(), &tree.list, &tree.count);
    return 0;
}
