#include "places.h"
#include "raid_tools.h"

#include <algorithm>
#include <span>

using namespace torvane::world;

namespace {

class RaidLookup : public RaidTest {
  protected:
    // The records' lines; a failure's result before them.
    template <class Record>
    static std::string told(int (*look_up)(Record **, uint32_t *), void (*release)(Record *, int)) {
        Record *records = nullptr;
        uint32_t found = 9;
        const int result = look_up(&records, &found);
        std::string text = result == 0 ? "" : std::to_string(result) + " ";
        for (const Record &record : std::span(records, found)) text += torvane::world::described(record);
        EXPECT_EQ(records == nullptr, found == 0);
        release(records, static_cast<int>(found));
        return text;
    }
    static std::string looked_up() { return told(lookup_pci_info, release_pci_info); }
    static std::string models() { return told(relate_model_to_drives, release_info_map); }
};

TEST_F(RaidLookup, AdaptersAndTheirDisks) {
    lspci("00:1f.2 SATA controller: Plain\n\tKernel modules: ahci\n\n"
          "01:00.0 RAID bus controller: One\n\tKernel driver in use: megaraid_sas\n\tKernel modules: megaraid_sas\n\n"
          "02:00.0 RAID bus controller: Two\n\tKernel modules: aacraid, megaraid_sas\n\n\n"
          "single\n\tKernel modules: megaraid_sas\n");
    EXPECT_EQ(looked_up(), "") << "no /sys/bus/pci/devices";
    adapter("01:00.0", 4);
    adapter("02:00.0", 5);
    EXPECT_EQ(looked_up(), "") << "no /sys/class/scsi_disk";
    logical_drive("sda", 0, "4:2:0:1");
    logical_drive("sdb", 16, "4:2:3:0");
    logical_drive("sdc", 32, "5:0:1:0");
    logical_drive("sdd", 48, "4:0:0:0");
    world.directory("/sys/class/scsi_disk/5:2:7:0");
    EXPECT_EQ(looked_up().substr(0, 94), "|2|0|4|0|1|01:00.0|/dev/sda|\n"
                                         "|0|0|5|0|0|02:00.0|-|\n"
                                         "|2|1|5|0|0|02:00.0|-|\n"
                                         "|2|2|0|0|0|single|-|\n");
    const std::string text = looked_up();
    for (const char *further : {"|2|0|4|3|0|-|/dev/sdb|\n", "|0|0|5|1|0|-|/dev/sdc|\n", "|2|1|5|7|0|-|-|\n"}) {
        EXPECT_NE(text.find(further), std::string::npos) << further << text;
    }
    EXPECT_EQ(text.find("sdd"), std::string::npos) << "a disk that the adapter passes through";
    PciInfo *records = nullptr;
    uint32_t found = 0;
    without_each_allocation([&] { lookup_pci_info(&(records = nullptr), &found); },
                            [&](const Trial &trial) {
                                const auto is_adapter = [](const PciInfo &record) { return record.slot != nullptr; };
                                const auto adapters = std::ranges::count_if(std::span(records, found), is_adapter);
                                EXPECT_TRUE(adapters == 4 || (trial.failed && found == 0)) << trial.at << adapters;
                                release_pci_info(records, static_cast<int>(found));
                            });
    world.directory("/sys/class/scsi_disk/odd");
    EXPECT_EQ(looked_up(), "");
}

TEST_F(RaidLookup, ModelsOfWholeDisks) {
    world.disk({.name = "sda", .vendor = "LSI", .model = "MR DATA", .partitions = {{.size = 1 << 20}}});
    world.disk({.name = "sdb", .minor = 16, .address = "1:0:0:0"});
    world.disk({.name = "sdc", .minor = 32, .address = "2:0:0:0"});
    world.remove("/dev/sdb");
    world.remove("/sys/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/2:0:0:0/vendor");
    EXPECT_EQ(models(), "|/dev/sda|LSI MR DATA|\n");
    const std::string rows = read_file("/proc/partitions");
    world.file("/proc/partitions", rows + "   8  48\n");
    EXPECT_EQ(models(), "-1 ");
    world.file("/proc/partitions", rows + std::string(1 << 20, 'x'));
    EXPECT_EQ(models(), "-1 ");
    world.remove("/proc/partitions");
    EXPECT_EQ(models(), "-1 ");
}

} // namespace
