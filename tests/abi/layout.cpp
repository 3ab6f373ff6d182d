// The records are read and written by callers that were built against an earlier header of this major version:
// their layout never moves. Built as it stands; there is nothing to run.
#include "torvane.h"

#include <cstddef>

#define EXPECT_LAYOUT(type, field, offset) static_assert(offsetof(type, field) == (offset))

static_assert(sizeof(StringList) == 16);
EXPECT_LAYOUT(StringList, strings, 8);

static_assert(sizeof(ScsiCommand) == 112);
EXPECT_LAYOUT(ScsiCommand, cdb, 8);
EXPECT_LAYOUT(ScsiCommand, sense, 58);
EXPECT_LAYOUT(ScsiCommand, direction, 92);
EXPECT_LAYOUT(ScsiCommand, data_length, 96);
EXPECT_LAYOUT(ScsiCommand, data, 104);

static_assert(sizeof(SenseSummary) == 8);
EXPECT_LAYOUT(SenseSummary, additional_sense_code, 2);
EXPECT_LAYOUT(SenseSummary, additional_sense_code_qualifier, 3);
EXPECT_LAYOUT(SenseSummary, additional_length, 7);

EXPECT_LAYOUT(DeviceSpecification, sg_name, 60);
EXPECT_LAYOUT(DeviceSpecification, model, 120);
EXPECT_LAYOUT(DeviceSpecification, serial, 180);
EXPECT_LAYOUT(DeviceSpecification, stat, 240);
EXPECT_LAYOUT(DeviceSpecification, major, 240 + sizeof(struct stat));
EXPECT_LAYOUT(DeviceSpecification, type, 248 + sizeof(struct stat));

static_assert(sizeof(PartitionRecord) == 24);
EXPECT_LAYOUT(PartitionRecord, number, 8);
EXPECT_LAYOUT(PartitionRecord, size, 16);

static_assert(sizeof(DriveRecord) == 160);
EXPECT_LAYOUT(DriveRecord, name, 8);
EXPECT_LAYOUT(DriveRecord, serial, 32);
EXPECT_LAYOUT(DriveRecord, major, 40);
EXPECT_LAYOUT(DriveRecord, device_type, 48);
EXPECT_LAYOUT(DriveRecord, block_count, 56);
EXPECT_LAYOUT(DriveRecord, block_size, 72);
EXPECT_LAYOUT(DriveRecord, rotation_speed, 80);
EXPECT_LAYOUT(DriveRecord, status, 88);
EXPECT_LAYOUT(DriveRecord, manufacturer_defects, 92);
EXPECT_LAYOUT(DriveRecord, grown_defect_bytes, 104);
EXPECT_LAYOUT(DriveRecord, partitions, 112);
EXPECT_LAYOUT(DriveRecord, location, 128);
EXPECT_LAYOUT(DriveRecord, raid_device, 136);
EXPECT_LAYOUT(DriveRecord, geometry_result, 144);
EXPECT_LAYOUT(DriveRecord, state_result, 156);

static_assert(sizeof(DriveList) == 16);
EXPECT_LAYOUT(DriveList, drives, 8);

static_assert(sizeof(DeviceGeometry) == 48);
EXPECT_LAYOUT(DeviceGeometry, rotation_speed, 24);
EXPECT_LAYOUT(DeviceGeometry, partition_count, 28);
EXPECT_LAYOUT(DeviceGeometry, partition_sizes, 40);

static_assert(sizeof(DefectCounts) == 16);
static_assert(sizeof(DeviceState) == 16);
EXPECT_LAYOUT(DeviceState, firmware_image, 8);

static_assert(sizeof(VendorProbe) == 24);
EXPECT_LAYOUT(VendorProbe, get_firmware, 8);
EXPECT_LAYOUT(VendorProbe, supports, 16);

static_assert(sizeof(RaidDrive) == 64);
EXPECT_LAYOUT(RaidDrive, location, 32);
EXPECT_LAYOUT(RaidDrive, size, 40);
EXPECT_LAYOUT(RaidDrive, controller, 56);

static_assert(sizeof(RaidDriveGroup) == 56);
EXPECT_LAYOUT(RaidDriveGroup, controller_number, 16);
EXPECT_LAYOUT(RaidDriveGroup, size, 24);
EXPECT_LAYOUT(RaidDriveGroup, drives, 40);
EXPECT_LAYOUT(RaidDriveGroup, controller, 48);

static_assert(sizeof(RaidController) == 40);
EXPECT_LAYOUT(RaidController, groups, 16);
EXPECT_LAYOUT(RaidController, drives, 32);

static_assert(sizeof(ScsiDeviceInfo) == 48);
EXPECT_LAYOUT(ScsiDeviceInfo, state, 32);
EXPECT_LAYOUT(ScsiDeviceInfo, size, 40);

static_assert(sizeof(ScsiDeviceList) == 16);
EXPECT_LAYOUT(ScsiDeviceList, count, 8);

static_assert(sizeof(MediaRecord) == 48);
EXPECT_LAYOUT(MediaRecord, status, 24);
EXPECT_LAYOUT(MediaRecord, devices, 32);

static_assert(sizeof(MediaList) == 16);
EXPECT_LAYOUT(MediaList, count, 8);
