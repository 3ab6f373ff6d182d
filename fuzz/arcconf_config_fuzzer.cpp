#include "raid/adaptec.h"
#include "raid_tree.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    RaidTree tree;
    RaidController *controller = torvane::add_controllers(&tree.list, &tree.count, 1, RAID_TYPE_ADAPTEC, 1);
    (void)torvane::parse_adaptec_config(open_bytes(data, size).get(), controller);
    return 0;
}
