#!/usr/bin/python3
"""USB mass storage: what the library says and does, seen with the kernel's own tools. Runs in the machine `usb`."""
import contextlib
import ctypes
import os
import pathlib
import subprocess
import threading
import time
import unittest

import torvane
from torvane import BindState, DriveType, ScsiType, UsbStatus
from truth import content_of, holds_soon, monitor, node_of, output_of

PLUG_IN = "device_add usb-storage,id=spare_stick,drive=spare,bus=xhci.0,removable=on,serial=SPARE0001"
PULL_OUT = "device_del spare_stick"


def descriptors():
    return {name: os.readlink(path) for name in os.listdir("/proc/self/fd") if os.path.exists(path := f"/proc/self/fd/{name}")}


def leftovers():
    return list(pathlib.Path("/tmp").glob("torvane.*"))


@contextlib.contextmanager
def media(serial):
    """The library's record of the interface with this serial number, or None."""
    found = torvane.get_usb_mass_storage_device(serial)
    try:
        yield found.contents if found else None
    finally:
        torvane.release_media(found)


def mounted(serial):
    """Result, and the directory or None."""
    with torvane.String() as directory:
        return torvane.create_and_mount_in_temp_dir(serial, directory), str(directory) or None


def exists_soon(serial):
    return holds_soon(lambda: node_of(serial) != "")


def later(seconds, line):
    def act():
        time.sleep(seconds)
        assert monitor(line) == "", line

    thread = threading.Thread(target=act)
    thread.start()
    return thread


class Removable(unittest.TestCase):
    def setUp(self):
        node_of("")
        monitor("info version")  # its line stays open
        self.descriptors = descriptors()

    def tearDown(self):
        self.assertEqual(descriptors(), self.descriptors)
        self.assertEqual(leftovers(), [])
        self.assertNotIn("/tmp/torvane", content_of("/proc/mounts"))

    def succeeds(self, result, category=torvane.TORVANE_ERROR_MOUNT):
        self.assertEqual(result, 0, torvane.get_error_str(category))

    def fails(self, result, words):
        self.assertEqual(result, -1)
        self.assertIn(words, torvane.get_error_str(torvane.TORVANE_ERROR_MOUNT))

    def test_lists_what_the_kernel_lists(self):
        sticks = []
        with torvane.usb_storage() as interfaces:
            for interface in interfaces:
                device = interface.devices.devices[0]
                if interface.status != UsbStatus.DEVICE or device.type != ScsiType.DISK:
                    continue
                sticks.append(interface.serial)
                self.assertEqual((device.serial, device.state), (interface.serial, BindState.NODE))
                told = f"{device.name} {device.address} {device.size * 512} {interface.serial} {device.model}"
                self.assertEqual(told, output_of(f"lsblk -bdno NAME,HCTL,SIZE,SERIAL,VENDOR,MODEL /dev/{device.name} | xargs"))
        self.assertEqual(sorted(sticks), ["4C5300012301", "4C530001230101", "4C530001230102", "BARE0001", "EXTENDED0001",
                                          "HANGING0001", "PARTED0001"])
        with media("4C530001230102") as one:
            self.assertEqual(one.serial, "4C530001230102")

    def test_the_card_reader_is_one_adapter_and_its_slots_are_themselves(self):
        with media("READER0001") as reader:
            self.assertEqual((reader.devices.count, torvane.get_usb_status(reader)), (2, UsbStatus.ADAPTER))
            for slot in reader.devices.devices:
                self.assertEqual(slot.model, f"CARD SLOT {slot.address[-1]}")
                self.assertEqual(slot.name, output_of(f"ls /sys/bus/scsi/devices/{slot.address}/block"))
        with torvane.drives(torvane.DriveOptions.SYSTEM | torvane.DriveOptions.USB) as drives:
            told = {drive.serial: (drive.name, drive.drive_type, drive.status) for drive in drives}
            self.assertEqual(told["READER0001"][:2], (None, DriveType.ADAPTER))
            self.assertEqual(told["BARE0001"], (node_of("BARE0001"), DriveType.REMOVABLE, BindState.NODE))
            self.assertEqual(len([drive for drive in drives if drive.drive_type == DriveType.ADAPTER]), 1)

    def test_unbinding_takes_the_disk_away_and_binding_brings_it_back(self):
        with media("BARE0001") as before:
            device, node = before.devices.devices[0], node_of("BARE0001")
            driver = f"/sys/bus/scsi/drivers/sd/{device.address}"
            self.succeeds(torvane.unbind_from_driver("BARE0001"))
            self.assertEqual((node_of("BARE0001"), os.path.exists(driver)), ("", False))
            self.assertTrue(holds_soon(lambda: not os.path.exists(node)))
            self.succeeds(torvane.bind_to_driver_with_wait_for_devices("BARE0001"))
            self.assertTrue(os.path.exists(driver) and exists_soon("BARE0001"))
            # A kernel that refuses shows as a failure: the device is bound already.
            device.state = BindState.UNBOUND
            self.assertEqual(torvane.bind_device_to_driver(before, "BARE0001"), -1)
            self.assertEqual(device.state, BindState.UNBOUND)
        # The kernel keeps its node in /dev as long as the disk is there.
        output_of("udevadm settle")
        begin = time.monotonic()
        self.fails(torvane.bind_to_driver_with_wait_for_driver("BARE0001"), "failed to wait for file to be deleted")
        self.assertLess(time.monotonic() - begin, 15)
        self.assertFalse(os.path.exists(driver))
        self.succeeds(torvane.change_state("BARE0001", BindState.NODE))
        self.assertTrue(exists_soon("BARE0001"))
        output_of("udevadm settle")

    def test_nodes_go_and_come_with_the_kernels_numbers(self):
        node = node_of("PARTED0001")
        nodes = [node, node + "1", node + "2"]
        self.succeeds(torvane.remove_device_nodes("PARTED0001"))
        self.assertFalse(any(map(os.path.exists, nodes)))
        with media("PARTED0001") as stick:
            self.assertEqual(torvane.get_media_status(stick), BindState.BOUND)
        self.succeeds(torvane.change_state("PARTED0001", BindState.NODE), torvane.TORVANE_ERROR_DEVICE)
        for path in nodes:
            status = os.stat(path)
            self.assertEqual((f"{os.major(status.st_rdev)}:{os.minor(status.st_rdev)}", oct(status.st_mode)),
                             (content_of(f"/sys/class/block/{os.path.basename(path)}/dev"), "0o60000"))
        self.succeeds(torvane.remove_device_nodes("PARTED0001"))
        self.succeeds(torvane.unbind_from_driver("PARTED0001"))
        self.succeeds(torvane.bind_to_driver_with_wait_for_devices("PARTED0001"))
        self.assertTrue(holds_soon(lambda: os.path.exists(node_of("PARTED0001") + "2")))
        output_of("udevadm settle")

    def test_mounts_show_the_files_read_only_and_go_without_a_trace(self):
        result, bare = mounted("BARE0001")
        self.succeeds(result)
        place = bare + node_of("BARE0001").removeprefix("/dev") + "_mount"
        self.assertEqual(content_of(place + "/torvane.txt"), "a known file")
        self.assertLessEqual({"ro", "nosuid"}, set(output_of(f"findmnt -no OPTIONS {place}").split(",")))
        with open(place + "/torvane.txt", encoding="utf-8"):
            self.fails(torvane.remove_and_umount_in_temp_dir(bare), f"failed to unmount '{place}")
            self.assertEqual(torvane.is_mounted(place), 1)
        self.succeeds(torvane.remove_and_umount_in_temp_dir(bare))

        result, directory = mounted("PARTED")
        self.succeeds(result)
        parted = directory + node_of("PARTED0001").removeprefix("/dev")
        self.assertEqual(content_of(parted + "1_mount/torvane.txt"), "a file on FAT")
        self.assertEqual(content_of(parted + "2_mount/torvane.txt"), "a file on ext4")
        self.assertFalse(os.path.exists(parted + "_mount"))
        self.succeeds(torvane.remove_and_umount_in_temp_dir(directory))
        self.assertEqual(mounted("4C530001230101"), (-1, None), "no file system")

    def test_optical_drives_tell_tray_and_disc(self):
        def node_of_drive(serial):
            with media(serial) as drive:
                self.assertEqual(drive.devices.devices[0].type, ScsiType.OPTICAL)
                return "/dev/" + drive.devices.devices[0].name

        def status(serial):
            tray, disc = ctypes.c_uint(7), ctypes.c_uint(7)
            return torvane.get_optical_drive_status(node_of_drive(serial), tray, disc), tray.value, disc.value

        self.assertEqual(status("LOADED0001"), (0, 0, 1))
        self.assertEqual(status("VACANT0001"), (0, 0, 0))
        for how, tray_and_disc in ("--eject", (0, 1, 0)), ("--load", (0, 0, 1)):
            node = node_of_drive("LOADED0001")
            # The device manager may have locked the door.
            subprocess.run(f"sg_prevent --allow {node}; sg_start {how} {node}", shell=True, check=True)
            self.assertEqual(status("LOADED0001"), tray_and_disc)

    def test_waits_end_when_the_kernel_makes_and_removes_a_node(self):
        # The kernel gives out the first free one.
        name = next(f"sd{letter}" for letter in "abcdefghijklmnop" if not os.path.exists(f"/sys/block/sd{letter}"))
        for wait, line in (torvane.wait_till_file_is_created, PLUG_IN), (torvane.wait_till_file_is_deleted, PULL_OUT):
            hand = later(0, line)
            self.assertEqual(wait("/dev", name, 30), 0)
            hand.join()
            self.assertEqual(os.path.exists("/dev/" + name), line == PLUG_IN)

    def list_for_a_while(self, _pull):
        end = time.monotonic() + 1.5
        while time.monotonic() < end:
            found = torvane.MediaList()
            result = torvane.get_usb_mass_storage_devices(found)
            self.assertTrue(result == 0 or (result == -1 and not found.raw_media))
            torvane.release_media_list(found)

    def mount_and_unmount(self, pull):
        result, directory = mounted("SPARE0001")
        pull.join()
        self.assertEqual(directory is not None, result == 0)
        if directory:
            self.succeeds(torvane.remove_and_umount_in_temp_dir(directory))

    def bind_and_wait(self, _pull):
        # Pulled before, within or after the wait for its node.
        for step in torvane.unbind_from_driver, torvane.bind_to_driver_with_wait_for_driver:
            self.assertIn(step("SPARE0001"), (0, -1))

    def test_a_stick_pulled_during_a_call_ends_it_in_time_and_leaves_nothing(self):
        for call, delay in [(self.list_for_a_while, 0), (self.list_for_a_while, 0.04), (self.list_for_a_while, 0.08),
                            (self.mount_and_unmount, 0), (self.mount_and_unmount, 0.1), (self.mount_and_unmount, 0.2),
                            (self.bind_and_wait, 0.5)]:
            self.assertEqual(monitor(PLUG_IN), "")
            self.assertTrue(exists_soon("SPARE0001"))
            output_of("udevadm settle")
            pull = later(delay, PULL_OUT)
            begin = time.monotonic()
            call(pull)
            self.assertLess(time.monotonic() - begin, 30)
            pull.join()
            # Once the kernel's driver has let go of it.
            self.assertTrue(holds_soon(lambda: "SPARE" not in output_of("cat /sys/bus/usb/devices/*/serial")))
            with media("SPARE0001") as gone:
                self.assertIsNone(gone)
            self.assertEqual(leftovers(), [])
        self.assertEqual(torvane.bind_to_driver_with_wait_for_driver("SPARE0001"), -1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
