// What the inventory reads of the kernel and of the device manager, from a machine made of any files: block devices,
// their attributes and VPD pages, mounts, database, USB interfaces, bays, RAID adapters.
#include "inventory/bays/bays.h"
#include "inventory/kernel/kernel.h"
#include "inventory/raid/adapters.h"
#include "inventory/reading/in_use.h"
#include "inventory/survey/find.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"
#include "made_files.h"
#include "stream.h"

#include <algorithm>
#include <sstream>
#include <string>

using namespace torvane::fuzz;

namespace {

using namespace inventory;

// What columns, JSON and schema take for granted.
bool is_of_kind(const Value &value, Kind kind) {
    switch (kind) {
    case Kind::kText:
    case Kind::kDevice: return std::holds_alternative<std::string>(value);
    case Kind::kCount:
    case Kind::kBytes:
        return std::holds_alternative<std::uint64_t>(value) || std::holds_alternative<std::int64_t>(value);
    case Kind::kFlag: return std::holds_alternative<bool>(value);
    case Kind::kWords: return std::holds_alternative<std::vector<std::string>>(value);
    }
    return false;
}

void check(const Thing &thing) {
    for (const auto &[index, fact] : thing.facts()) {
        for (const Word &word : fact.words) require(is_of_kind(word.value, all_facts()[index].kind));
    }
    for (const Relation &relation : thing.relations) require(relation.to != nullptr);
}

void read(bool all) {
    Machine machine;
    read_kernel(machine, {all, {}});
    read_usb(machine);
    read_bays(machine);
    relate_identities(machine);
    settle(machine);
    for (Thing &thing : machine.things()) {
        check(thing);
        require(!find_things(machine, thing.id()).empty());
        for (const char *key : {"path", "serial", "wwn", "fs_label", "bay"})
            (void)find_things(machine, thing.text(key));
        if (thing.kind() == ThingKind::kBay) read_light(thing);
    }
    ReadFailures failures;
    for (const raid::Adapter &adapter : raid::bound_adapters(failures)) require(!adapter.pci.empty());
    for (const raid::GenericNode &node : raid::generic_nodes_without_disk(failures)) require(!node.serial.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ForeignMount mount;
        require(!parse_mount(line, mount) || !mount.number.empty());
    }
    make_files(text);
    read(size % 2 != 0);
    remove_files();
    return 0;
}
