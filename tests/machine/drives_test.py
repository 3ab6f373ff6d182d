#!/usr/bin/python3
"""What the library says of each drive, field by field, against what the kernel's own tools say of it. Runs in the
machines `disks` and `many`.

usage: drives_test.py Disks|Many
"""
import ctypes
import os
import pathlib
import re
import subprocess
import unittest

import torvane
from torvane import DriveOptions, DriveType
from truth import content_of, generic_of, output_of

BLOCK = pathlib.Path("/sys/class/block")
EVERYTHING = (DriveOptions.SYSTEM | DriveOptions.GEOMETRY | DriveOptions.IDENTITY | DriveOptions.DEFECTS
              | DriveOptions.STATE | DriveOptions.RAID | DriveOptions.OPTICAL)
SCSI = {DriveType.DISK, DriveType.ISCSI}
WITH_START = SCSI | {DriveType.SOFTWARE_RAID}  # optical drives tell none


def failed(result):
    """A negative sum of results as records have it."""
    return ctypes.c_uint(result).value


def labelled(command, label):
    """The rest of the first line that begins with the label; None without one."""
    found = re.search(rf"(?m)^\s*{label}(.*)", output_of(command))
    return found and found[1].strip()


class Listing(unittest.TestCase):
    def expect_as_in_sysfs(self, drive):
        """Its numbers, size and sectors are those that the kernel gives the disk."""
        disk = BLOCK / os.path.basename(drive.name)
        self.assertEqual(f"{drive.major}:{drive.minor}", content_of(disk / "dev"))
        self.assertEqual(drive.block_size * drive.block_count, 512 * int(content_of(disk / "size")))
        self.assertEqual(str(drive.block_size), content_of(disk / "queue/logical_block_size"))
        if drive.drive_type != DriveType.OPTICAL:
            self.assertEqual(drive.device_start, 0)
            self.assertEqual(drive.geometry_result & 7, 0)


class Disks(Listing):
    @classmethod
    def setUpClass(cls):
        cls.drives = cls.enterClassContext(torvane.drives(EVERYTHING))
        cls.by_serial = {drive.serial: drive for drive in cls.drives}

    def of_type(self, types):
        return [drive for drive in self.drives if drive.drive_type in types]

    def test_are_the_whole_disks_of_the_kernel_in_its_order(self):
        names = [line.split()[3] for line in content_of("/proc/partitions").splitlines()[2:]]
        wanted = [f"/dev/{name}" for name in names
                  if not name.startswith("sr") and (BLOCK / name).exists() and not (BLOCK / name / "partition").exists()]
        self.assertEqual([drive.name for drive in self.of_type(WITH_START)], wanted)
        self.assertGreaterEqual(len(wanted), 15)

    def test_have_the_kernels_numbers_sizes_and_sectors(self):
        full = [drive for drive in self.drives if drive.block_count > 0]  # no empty tray
        for drive in full:
            with self.subTest(drive.name):
                self.expect_as_in_sysfs(drive)
        self.assertGreaterEqual(len(full), 15)
        self.assertEqual(self.by_serial["SECT4096"].block_size, 4096)

    def test_say_who_they_are_as_inquiry_says(self):
        disks = [drive for drive in self.of_type(SCSI) if drive.name.startswith("/dev/sd")]
        for drive in disks:
            inquiry = f"sg_inq {drive.name}"
            model = f"{labelled(inquiry, 'Vendor identification:')} {labelled(inquiry, 'Product identification:')}"
            serial = labelled(f"sg_vpd --page=sn {drive.name}", "Unit serial number:")
            self.assertEqual((drive.model, drive.serial, drive.generic_name, drive.specification_result),
                             (model, serial, generic_of(drive.name), 0), drive.name)
        self.assertEqual(len(disks), 14)
        self.assertLessEqual({"SATA0001", "INNO0001", "RPM7200", "PARTS24", "SECT4096", "STICK0001", "IET0001"},
                             self.by_serial.keys())

    def test_turn_as_fast_as_their_characteristics_page_says(self):
        for drive in self.of_type(SCSI):
            told = labelled(f"sg_vpd --page=bdc {drive.name}", "Nominal rotation rate:")
            rate = int(re.match(r"\d*", told)[0] or 0) if told else -1
            self.assertEqual((drive.rotation_speed, drive.geometry_result),
                             (rate if rate % 10 == 0 else -1, 0 if told else failed(-8)), drive.name)
        self.assertEqual({drive.rotation_speed for drive in self.of_type(SCSI)}, {-1, 5400, 7200})
        self.assertEqual(self.by_serial["RPM7201"].geometry_result, 0)

    def test_have_the_partitions_of_sysfs(self):
        for drive in self.of_type(WITH_START):
            # /proc/partitions counts whole kilobytes.
            wanted = {f"/dev/{path.parent.name}": 512 * int(content_of(path.parent / "size")) & ~1023
                      for path in (BLOCK / os.path.basename(drive.name)).glob("*/partition")}
            entries = drive.partitions.entries
            self.assertEqual({entry.name: entry.size & ~1023 for entry in entries}, wanted)
            self.assertEqual([entry.number for entry in entries], list(range(1, len(entries) + 1)))
            for entry in entries:
                start = ctypes.c_ulong()
                self.assertEqual((torvane.is_drive(entry.name), torvane.get_device_start(-1, entry.name, start)), (0, 0))
                self.assertEqual(str(start.value), content_of(BLOCK / os.path.basename(entry.name) / "start"))
        self.assertEqual(self.by_serial["PARTS24"].partitions.count, 24)
        self.assertGreaterEqual(sum(drive.partitions.count for drive in self.of_type(WITH_START)), 24 + 4 + 2 + 2)

    def test_are_marked_as_optical_iscsi_and_software_raid(self):
        self.assertEqual({drive.name for drive in self.of_type({DriveType.OPTICAL})}, {"/dev/sr0", "/dev/sr1"})
        self.assertEqual([(drive.model, drive.serial) for drive in self.of_type({DriveType.ISCSI})],
                         [("IET VIRTUAL-DISK", "IET0001")])
        self.assertEqual([(drive.name, drive.partitions.count) for drive in self.of_type({DriveType.SOFTWARE_RAID})],
                         [("/dev/md0", 2)])

    def test_are_found_by_number_and_by_serial(self):
        with torvane.drives_by_serial("HALF", DriveOptions.SYSTEM | DriveOptions.IDENTITY) as halves:
            self.assertEqual(len(halves), 2)
        crowded = self.by_serial["PARTS24"]
        partition = os.path.basename(crowded.partitions.entries[19].name)
        found = torvane.DriveList()
        numbers = map(int, content_of(BLOCK / partition / "dev").split(":"))
        self.assertEqual(torvane.get_drive_by_id(found, DriveOptions.IDENTITY, *numbers), 0)
        self.assertEqual([drive.name for drive in found.drives], [crowded.name])
        torvane.release_drives(found)

    def test_of_innodisk_tell_their_permission_level_and_refuse_their_firmware(self):
        drive = self.by_serial["INNO0001"]
        # SMART READ DATA, asked for by another program through another ioctl.
        data = subprocess.run(["sg_raw", "--binary", "--request=512", "--outfile=/dev/stdout", drive.name,
                               *"85 08 0e 00 d0 00 01 00 00 00 4f 00 c2 00 b0 00".split()],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
        self.assertEqual(len(data), 512)
        print("byte 55 of the SMART data:", data[55])
        is_level = data[55] <= 5
        self.assertEqual((drive.permission, drive.state_result), (data[55], 0) if is_level else (-1, failed(-1)))
        state = torvane.DeviceState()
        self.assertEqual(torvane.get_device_state_full(-1, drive.name, state), -2 if is_level else -3)
        self.assertEqual((state.permission, state.firmware_size, bool(state.firmware_image)), (drive.permission, 0, False))
        self.assertEqual(torvane.get_error_str(torvane.TORVANE_ERROR_STATE), "failed to read firmware image")
        other = self.by_serial["SATA0001"]
        self.assertEqual((other.permission, other.state_result), (-1, 0))

    def test_without_defect_lists_say_so(self):
        for drive in self.of_type(SCSI):
            command = ["sg_raw", "--request=4", drive.name, *"37 00 14 00 00 00 00 00 04 00".split()]
            answers = subprocess.run(command, capture_output=True, check=False).returncode == 0
            self.assertEqual((drive.manufacturer_defects >= 0, drive.defects_result & 1 == 0), (answers, answers), drive.name)


class Many(Listing):
    def test_disks_are_all_listed_with_their_own_serials(self):
        with torvane.drives(DriveOptions.SYSTEM | DriveOptions.GEOMETRY | DriveOptions.IDENTITY) as drives:
            self.assertEqual(len({drive.name for drive in drives}), 300)
            for drive in drives:
                self.expect_as_in_sysfs(drive)
                page = BLOCK / os.path.basename(drive.name) / "device/vpd_pg80"
                self.assertEqual(drive.serial, page.read_bytes()[4:].decode().strip())


if __name__ == "__main__":
    unittest.main(verbosity=2)
