// Runs in the machines `kinds` and `disks`: what the inventory says without opening a device, against what the kernel's
// own tools say there.
#include "../inventory/values.h"
#include "inventory/kernel/kernel.h"
#include "inventory/survey/find.h"
#include "inventory/survey/identity.h"
#include "inventory/usb/usb.h"
#include "readers.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <thread>

namespace inventory {
namespace {

using Json = nlohmann::ordered_json;
using tests::json_of;
using truth::output_of;

Machine everything() {
    Machine machine;
    read_kernel(machine, {});
    read_usb(machine);
    relate_identities(machine);
    settle(machine);
    return machine;
}

Json told() {
    Json facts;
    const Machine machine = everything();
    for (const Thing &thing : machine.things()) {
        for (const auto &[index, fact] : thing.facts()) {
            facts[thing.id()][all_facts()[index].key] = json_of(fact.value());
        }
    }
    return facts;
}

// A machine changes by itself: whoever writes to an array makes it active, and it is clean a moment later. What
// `other` said counts while the same was told before and after it.
template <class Other> auto said_while_nothing_changes(const Other &other) {
    constexpr int kTries = 20;
    for (int i = 1;; ++i) {
        const Json before = told();
        auto said = other();
        const Json changes = Json::diff(before, told());
        if (changes.empty()) return said;
        if (i == kTries) {
            ADD_FAILURE() << "the machine did not come to rest: " << changes;
            return said;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
}

void flatten(const Json &rows, std::map<std::string, Json> &by_name) {
    for (const Json &row : rows) {
        by_name[row.at("kname")] = row;
        if (row.contains("children")) flatten(row.at("children"), by_name);
    }
}

// By kernel name.
std::map<std::string, Json> listed() {
    std::map<std::string, Json> by_name;
    flatten(Json::parse(output_of("lsblk --json --output-all --bytes")).at("blockdevices"), by_name);
    return by_name;
}

// The lister's words in ours.
Json translated(const std::string &column, const Json &row) {
    Json value = row.at(column);
    if (column == "mountpoints") {
        Json points;
        for (const Json &point : value) {
            if (!point.is_null()) points.push_back(point);
        }
        return points;
    }
    if (column == "type" && row.at("tran") == "iscsi") return "iscsi";
    if (column == "type") {
        const std::string type = value;
        return type == "rom" ? "optical" : type.starts_with("raid") ? "softraid" : type;
    }
    if (value.is_string()) {
        const std::string text = value;
        const std::size_t last = text.find_last_not_of(' ');
        return text.substr(0, last == std::string::npos ? 0 : last + 1);
    }
    return value;
}

// The lister's columns by key, those always and those that it leaves out at times; and what drives of the machine
// `kinds` are, by serial number.
const Json kTruth = Json::parse(std::ifstream(TORVANE_MACHINE_TESTS "/truth.json"));

bool has_fact(const Thing &thing, const std::string &key) { return (find_fact(key)->of & bit(thing.kind())) != 0; }

TEST(Inventory, EqualsTheListersEveryColumn) {
    const auto [machine, rows] = said_while_nothing_changes([] { return std::pair(everything(), listed()); });
    ASSERT_GE(rows.size(), 20U);
    for (const auto &[name, row] : rows) {
        const Thing *thing = machine.find(name);
        ASSERT_NE(thing, nullptr) << name;
        for (const auto &[how_often, columns] : kTruth.at("columns").items()) {
            for (const auto &[key, column] : columns.items()) {
                const Json expected = translated(column, row);
                const Json found = json_of(thing->value(key));
                // The lister copies the disk's facts to its partitions, knows no UAS, and gives PCI's vendor to virtio.
                if (!has_fact(*thing, key) || (expected.is_null() && how_often == "at_times")) continue;
                if (found == "uas" && expected == "usb") continue;
                if (expected == "0x1af4" || (key == "device_state" && name.starts_with("dm-"))) continue;
                EXPECT_EQ(found, expected) << name << " " << key;
            }
        }
    }
    for (const Thing &thing : machine.things()) {
        EXPECT_TRUE(thing.kind() == ThingKind::kUsbInterface || rows.contains(thing.id())) << thing.id();
    }
}

TEST(Inventory, IsTheSameForAnOrdinaryUser) {
    const Json differences = said_while_nothing_changes([] {
        const Json as_root = told();
        constexpr uid_t kNobody = 65534;
        EXPECT_EQ(seteuid(kNobody), 0);
        const Json as_user = told();
        EXPECT_EQ(seteuid(0), 0);
        return Json::diff(as_root, as_user);
    });
    EXPECT_TRUE(differences.empty()) << differences.dump(1);
}

TEST(Inventory, KnowsArraysAsTheirToolDoes) {
    const auto [machine, details] = said_while_nothing_changes([] {
        Machine found = everything();
        std::map<std::string, std::string> by_array;
        for (const Thing &thing : found.things()) {
            if (thing.kind() == ThingKind::kArray)
                by_array[thing.id()] = output_of("mdadm --detail /dev/" + thing.id());
        }
        return std::pair(std::move(found), std::move(by_array));
    });
    EXPECT_FALSE(details.empty());
    for (const auto &[id, detail] : details) {
        const Thing &thing = *machine.find(id);
        const auto line = [&detail = detail](const std::string &label) {
            const std::size_t at = detail.find(label + " : ");
            if (at == std::string::npos) return std::string();
            const std::size_t from = at + label.size() + 3;
            return detail.substr(from, detail.find('\n', from) - from);
        };
        EXPECT_EQ(thing.text("level"), line("Raid Level"));
        EXPECT_EQ(thing.text("state"), line("State").substr(0, thing.text("state").size()));
        EXPECT_EQ(std::to_string(thing.related(RelationKind::kBuiltOn).size()), line("Total Devices"));
        for (const Thing *member : thing.related(RelationKind::kBuiltOn)) {
            EXPECT_TRUE(member->text("role").starts_with("active ")) << member->id();
            EXPECT_NE(detail.find("/dev/" + member->id()), std::string::npos);
        }
    }
}

std::vector<Thing *> with_serial(Machine &machine, const std::string &serial) {
    std::vector<Thing *> found;
    for (Thing &thing : machine.things()) {
        const bool is_drive = thing.kind() == ThingKind::kDrive;
        if (is_drive && thing.text("serial") == serial) found.push_back(&thing);
    }
    return found;
}

TEST(Kinds, AreToldWithTheirTransportMediumAndUse) {
    Machine machine = everything();
    for (const auto &[serial, facts] : kTruth.at("kinds").items()) {
        const std::vector<Thing *> things = with_serial(machine, serial);
        EXPECT_FALSE(things.empty()) << serial;
        for (const Thing *thing : things) {
            for (const auto &[key, value] : facts.items())
                EXPECT_EQ(json_of(thing->value(key)), value) << serial << " " << key;
        }
    }
}

TEST(Kinds, PathsAndTwinsAreToldApart) {
    Machine machine = everything();
    for (const std::string serial : {"PATHS1", "PATHS2"}) {
        const std::vector<Thing *> paths = with_serial(machine, serial);
        ASSERT_EQ(paths.size(), 2U);
        EXPECT_EQ(paths[1]->related(RelationKind::kPathOf), std::vector<Thing *>{paths[0]});
        EXPECT_EQ(json_of(paths[0]->value("paths")), Json{paths[1]->id()});
        EXPECT_EQ(find_things(machine, serial), std::vector<Thing *>{paths[0]});
    }
    EXPECT_EQ(find_things(machine, "TWIN0001").size(), 2U);
}

TEST(Kinds, PartitionsKeepTheirNumbers) {
    Machine machine = everything();
    const std::vector<Thing *> disks = with_serial(machine, "NUMBER1");
    ASSERT_EQ(disks.size(), 1U);
    std::set<std::uint64_t> numbers;
    for (const Thing *part : disks.front()->related_to(RelationKind::kPartOf)) {
        numbers.insert(part->number("partn").value_or(0));
    }
    EXPECT_EQ(numbers, (std::set<std::uint64_t>{3, 7}));
    for (const char *whole : {"md127", "nvme0n1"}) {
        const Thing *thing = machine.find(whole);
        ASSERT_NE(thing, nullptr) << whole;
        EXPECT_EQ(thing->related_to(RelationKind::kPartOf).size(), 2U) << whole;
    }
}

TEST(Kinds, AreFoundByEveryName) {
    Machine machine = everything();
    const auto name_of_first = [&](const std::string &text) {
        const std::vector<Thing *> found = find_things(machine, text);
        return found.size() == 1 ? found.front()->id() : std::to_string(found.size()) + " things";
    };
    const std::string sata = with_serial(machine, "SATA0001").front()->id();
    const std::string mapped = output_of("dmsetup info --columns --noheadings -o blkdevname opened");
    const std::map<std::string, std::string> texts{
        {"SATA00", sata},
        {"5000C50000000002", sata},
        {"/dev/disk/by-id/wwn-0x5000c50000000002", sata},
        {"whose name is", sata},
        {"third part", with_serial(machine, "NUMBER1").front()->id() + "3"},
        {"/dev/mapper/opened", mapped},
        {"swapspace", mapped},
        {"volume", output_of("dmsetup info --columns --noheadings -o blkdevname group-volume")},
        {output_of("blkid -s PARTUUID -o value /dev/nvme0n1p2"), "nvme0n1p2"},
    };
    for (const auto &[text, id] : texts) EXPECT_EQ(name_of_first(text), id) << text;
}

} // namespace
} // namespace inventory
