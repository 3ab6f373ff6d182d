#include "raid/lsi.h"
#include "raid_tree.h"

using namespace torvane::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    RaidTree tree;
    for (const char *line : {"Adapter 0 -- Virtual Drive Information:", "Adapter 3 -- Virtual Drive Information:"}) {
        RaidController *controller = create_new_controller(line, &tree.list, &tree.count);
        for (const char *group : {"Virtual Drive: 0 (Target Id: 0)", "Virtual Drive: 1 (Target Id: 1)"}) {
            require(create_new_drive_group(group, controller) != nullptr);
        }
    }
    (void)torvane::read_pdlist(open_bytes(data, size).get(), tree.list, tree.count);
    return 0;
}
