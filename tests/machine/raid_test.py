#!/usr/bin/python3
"""Controllers of the machine `raid`: real adapter, driver, lspci and /sys; only the makers' tools are made up, from what
the kernel's own tools show there. The library is asked with megacli, the tool with storcli.

usage: raid_test.py TORVANE
"""
import json
import os
import pathlib
import subprocess
import sys
import unittest

import torvane
from torvane import DriveOptions, DriveType, RaidType
from truth import generic_of, node_of, output_of

LOGICAL = """Virtual Drive: {0} (Target Id: {0})
Name                :{1}
RAID Level          : Primary-0, Secondary-0, RAID Level Qualifier-0
Size                : 64.0 MB
State               : Optimal
Number Of Drives    : 1

"""
PHYSICAL = """Enclosure Device ID: 252
Slot Number: {0}
{2}Enclosure position: 1
Non Coerced Size: 65.0 MB [0x20800 Sectors]
Coerced Size: 64.0 MB [0x20000 Sectors]
Inquiry Data: ACME PLAIN {1}\x20

"""
GROUP = "Drive's position: DiskGroup: {}, Span: 0, Arm: 0\n"
TORVANE = sys.argv.pop(1)
PATH = os.environ["PATH"]


def make_tool(name, script):
    """Alone in the folder that is returned."""
    folder = pathlib.Path("/tmp", "only-" + name)
    folder.mkdir()
    folder.joinpath(name).write_text("#!/bin/sh\ntouch tool.log\n" + script, encoding="utf-8")
    folder.joinpath(name).chmod(0o755)
    return folder


class Raid(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        units = [(line[1:].split(":"), line.split()[-2]) for line in output_of("lsscsi --generic").splitlines()]
        cls.volumes = {address[2]: node for address, node in units if int(address[1]) == RaidType.LSI}  # by target
        # Nine is on no target; the SATA disk's model ends so, cut to the 16 bytes of INQUIRY.
        groups = [(target, f"VD_{target}") for target in sorted(cls.volumes)] + [(9, "DIS")]
        members = [(4, "PLAIN1", 0), (5, "PLAIN2", 1), (6, "NOWHERE", 2), (7, "GONE", 3), (8, "SATA0001", None)]
        logical = "Adapter 0 -- Virtual Drive Information:\n" + "".join(LOGICAL.format(*group) for group in groups)
        physical = "Adapter #0\n\n" + "".join(PHYSICAL.format(slot, serial, "" if group is None else GROUP.format(group))
                                              for slot, serial, group in members)
        folder = make_tool("megacli", f"case $1 in\n-ldinfo) cat <<'END'\n{logical}END\n;;\n"
                                      f"-pdlist) cat <<'END'\n{physical}END\n;;\nesac\n")
        os.environ["PATH"] = f"{folder}:{PATH}"

    def test_logical_and_physical_drives_get_the_kernels_names(self):
        self.assertEqual(self.volumes, {str(i): node_of(f"VOLUME{i}") for i in range(3)})
        generic = [generic_of(node_of(serial)) for serial in ("PLAIN1", "PLAIN2", "SATA0001")]
        with torvane.raids() as controllers:
            self.assertEqual(len(controllers), 1)
            groups = controllers[0].groups
            self.assertEqual([(str(group.logical_number), group.device) for group in groups],
                             [*sorted(self.volumes.items()), ("9", node_of("SATA0001"))])
            self.assertEqual([group.drives[0].device for group in groups[:3]], [*generic[:2], "/dev/sg_raid_2_0_6"])
            self.assertEqual([drive.device for drive in controllers[0].drives], generic[2:])

    def test_members_are_listed_instead_of_their_logical_drives(self):
        hidden = [*self.volumes.values(), node_of("SATA0001")]
        nodes = output_of("lsblk --nodeps --noheadings --paths --output NAME").split()
        members = [*(generic_of(node_of(serial)) for serial in ("PLAIN1", "PLAIN2", "SATA0001")),
                   "/dev/sg_raid_2_0_6", "/dev/sg_raid_2_0_7"]
        self.assertLessEqual(set(hidden), set(nodes))
        with torvane.drives(DriveOptions.SYSTEM | DriveOptions.IDENTITY | DriveOptions.RAID) as drives:
            told = [(drive.name, drive.drive_type == DriveType.RAID_MEMBER) for drive in drives]
            self.assertEqual(sorted(told), sorted([(node, False) for node in nodes if node not in hidden]
                                                  + [(node, True) for node in members]))
            self.assertEqual([(drive.location, drive.raid_device) for drive in drives
                              if drive.serial == "PLAIN2" and drive.drive_type == DriveType.RAID_MEMBER],
                             [("(0, 5)", self.volumes["1"])])

    def test_storclis_drives_are_tied_to_the_kernels_devices(self):
        pci = next(pathlib.Path("/sys/bus/pci/drivers/megaraid_sas").glob("*:*:*.*")).name
        data = {"Basics": {"Controller": 0, "Model": "MADE UP", "Serial Number": "SV1",
                           "PCI Address": f"00:{pci[5:10]}:0{pci[11:]}"}, "Version": {"Driver Name": "megaraid_sas"}}
        sizes = [64, 96, 128]  # MiB
        for i, size in enumerate(sizes):
            data[f"/c0/v{i}"] = [{"DG/VD": f"{i}/{i}", "TYPE": "RAID0", "State": "Optl", "Size": f"{size}.0 MB",
                                  "Name": f"VD_{i}"}]
            data[f"VD{i} Properties"] = {"Number of Blocks": size * 2048}
        # One disk for each logical drive, two handed through, one that the kernel does not have.
        for slot, (serial, state, group) in enumerate([("HIDDEN0", "Onln", 0), ("HIDDEN1", "Onln", 1), ("HIDDEN2", "Onln", 2),
                                                       ("SATA0001", "JBOD", "-"), ("PLAIN1", "JBOD", "-"),
                                                       ("NOWHERE", "UGood", "-")]):
            place = f"Drive /c0/e252/s{slot}"
            data[place] = [{"EID:Slt": f"252:{slot}", "DID": slot + 40, "State": state, "DG": group}]
            data[place + " - Detailed Information"] = {"SN": serial.rjust(20)}
        answer = {"Controllers": [{"Command Status": {"Controller": 0, "Status": "Success"}, "Response Data": data}]}
        folder = make_tool("storcli64", f"cat <<'END'\n{json.dumps(answer)}\nEND\n")
        done = subprocess.run([TORVANE, "raid", "--json", "--output-all"], capture_output=True, check=False,
                              env=os.environ | {"PATH": f"{folder}:{PATH}"})
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        controller, = json.loads(done.stdout)["controllers"]
        self.assertEqual((controller["pci"], controller["tool"]), (pci, "storcli64"))
        self.assertEqual([(drive["name"], drive["match"], drive["size"], [member["serial"] for member in drive["drives"]])
                          for drive in controller["logical_drives"]],
                         [(os.path.basename(node_of(f"VOLUME{i}")), "address", size << 20, [f"HIDDEN{i}"])
                          for i, size in enumerate(sizes)])
        self.assertEqual([(drive["serial"], drive["name"], drive["match"]) for drive in controller["drives"]],
                         [(serial, os.path.basename(node_of(serial)), "serial") for serial in ("SATA0001", "PLAIN1")]
                         + [("NOWHERE", "c0/e252/s5", "none")])


if __name__ == "__main__":
    unittest.main(verbosity=2)
