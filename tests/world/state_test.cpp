#include "world.h"

#include "torvane.h"

#include <fcntl.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>

#include <cstring>

using namespace torvane::world;

namespace {

struct StateDeleter {
    void operator()(DriveRecord *drive) const { release_drive(drive); }
};
using OwnedDrive = std::unique_ptr<DriveRecord, StateDeleter>;

class VendorState : public WorldTest {
  protected:
    VendorState() { category = TORVANE_ERROR_STATE; }

    std::shared_ptr<FakeDisk> drive_of(const std::string &model) {
        return world.disk({.name = "sda", .vendor = "ATA", .model = model});
    }

    // A drive record with a model, as identity leaves it.
    static OwnedDrive record(const char *model) {
        OwnedDrive drive(init_drive("/dev/sda"));
        drive->model = duplicate_str(model);
        return drive;
    }

    // A MEMKOR drive: the two registers, an image of so many sectors, and how its sense data comes back.
    struct Memkor {
        unsigned char device_register = 0;
        unsigned char error_register = 0;
        int32_t sectors = 0;
        int failing_sector = -1;
        int failing_command = -1;
        unsigned char first_sense_byte = 0x72;
    };
    static void answer_memkor(const Memkor &memkor) {
        answers().ioctl = [=](int /*fd*/, unsigned long request, void *argument) {
            if (request != SG_IO) return -1;
            auto &header = *static_cast<sg_io_hdr_t *>(argument);
            const unsigned char *cdb = header.cmdp;
            const bool data_in = cdb[14] == 0x85;
            EXPECT_EQ(header.cmd_len, 16);
            EXPECT_EQ(header.timeout, 10000U);
            EXPECT_EQ(header.dxfer_direction, data_in ? SG_DXFER_FROM_DEV : SG_DXFER_NONE);
            EXPECT_EQ(header.flags, data_in ? 0x10000U : 0U);
            EXPECT_EQ(Bytes(cdb, cdb + 3), data_in ? (Bytes{0x85, 0x08, 0x2E}) : (Bytes{0x85, 0x06, 0x20}));
            const int sector = cdb[8] + (cdb[10] << 8) + (cdb[12] << 16);
            if (cdb[14] == memkor.failing_command) return -1;
            if (cdb[14] == 0x85 && cdb[4] == 2 && sector == memkor.failing_sector) return -1;
            if (cdb[14] == 0x85 && cdb[4] == 1) std::memcpy(header.dxferp, &memkor.sectors, sizeof memkor.sectors);
            if (cdb[14] == 0x85 && cdb[4] == 2) std::memset(header.dxferp, sector % 251, header.dxfer_len);
            const Bytes sense = {memkor.first_sense_byte, 0, 0, 0, 0, 0, 0, 0x0E, 0x09, 0x0C, 0, memkor.error_register};
            std::memcpy(header.sbp, sense.data(), sense.size());
            header.sbp[20] = memkor.device_register;
            return 0;
        };
    }
};

TEST_F(VendorState, TheModelTextChoosesTheMaker) {
    EXPECT_EQ(select_vendor_probe("ATA Innodisk 3ME MEMKOR"), &innodisk_funcs);
    EXPECT_EQ(select_vendor_probe("MEMKOR SSD"), &memkor_funcs);
    EXPECT_EQ(select_vendor_probe("a YATAPDONG"), &memkor_funcs);
    for (const char *other : {"innodisk", "MEMKO", "", static_cast<const char *>(nullptr)}) {
        const VendorProbe *probe = select_vendor_probe(other);
        EXPECT_NE(probe, &innodisk_funcs);
        EXPECT_NE(probe, &memkor_funcs);
        EXPECT_EQ(probe->supports(other), 1);
    }
}

TEST_F(VendorState, OtherMakersAreNotSentACommand) {
    drive_of("Example Disk");
    const OwnedDrive drive = record("ATA Example Disk");
    drive->permission = 7;
    EXPECT_EQ(get_drive_state("/dev/sda", drive.get()), 0);
    EXPECT_EQ(drive->permission, -1);
    DeviceState state = {7, 7, reinterpret_cast<unsigned char *>(&state)};
    EXPECT_EQ(get_device_state_full(-1, "/dev/sda", &state), 0);
    EXPECT_EQ(state.permission, -1);
    EXPECT_EQ(state.firmware_size, -1);
    EXPECT_EQ(state.firmware_image, nullptr);
    EXPECT_EQ(answers().log, std::vector<std::string>{});
}

TEST_F(VendorState, InnodiskPermissionIsTheSmartByteUpToFive) {
    const auto disk = drive_of("Innodisk 3ME");
    const OwnedDrive drive = record("ATA Innodisk 3ME");
    set_error_str(TORVANE_ERROR_STATE, "untouched");
    for (int level = 0; level <= 255; ++level) {
        disk->be_innodisk(static_cast<unsigned char>(level));
        EXPECT_EQ(get_drive_state("/dev/sda", drive.get()), level <= 5 ? 0 : -1);
        EXPECT_EQ(drive->permission, level <= 5 ? level : -1);
    }
    EXPECT_EQ(error(), "untouched");
    disk->failing = {HDIO_DRIVE_CMD};
    disk->request = nullptr;
    EXPECT_EQ(said(get_drive_state("/dev/sda", drive.get())), "-1 failed to read permissions of device");
}

TEST_F(VendorState, InnodiskImageIsReadWholeOrNotAtAll) {
    const auto disk = drive_of("Innodisk 3ME");
    disk->be_innodisk(3);
    DeviceState state{};
    ASSERT_EQ(get_device_state_full(-1, "/dev/sda", &state), 0);
    EXPECT_EQ(state.permission, 3);
    ASSERT_EQ(state.firmware_size, 40960);
    for (int sector = 0; sector < 80; ++sector) {
        EXPECT_EQ(state.firmware_image[sector * 512], sector + 1);
        EXPECT_EQ(state.firmware_image[sector * 512 + 511], sector + 1);
    }
    free(state.firmware_image);
    for (const int failing : {0, 40, 79}) {
        disk->be_innodisk(9, [failing](int sector) { return sector == failing; });
        EXPECT_EQ(get_device_state_full(-1, "/dev/sda", &state), -3);
        EXPECT_EQ(state.permission, -1);
        EXPECT_EQ(state.firmware_size, 0);
        EXPECT_EQ(state.firmware_image, nullptr);
        EXPECT_EQ(error(), "failed to read firmware image");
        int size = 1;
        unsigned char *image = nullptr;
        EXPECT_EQ(innodisk_funcs.get_firmware(-1, "/dev/sda", &size, &image), -2);
    }
}

TEST_F(VendorState, MemkorPermissionComesFromTwoRegisters) {
    drive_of("MEMKOR");
    const OwnedDrive drive = record("ATA MEMKOR");
    const auto level = [&](const Memkor &memkor, int expected_result) {
        answer_memkor(memkor);
        drive->permission = 9;
        EXPECT_EQ(get_drive_state("/dev/sda", drive.get()), expected_result);
        return drive->permission;
    };
    EXPECT_EQ(level({.device_register = 0xF7}, 0), 1);
    EXPECT_EQ(level({.device_register = 0x08}, 0), 3);
    EXPECT_EQ(level({.device_register = 0x08, .error_register = 4}, 0), 2);
    EXPECT_EQ(level({.error_register = 1}, 0), 2);
    EXPECT_EQ(level({.failing_command = 0x86}, -1), 0);
    EXPECT_EQ(level({.failing_command = 0x88}, -1), 0);
    EXPECT_EQ(level({.first_sense_byte = 0x70}, -1), 0);
}

TEST_F(VendorState, MemkorImageHasTheLengthThatTheDriveTells) {
    drive_of("YATAPDONG");
    DeviceState state{};
    answer_memkor({.sectors = 66'000});
    ASSERT_EQ(get_device_state_full(-1, "/dev/sda", &state), 0);
    ASSERT_EQ(state.firmware_size, 66'000 * 512);
    for (int sector = 0; sector < 66'000; ++sector) {
        ASSERT_EQ(state.firmware_image[sector * 512 + 511], sector % 251);
    }
    free(state.firmware_image);
    for (const Memkor &bad :
         {Memkor{.sectors = 0}, Memkor{.sectors = -1}, Memkor{.sectors = INT32_MAX}, Memkor{.sectors = 0x400000},
          Memkor{.sectors = 9, .failing_sector = 0}, Memkor{.sectors = 9, .failing_sector = 8}}) {
        answer_memkor(bad);
        EXPECT_EQ(get_device_state_full(-1, "/dev/sda", &state), -2);
        EXPECT_EQ(state.firmware_size, 0);
        EXPECT_EQ(state.firmware_image, nullptr);
    }
}

TEST_F(VendorState, DrivesThatCannotBeAskedSayWhy) {
    drive_of("Innodisk 3ME");
    const OwnedDrive drive = record(nullptr);
    EXPECT_EQ(said(get_drive_state("/dev/none", drive.get())), "1 failed to open '/dev/none'");
    EXPECT_EQ(said(get_drive_state("/dev/sda", drive.get())), "-1 no model specified for '/dev/sda'");
}

TEST_F(VendorState, WhatCannotBeOpenedIsToldInTheCallersCategory) {
    DeviceSpecification specification = {};
    DefectCounts defects = {};
    DeviceGeometry geometry = {};
    DeviceState state = {7, 7, nullptr};
    int32_t rotation = 0;
    const char *path = "/dev/none";
    const struct {
        uint32_t category;
        std::function<int()> call;
        int result;
    } kCalls[] = {
        {TORVANE_ERROR_IDENTITY, [&] { return get_device_specification(-1, path, &specification); }, -7},
        {TORVANE_ERROR_DEFECTS, [&] { return get_device_defects(-1, path, &defects); }, -3},
        {TORVANE_ERROR_GEOMETRY, [&] { return get_device_geometry(-1, path, &geometry); }, -62},
        {TORVANE_ERROR_GEOMETRY, [&] { return get_device_rotation(-1, path, &rotation); }, -8},
        {TORVANE_ERROR_STATE, [&] { return get_device_state(-1, path, &state); }, -1},
        {TORVANE_ERROR_STATE, [&] { return get_device_state_full(-1, path, &state); }, -3},
    };
    for (const auto &call : kCalls) {
        set_error_str(call.category, "another");
        EXPECT_EQ(call.call(), call.result);
        EXPECT_EQ(text_of(call.category), "failed to open '/dev/none'");
    }
    EXPECT_EQ(state.permission + state.firmware_size, 14) << "untouched";
}

} // namespace
