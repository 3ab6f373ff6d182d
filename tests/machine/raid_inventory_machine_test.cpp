// Runs in the machine `raid`: real adapter, driver and /sys. Only the maker's tool is made up; its drives carry the
// serial numbers that the kernel's own tools show for the emulated disks.
#include "inventory/kernel/kernel.h"
#include "inventory/raid/raid.h"
#include "readers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using namespace inventory;
using truth::node_of;
namespace fs = std::filesystem;

// "0000:00:05.0"
std::string adapter() {
    for (const auto &entry : fs::directory_iterator("/sys/bus/pci/drivers/megaraid_sas")) {
        const std::string name = entry.path().filename();
        if (name.size() == 12 && name[4] == ':') return name;
    }
    return "no adapter";
}

struct Drive {
    int slot;
    const char *serial;
    const char *state;
    int group; // -1: none
};
// One disk for each logical drive, one handed through, one that the kernel does not have.
constexpr Drive kDrives[] = {{0, "HIDDEN0", "Onln", 0},   {1, "HIDDEN1", "Onln", 1}, {2, "HIDDEN2", "Onln", 2},
                             {3, "SATA0001", "JBOD", -1}, {4, "PLAIN1", "JBOD", -1}, {5, "NOWHERE", "UGood", -1}};
constexpr unsigned kMebibytes[] = {64, 96, 128};

class RaidInventory : public testing::Test {
  protected:
    void SetUp() override {
        folder = "/tmp/" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(folder);
        setenv("PATH", (folder + ":" + std::getenv("PATH")).c_str(), 1);
    }
    void TearDown() override { setenv("PATH", std::string(std::getenv("PATH")).substr(folder.size() + 1).c_str(), 1); }

    void write_tool(const std::string &name, const std::string &script) const {
        std::ofstream(folder + "/" + name) << "#!/bin/sh\ntouch tool.log\n" << script;
        fs::permissions(folder + "/" + name, fs::perms::owner_all);
    }

    void expect_all_tied(const std::string &tool) const {
        Machine machine;
        read_kernel(machine, {});
        read_raid(machine, {});
        settle(machine);
        ASSERT_NE(machine.find("c0"), nullptr);
        EXPECT_EQ(machine.find("c0")->text("pci"), adapter());
        EXPECT_EQ(machine.find("c0")->text("tool"), tool);
        for (int i = 0; i < 3; ++i) {
            const std::string number = std::to_string(i);
            const Thing *logical = machine.find("c0/v" + number);
            ASSERT_NE(logical, nullptr);
            EXPECT_EQ(logical->text("name"), node_of("VOLUME" + number));
            EXPECT_EQ(logical->text("match"), "address");
            EXPECT_EQ(logical->number("size"), std::uint64_t{kMebibytes[i]} << 20U);
            ASSERT_EQ(logical->related_to(RelationKind::kMemberOf).size(), 1U);
            EXPECT_EQ(logical->related_to(RelationKind::kMemberOf)[0]->text("serial"), "HIDDEN" + number);
        }
        for (const char *place : {"c0/e252/s3", "c0/e252/s4"}) {
            const Thing *drive = machine.find(place);
            ASSERT_NE(drive, nullptr);
            EXPECT_EQ(drive->text("name"), node_of(drive->text("serial")));
            EXPECT_EQ(drive->text("match"), "serial");
            EXPECT_EQ(drive->related(RelationKind::kKnownAs).size(), 1U);
        }
        EXPECT_EQ(machine.find("c0/e252/s5")->text("match"), "none");
        EXPECT_TRUE(machine.troubles.empty()) << machine.troubles.front().words;
        for (const Thing &thing : machine.things()) {
            if (thing.kind() < ThingKind::kController) continue;
            EXPECT_TRUE(thing.troubles.empty()) << thing.id() << thing.troubles.front().words;
        }
    }

    std::string folder;
};

TEST_F(RaidInventory, OfStorcliTiesToTheKernelsDevices) {
    const std::string pci = adapter();
    std::string data = R"("Basics":{"Controller":0,"Model":"MADE UP","Serial Number":"SV1","PCI Address":"00:)" +
                       pci.substr(5, 5) + ":0" + pci.substr(11) + R"("},"Version":{"Driver Name":"megaraid_sas"})";
    for (int i = 0; i < 3; ++i) {
        const std::string n = std::to_string(i);
        data += ",\"/c0/v" + n + "\":[{\"DG/VD\":\"" + n + "/" + n + R"(","TYPE":"RAID0","State":"Optl","Size":")" +
                std::to_string(kMebibytes[i]) + ".0 MB\",\"Name\":\"VD_" + n + "\"}],\"VD" + n +
                " Properties\":{\"Number of Blocks\":" + std::to_string(kMebibytes[i] * 2048) + "}";
    }
    for (const Drive &drive : kDrives) {
        const std::string place = "/c0/e252/s" + std::to_string(drive.slot);
        const std::string group = drive.group < 0 ? "\"-\"" : std::to_string(drive.group);
        data += ",\"Drive " + place + R"(":[{"EID:Slt":"252:)" + std::to_string(drive.slot) +
                "\",\"DID\":" + std::to_string(drive.slot + 40) + R"(,"State":")" + drive.state + "\",\"DG\":" + group +
                "}],\"Drive " + place + R"( - Detailed Information":{"SN":"             )" + drive.serial + "\"}";
    }
    write_tool("storcli64",
               "cat <<'END'\n{\"Controllers\":[{\"Command Status\":{\"Controller\":0,\"Status\":\"Success\"},"
               "\"Response Data\":{" +
                   data + "}}]}\nEND\n");
    expect_all_tied("storcli64");
}

} // namespace
