// Runs in the machines `disks` and `many`: what the library says of each drive, field by field, against what the
// kernel's own tools say of it there.
#include "readers.h"
#include "torvane.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace truth;

constexpr DriveOptions kEverything = DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY |
                                     DRIVE_OPTION_DEFECTS | DRIVE_OPTION_STATE | DRIVE_OPTION_RAID |
                                     DRIVE_OPTION_OPTICAL;

// The rest of the first line that begins with the label; nothing without one.
std::optional<std::string> labelled(const std::string &text, const std::string &label) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string plain = trimmed(line);
        if (plain.rfind(label, 0) == 0) return trimmed(plain.substr(label.size()));
    }
    return std::nullopt;
}

std::string text(const char *string) { return string == nullptr ? "(null)" : string; }

struct Drives : DriveList {
    explicit Drives(DriveOptions options) : DriveList{} { result = get_drives(this, options, nullptr, 0); }
    Drives(const Drives &) = delete;
    Drives &operator=(const Drives &) = delete;
    ~Drives() { release_drives(this); }

    std::vector<const DriveRecord *> all() const { return {drives, drives + count}; }
    const DriveRecord *find(const std::string &serial) const {
        for (const DriveRecord *drive : all()) {
            if (text(drive->serial) == serial) return drive;
        }
        return nullptr;
    }
    int result = -1;
};

// Rotations a minute that the library accepts of what the drive says; nothing where it must say "failed".
std::optional<int> expected_rotation(const std::string &node) {
    const auto rate = labelled(output_of("sg_vpd --page=bdc " + node), "Nominal rotation rate:");
    if (!rate) return std::nullopt;
    const int rpm = std::atoi(rate->c_str());
    return rpm % 10 == 0 ? rpm : -1;
}

// Its numbers, size and sectors are those that the kernel gives the disk.
void expect_as_in_sysfs(const DriveRecord &drive) {
    const fs::path disk = "/sys/class/block" / fs::path(text(drive.name)).filename();
    SCOPED_TRACE(disk);
    EXPECT_EQ(std::to_string(drive.major) + ":" + std::to_string(drive.minor), content_of(disk / "dev"));
    EXPECT_EQ(drive.block_size * drive.block_count, 512 * std::stoull(content_of(disk / "size")));
    EXPECT_EQ(std::to_string(drive.block_size), content_of(disk / "queue/logical_block_size"));
    if (drive.drive_type == DRIVE_TYPE_OPTICAL) return; // they tell no start
    EXPECT_EQ(drive.device_start, 0U);
    EXPECT_EQ(drive.geometry_result & ~uint32_t{7}, drive.geometry_result);
}

class Disks : public testing::Test {
  protected:
    static void SetUpTestSuite() { drives_ = std::make_unique<Drives>(kEverything); }
    static void TearDownTestSuite() { drives_.reset(); }
    void SetUp() override { ASSERT_EQ(drives_->result, 0) << get_error_str(TORVANE_ERROR_DRIVE_LIST); }

    static std::vector<const DriveRecord *> of_type(std::set<DriveType> types) {
        std::vector<const DriveRecord *> chosen;
        for (const DriveRecord *drive : drives_->all()) {
            if (types.contains(drive->drive_type)) chosen.push_back(drive);
        }
        return chosen;
    }
    static std::vector<const DriveRecord *> scsi_disks() { return of_type({DRIVE_TYPE_DISK, DRIVE_TYPE_ISCSI}); }

    static std::unique_ptr<Drives> drives_;
};
std::unique_ptr<Drives> Disks::drives_;

TEST_F(Disks, AreTheWholeDisksOfTheKernelInItsOrder) {
    std::vector<std::string> expected;
    std::ifstream partitions("/proc/partitions");
    for (std::string line; std::getline(partitions, line);) {
        const std::string name = line.substr(line.find_last_of(' ') + 1);
        if (name.rfind("sr", 0) == 0) continue; // optical drives tell no start: theirs is another source
        if (!name.empty() && fs::exists("/sys/class/block/" + name) &&
            !fs::exists("/sys/class/block/" + name + "/partition")) {
            expected.push_back("/dev/" + name);
        }
    }
    std::vector<std::string> listed;
    for (const DriveRecord *drive : of_type({DRIVE_TYPE_DISK, DRIVE_TYPE_ISCSI, DRIVE_TYPE_SOFTWARE_RAID})) {
        listed.push_back(text(drive->name));
    }
    EXPECT_EQ(listed, expected);
    EXPECT_GE(listed.size(), 15U);
}

TEST_F(Disks, HaveTheKernelsNumbersSizesAndSectors) {
    std::size_t compared = 0;
    for (const DriveRecord *drive : drives_->all()) {
        if (drive->block_count == 0) continue; // an empty tray
        expect_as_in_sysfs(*drive);
        ++compared;
    }
    EXPECT_GE(compared, 15U);
    ASSERT_NE(drives_->find("SECT4096"), nullptr);
    EXPECT_EQ(drives_->find("SECT4096")->block_size, 4096U);
}

TEST_F(Disks, SayWhoTheyAreAsInquirySays) {
    size_t compared = 0;
    for (const DriveRecord *drive : scsi_disks()) {
        const std::string name = text(drive->name);
        if (name.rfind("/dev/sd", 0) != 0) continue;
        const std::string inquiry = output_of("sg_inq " + name);
        EXPECT_EQ(text(drive->model),
                  *labelled(inquiry, "Vendor identification:") + " " + *labelled(inquiry, "Product identification:"));
        const auto serial = labelled(output_of("sg_vpd --page=sn " + name), "Unit serial number:");
        ASSERT_TRUE(serial) << name;
        EXPECT_EQ(text(drive->serial), *serial) << name;
        EXPECT_EQ(text(drive->generic_name), generic_of(name)) << name;
        EXPECT_EQ(drive->specification_result, 0U) << name;
        ++compared;
    }
    EXPECT_EQ(compared, 14U);
    for (const char *serial : {"SATA0001", "INNO0001", "RPM7200", "PARTS24", "SECT4096", "STICK0001", "IET0001"}) {
        EXPECT_NE(drives_->find(serial), nullptr) << serial;
    }
}

TEST_F(Disks, TurnAsFastAsTheirCharacteristicsPageSays) {
    std::set<int> rates;
    for (const DriveRecord *drive : scsi_disks()) {
        const std::string name = text(drive->name);
        const auto expected = expected_rotation(name);
        EXPECT_EQ(drive->rotation_speed, expected.value_or(-1)) << name;
        EXPECT_EQ(drive->geometry_result, expected ? 0U : static_cast<uint32_t>(-8)) << name;
        rates.insert(drive->rotation_speed);
    }
    EXPECT_EQ(rates, (std::set<int>{-1, 5400, 7200}));
    EXPECT_EQ(drives_->find("RPM7201")->geometry_result, 0U);
}

TEST_F(Disks, HaveThePartitionsOfSysfs) {
    size_t seen = 0;
    for (const DriveRecord *drive : of_type({DRIVE_TYPE_DISK, DRIVE_TYPE_ISCSI, DRIVE_TYPE_SOFTWARE_RAID})) {
        const std::string disk = fs::path(text(drive->name)).filename();
        std::map<std::string, uint64_t> expected;
        std::map<std::string, uint64_t> listed;
        for (const auto &entry : fs::directory_iterator("/sys/class/block/" + disk)) {
            if (!fs::exists(entry.path() / "partition")) continue;
            expected["/dev/" + entry.path().filename().string()] = 512 * std::stoull(content_of(entry.path() / "size"));
        }
        for (uint32_t i = 0; i < drive->partitions.count; ++i) {
            const PartitionRecord &partition = drive->partitions.entries[i];
            EXPECT_EQ(partition.number, i + 1);
            listed[text(partition.name)] = partition.size & ~uint64_t{1023};
            EXPECT_EQ(is_drive(partition.name), 0) << partition.name;
            uint64_t start = 0;
            EXPECT_EQ(get_device_start(-1, partition.name, &start), 0);
            EXPECT_EQ(std::to_string(start),
                      content_of("/sys/class/block/" + fs::path(partition.name).filename().string() + "/start"));
        }
        // /proc/partitions counts whole kilobytes.
        for (auto &[name, size] : expected) size &= ~uint64_t{1023};
        EXPECT_EQ(listed, expected) << disk;
        seen += listed.size();
    }
    EXPECT_EQ(drives_->find("PARTS24")->partitions.count, 24U);
    EXPECT_GE(seen, 24U + 4 + 2 + 2);
}

TEST_F(Disks, AreMarkedAsOpticalIscsiAndSoftwareRaid) {
    std::set<std::string> optical;
    for (const DriveRecord *drive : of_type({DRIVE_TYPE_OPTICAL})) optical.insert(text(drive->name));
    EXPECT_EQ(optical, (std::set<std::string>{"/dev/sr0", "/dev/sr1"}));
    const auto iscsi = of_type({DRIVE_TYPE_ISCSI});
    ASSERT_EQ(iscsi.size(), 1U);
    EXPECT_EQ(text(iscsi[0]->model), "IET VIRTUAL-DISK");
    EXPECT_EQ(text(iscsi[0]->serial), "IET0001");
    const auto arrays = of_type({DRIVE_TYPE_SOFTWARE_RAID});
    ASSERT_EQ(arrays.size(), 1U);
    EXPECT_EQ(text(arrays[0]->name), "/dev/md0");
    EXPECT_EQ(arrays[0]->partitions.count, 2U);
}

TEST_F(Disks, AreFoundByNumberAndBySerial) {
    DriveList found{};
    ASSERT_EQ(get_drive_by_serial(&found, DRIVE_OPTION_SYSTEM | DRIVE_OPTION_IDENTITY, "HALF"), 0);
    EXPECT_EQ(found.count, 2U);
    release_drives(&found);
    const DriveRecord *crowded = drives_->find("PARTS24");
    const fs::path partition = fs::path(crowded->partitions.entries[19].name).filename();
    unsigned major = 0;
    unsigned minor = 0;
    ASSERT_EQ(std::sscanf(content_of("/sys/class/block" / partition / "dev").c_str(), "%u:%u", &major, &minor), 2);
    ASSERT_EQ(get_drive_by_id(&found, DRIVE_OPTION_IDENTITY, major, minor), 0);
    ASSERT_EQ(found.count, 1U);
    EXPECT_EQ(text(found.drives[0]->name), text(crowded->name));
    release_drives(&found);
}

// The 512 bytes of SMART READ DATA, asked for by another program through another ioctl.
std::string smart_data(const std::string &node) {
    return bytes_of("sg_raw --binary --request=512 --outfile=/dev/stdout " + node +
                    " 85 08 0e 00 d0 00 01 00 00 00 4f 00 c2 00 b0 00");
}

TEST_F(Disks, OfInnodiskTellTheirPermissionLevelAndRefuseTheirFirmware) {
    const DriveRecord *drive = drives_->find("INNO0001");
    ASSERT_NE(drive, nullptr);
    const std::string data = smart_data(text(drive->name));
    ASSERT_EQ(data.size(), 512U);
    const int level = static_cast<unsigned char>(data[55]);
    std::printf("byte 55 of the SMART data: %d\n", level);
    EXPECT_EQ(drive->permission, level <= 5 ? level : -1);
    EXPECT_EQ(drive->state_result, level <= 5 ? 0U : static_cast<uint32_t>(-1));
    DeviceState state{};
    EXPECT_EQ(get_device_state_full(-1, drive->name, &state), level <= 5 ? -2 : -3);
    EXPECT_EQ(state.permission, drive->permission);
    EXPECT_EQ(state.firmware_size, 0);
    EXPECT_EQ(state.firmware_image, nullptr);
    EXPECT_STREQ(get_error_str(TORVANE_ERROR_STATE), "failed to read firmware image");
    EXPECT_EQ(drives_->find("SATA0001")->permission, -1);
    EXPECT_EQ(drives_->find("SATA0001")->state_result, 0U);
}

TEST_F(Disks, WithoutDefectListsSaySo) {
    for (const DriveRecord *drive : scsi_disks()) {
        const bool answers =
            std::system(("sg_raw --request=4 " + text(drive->name) + " 37 00 14 00 00 00 00 00 04 00 >/dev/null 2>&1")
                            .c_str()) == 0;
        EXPECT_EQ(drive->manufacturer_defects >= 0, answers) << text(drive->name);
        EXPECT_EQ((drive->defects_result & 1) != 0, !answers) << text(drive->name);
    }
}

TEST(Many, DisksAreAllListedWithTheirOwnSerials) {
    const Drives drives(DRIVE_OPTION_SYSTEM | DRIVE_OPTION_GEOMETRY | DRIVE_OPTION_IDENTITY);
    ASSERT_EQ(drives.result, 0);
    ASSERT_EQ(drives.count, 300U);
    std::set<std::string> names;
    for (const DriveRecord *drive : drives.all()) {
        const fs::path name = fs::path(text(drive->name)).filename();
        expect_as_in_sysfs(*drive);
        const std::string page = content_of("/sys/block" / name / "device/vpd_pg80");
        ASSERT_GT(page.size(), 4U);
        EXPECT_EQ(text(drive->serial), trimmed(page.substr(4))) << name;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 300U);
}

} // namespace
