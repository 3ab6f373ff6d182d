#!/usr/bin/python3
"""Every switch of every command, by an example: words that are there with the switch and not without it.

usage: switches_test.py TORVANE ON_MACHINE SOURCE_ROOT
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor

from prometheus_client.openmetrics import parser as openmetrics

from rows import rows_of

TORVANE, ON_MACHINE, ROOT = (os.path.abspath(word) for word in sys.argv[1:4])
RACK = pathlib.Path(ROOT, "tests", "tool", "machines")

LISTINGS = ["list", "show sda", "find RAID", "raid", "bays", "usb"]
# Of what needs real devices: the script of an emulated machine has the example.
EMULATED = {("mount", "--json"): "mount --json", ("tray", "--json"): "tray --json",
            ("usb bind", "--wait"): "bind BARE0001 --wait", ("usb unbind", "--wait"): "unbind --wait"}


def said(*words):
    return subprocess.run([TORVANE, *words], capture_output=True, text=True, check=True).stdout


def named(text):
    return re.findall(r"(?m)^  ([a-z]+) {2,}", text.split("\nCommands:")[1])


COMMANDS = named(said("help")) + ["usb " + name for name in named(said("usb", "--help"))]


def switches_of(command):
    return set(re.findall(r"(?m)^ {2}(?:-\w,|   ) (--[a-z-]+)", said(*command.split(), "--help"))) - {"--help"}


def command_of(line):
    return max((c for c in COMMANDS if (line + " ").startswith(c + " ")), key=len)


class Switches(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        place = pathlib.Path(self.folder.name)
        for name in ("quick", "hanging", "work"):
            place.joinpath(name).mkdir()
        for name in ("quick", "hanging"):
            os.symlink(TORVANE, place / name / "torvane")
        place.joinpath("hanging", "storcli64").write_text("#!/bin/sh\nexec sleep 60\n", encoding="utf-8")
        place.joinpath("hanging", "storcli64").chmod(0o755)
        old = {"schema_version": 1, "drives": [{"name": "sdz", "serial": "GONE1", "type": "raid-member"}]}
        place.joinpath("old.json").write_text(json.dumps(old), encoding="utf-8")

    def tearDown(self):
        self.folder.cleanup()

    def run_on_rack(self, line, tools="quick"):
        """The words of both outputs; what waits for ever is interrupted."""
        path = f"{self.folder.name}/{tools}:{RACK}:{os.environ['PATH']}"
        with tempfile.TemporaryDirectory() as work:
            shutil.copy(os.path.join(self.folder.name, "old.json"), work)
            torvane = "timeout -s INT 2 torvane " if line.startswith("watch") else "torvane "
            done = subprocess.run([ON_MACHINE, str(RACK / "rack.tree"), "sh", "-c", torvane + line], cwd=work, text=True, timeout=60,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                                  env=os.environ | {"PATH": path, "LC_ALL": "C.UTF-8"})
            return done.stdout

    def check(self, example):
        line, words = example
        tools = "hanging" if "[--timeout" in line else "quick"
        left_out = re.sub(r"\[.*\]", "", line)
        with_it = self.run_on_rack(re.sub(r"[][]", "", line), tools)
        # Half a minute is not waited for.
        without = "" if tools == "hanging" else self.run_on_rack(left_out, tools)
        return line, words, with_it, without

    def test_each_has_an_example(self):
        shown = set(EMULATED)
        examples = [(line.replace("LISTING", listing), words) for line, words in rows_of("switches.txt")
                    for listing in (LISTINGS if "LISTING" in line else [""])]
        with ThreadPoolExecutor(os.cpu_count()) as several:
            for line, words, with_it, without in several.map(self.check, examples):
                with self.subTest(line=line):
                    self.assertRegex(with_it, words)
                    self.assertNotRegex(without, words)
                shown.add((command_of(line), re.search(r"\[(--[a-z-]+)", line)[1]))
        script = pathlib.Path(ROOT, "tests", "machine", "usb_tool_test").read_text(encoding="utf-8")
        for example in EMULATED.values():
            self.assertIn(example, script)
        there = {(command, switch) for command in COMMANDS for switch in switches_of(command)}
        self.assertEqual(there - shown, set(), "switches without an example")
        self.assertEqual(shown - there, set(), "examples of no switch")

    def test_a_machine_does_not_differ_from_its_listing(self):
        for switches in ("", "-O", "-O --raid --usb"):
            told = self.run_on_rack(f"list --json {switches} 2>/dev/null >now.json; torvane diff now.json 2>/dev/null")
            self.assertEqual(told, "", switches)

    def test_metrics_bear_whatever_a_drive_says(self):
        hostile = 'A "B" \\\\ {c="d"} # \\x0aEOF\\x1b[31m\\xff'  # as the description writes it
        disk = "/sys/devices/pci0000:00/0000:00:1e.0/host8/target8:0:0/8:0:0:0"
        lines = (f"block {disk}/block/sdz 65:144 2048\n{disk}/block/sdz/device -> ../../../8:0:0:0\n"
                 f"{disk}/model = {hostile}\n/sys/class/scsi_host/host8/proc_name = mpt3sas\n")
        rack = pathlib.Path(self.folder.name, "hostile.tree")
        rack.write_text((RACK / "rack.tree").read_text(encoding="utf-8") + lines, encoding="utf-8")
        text = subprocess.run([ON_MACHINE, rack, TORVANE, "metrics"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True, check=False).stdout
        families = {family.name: family for family in openmetrics.text_string_to_metric_families(text)}
        models = {sample.labels["device"]: sample.labels["model"] for sample in families["torvane_drive"].samples}
        self.assertEqual(models["sdz"], 'A "B" \\ {c="d"} # \\x0aEOF\\x1b[31m\\xff')
        self.assertEqual(models["sdd"], "BIG ROTATING 16T")
        listed = subprocess.run([ON_MACHINE, rack, TORVANE, "list", "-J", "-d", "-o", "NAME,SIZE,TYPE"], capture_output=True, check=False)
        sizes = {sample.labels["device"]: sample.value for sample in families["torvane_drive_size_bytes"].samples}
        self.assertEqual(sizes, {drive["name"]: drive["size"] for drive in json.loads(listed.stdout)["drives"]
                                 if drive["type"] in ("disk", "optical", "iscsi")})

    def test_help_fits_a_terminal(self):
        for command in COMMANDS + [""]:
            for text in said(*command.split(), "--help").splitlines():
                self.assertLessEqual(len(text), 80, text)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0]])
