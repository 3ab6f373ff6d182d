#!/usr/bin/python3
"""The command line as people and scripts meet it, on whatever machine the tests run.

usage: command_line_test.py TORVANE SOURCE_ROOT
"""
import json
import os
import pathlib
import re
import resource
import shlex
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

from rows import rows_of

TORVANE = sys.argv[1]
ROOT = pathlib.Path(sys.argv[2]).resolve()
COMMANDS = ["list", "show", "find", "raid", "health", "bays", "locate", "usb", "mount", "umount", "tray", "wait", "watch",
            "firmware", "diff", "check", "metrics", "help"]


def run(*arguments, **options):
    options.setdefault("timeout", 60)
    return subprocess.run([TORVANE, *arguments], capture_output=True, text=True, check=False, **options)


def schema(name):
    document = json.loads((ROOT / "docs" / "schema" / f"{name}.schema.json").read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(document)
    return document


def help_options(text):
    return set(re.findall(r"(?<!\S)(--[a-z-]+)", text))


class Usage(unittest.TestCase):
    def test_wrong_usage_is_one_line_and_a_pointer(self):
        too_long = (f"list --filter \"model =~ '{'(' * 90000}'\"", "the regular expression is too long")
        for line, words in [*rows_of("wrong_usage.txt"), too_long]:
            with self.subTest(line=line[:99]):
                result = run(*shlex.split(line))
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertEqual(result.stdout, "")
                lines = result.stderr.splitlines()
                self.assertEqual(len(lines), 2, result.stderr)
                self.assertTrue(lines[0].startswith("torvane: "))
                self.assertIn(words, lines[0])
                self.assertRegex(lines[1], r"^Try 'torvane( [a-z]+)* --help'")

    def test_every_option_is_in_the_manual(self):
        self.assertRegex(run("--version").stdout, r"^torvane \d+\.\d+\.\d+\n$")
        overview = run("--help")
        self.assertEqual((overview.returncode, overview.stderr), (0, ""))
        manual = (ROOT / "man" / "torvane.1").read_text(encoding="utf-8")
        options = help_options(overview.stdout)
        for command in COMMANDS:
            self.assertIn(f"  {command} ", overview.stdout)
            self.assertIn(f".It Cm {command}", manual)
            result = run(command, "--help")
            self.assertEqual(result.returncode, 0)
            options |= help_options(result.stdout)
        for change in ("state", "bind", "unbind"):
            options |= help_options(run("usb", change, "--help").stdout)
        self.assertGreater(len(options), 15)
        for option in sorted(options):
            self.assertRegex(manual, rf"\.It Fl (\w , )?{option[1:]}\b")

    def test_published_schemas_are_what_the_tool_makes(self):
        for name in run("schema").stdout.split():
            self.assertEqual(json.loads(run("schema", name).stdout), schema(name), "scripts/update-docs mends it: " + name)
        manual = (ROOT / "man" / "torvane.1").read_text(encoding="utf-8")
        for column in json.loads(run("show", "-H", "-J").stdout)["columns"]:
            self.assertIn(f".It Li {column['column']} , {column['key']}\n", manual, "scripts/update-docs mends it")


class Documents(unittest.TestCase):
    def check(self, name, *arguments):
        result = run(*arguments)
        self.assertIn(result.returncode, (0, 64), result.stderr)
        document = json.loads(result.stdout)
        jsonschema.validate(document, schema(name))
        return document

    def test_documents_keep_to_their_schemas(self):
        wide = self.check("list", "list", "--json", "--output-all")
        self.check("list", "-J")
        self.check("usb", "usb", "--json")
        for drive in wide["drives"]:
            if drive["name"] is not None and drive["path"].startswith("/dev/") and os.path.exists(drive["path"]):
                self.assertEqual(self.check("show", "show", "-J", drive["path"])["drive"]["path"], drive["path"])
                size = pathlib.Path("/sys/class/block", drive["name"], "size")
                if drive["size"] is not None:
                    self.assertEqual(drive["size"], int(size.read_text()) * 512)

    def test_differences_are_told_by_identity(self):
        def drive(name, serial, **facts):
            return {"name": name, "serial": serial, "wwn": None, "enclosure": "e", "bay": name, "firmware": "1", "size": 5} | facts

        def listing(*drives):
            return {"schema_version": 1, "drives": list(drives)}

        before = listing(drive("sda", "A"), drive("sdb", "B"), drive("sdc", "C"), drive("sdd", None))
        for after, told in [
            (before, []),
            # Other names after a boot, and nothing else: its bay tells that it is the same.
            (listing(drive("sdx", "A", bay="sda"), *before["drives"][1:]), []),
            (listing(*before["drives"][1:]), ["sda (A): missing"]),
            # A listing with fewer columns, a drive that did not answer: nobody knows of a difference.
            (listing(*({"name": d["name"], "serial": d["serial"]} for d in before["drives"])), []),
            (listing(drive("sda", "A", firmware=None), *before["drives"][1:]), []),
            (listing(drive("sda", "A", bay="9", firmware="2", size=6), *before["drives"][1:]),
             ["sda (A): moved: bay sda -> 9", "sda (A): changed: firmware 1 -> 2", "sda (A): changed: size 5 -> 6"]),
            (listing(drive("sda", "Z"), *before["drives"][1:]),
             ["sda (Z): new", "sda (A): missing", "sda (Z): changed: serial of bay e/sda A -> Z"]),
        ]:
            with tempfile.TemporaryDirectory() as folder:
                for name, document in (("old", before), ("new", after)):
                    pathlib.Path(folder, name).write_text(json.dumps(document), encoding="utf-8")
                result = run("diff", folder + "/old", folder + "/new")
                self.assertEqual((result.stdout.splitlines(), result.returncode), (told, 1 if told else 0), result.stderr)
                jsonschema.validate(json.loads(run("diff", "-J", folder + "/old", folder + "/new").stdout), schema("diff"))
        for wrong in ("", "[]", '{"schema_version": 2, "drives": []}', '{"schema_version": 1, "drives": [1]}',
                      '{"schema_version": "1", "drives": []}',
                      '{"schema_version": 1, "drives": [{"model": ' + "[" * 10**6 + "]" * 10**6 + "}]}"):
            with tempfile.NamedTemporaryFile("w") as file:
                file.write(wrong)
                file.flush()
                result = run("check", "--expect", file.name)
                self.assertEqual(result.returncode, 2, wrong[:99])
                self.assertIn("not what 'torvane list --json' prints", result.stderr)

    def test_filters_and_orders_of_every_listing(self):
        names = [d["name"] for d in json.loads(run("list", "-J", "-d").stdout)["drives"]]
        for expression, wanted in [("size > 1", True), ("size > 1 and not size > 1", False), ("size >= 0 or rpm > 1T", True),
                                   ("name =~ .", True), ("name !~ .", False), ("(type == nothing)", False), ("name != ''", True)]:
            found = json.loads(run("list", "-J", "-d", "--filter", expression).stdout)["drives"]
            self.assertEqual([d["name"] for d in found], names if wanted else [], expression)
        rows = run("list", "-r", "-n", "-o", "NAME,MODEL,WWN,SIZE").stdout.splitlines()
        self.assertTrue(all(len(row.split(" ")) == 4 for row in rows), rows)

    def test_the_schema_refuses_what_is_wrong(self):
        for wrong in ({"drives": []}, {"schema_version": 1, "drives": [None]},
                      {"schema_version": 1, "drives": [{"size": "1G"}]}):
            with self.assertRaises(jsonschema.ValidationError):
                jsonschema.validate(wrong, schema("list"))


class Failures(unittest.TestCase):
    def test_what_is_no_device_is_named(self):
        for argument, words in [("/dev/nowhere", "/dev/nowhere: No such file or directory"),
                                ("/etc/hostname", "/etc/hostname: not a device of storage"),
                                ("/dev/null", "/dev/null: not a device of storage"),
                                ("/nowhere/" + "x" * 5000, "File name too long")]:
            for command in ("list", "tray", "show", "firmware -o /tmp/torvane-image".split()):
                result = run(*([command] if isinstance(command, str) else command), argument)
                self.assertEqual((result.returncode, result.stdout), (1, ""), result.stderr)
                self.assertIn(words, result.stderr)
        result = run("show", "no-such-serial")
        self.assertEqual(result.returncode, 1)
        self.assertIn("no-such-serial", result.stderr)

    def test_a_full_disk_is_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run([TORVANE, "list", "-H"], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn("No space left on device", result.stderr)

    def test_an_ordinary_user_sees_what_the_kernel_tells_everybody(self):
        if os.geteuid() != 0:
            self.skipTest("only root can become somebody else")
        lines = pathlib.Path("/proc/partitions").read_text(encoding="utf-8").splitlines()[2:]
        disks = [line.split()[3] for line in lines]
        disks = [name for name in disks if os.path.exists(f"/sys/block/{name}") and not name.startswith("dm-")]
        self.assertTrue(disks, "this machine has no disk at all")

        def become_nobody():
            os.setgroups([])
            os.setgid(65534)
            os.setuid(65534)

        result = run("list", preexec_fn=become_nobody, cwd="/")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertLessEqual(len(result.stderr.splitlines()), 1, result.stderr)
        self.assertIn(disks[0], result.stdout)


class Raid(unittest.TestCase):
    def tool(self, folder, name, text):
        path = pathlib.Path(folder, name)
        path.write_text("#!/bin/sh\n" + text, encoding="utf-8")
        path.chmod(path.stat().st_mode | stat.S_IXUSR)

    def raid(self, tools, *arguments, **options):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in tools.items():
                self.tool(folder, name, text)
            for needed in ("sh", "timeout", "which", "cat", "sleep", "echo"):
                found = next(p for p in ("/bin/" + needed, "/usr/bin/" + needed) if os.path.exists(p))
                os.symlink(found, os.path.join(folder, needed))
            return run("raid", *arguments, env={"PATH": folder}, **options)

    def test_without_controller_and_tool_all_is_well(self):
        result = self.raid({})
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", "torvane: no RAID controllers\n"))
        document = json.loads(self.raid({}, "-J").stdout)
        jsonschema.validate(document, schema("raid"))
        self.assertEqual(document["controllers"], [])

    def test_a_broken_tool_is_named_and_nothing_but_json_is_printed(self):
        tools = {"megacli": "echo noise; echo trouble >&2; exit 3\n"}
        result = self.raid(tools, "-J")
        self.assertEqual(result.returncode, 64)
        # Who started the tool may ignore its children's ends.
        ignoring = self.raid(tools, "-J", preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        self.assertEqual((ignoring.returncode, ignoring.stderr), (result.returncode, result.stderr))
        document = json.loads(result.stdout)
        jsonschema.validate(document, schema("raid"))
        self.assertRegex(result.stderr, r"torvane: megacli .*unexpected answer: noise")
        self.assertNotIn("arcconf", result.stderr)

    def test_the_light_of_a_member_is_switched_by_the_tool_that_told_of_it(self):
        with tempfile.TemporaryDirectory() as folder:
            said = pathlib.Path(folder, "said")
            answers = ROOT / "tests" / "inventory" / "outputs" / "sas2ircu"
            self.tool(folder, "sas2ircu", f"""file={answers}/sas2ircu_$(echo "$*" | tr ' ' _)
if [ -e "$file" ]; then exec cat "$file"; fi
echo "$*" >>{said}
case $3 in 1:1) echo; echo 'no such drive'; exit 1;; esac
""")
            path = {"PATH": folder + ":" + os.environ["PATH"]}
            for text, light, status in [("c0/e1/s0", "on", 0), ("9ZF00001", "off", 0), ("c0/e1/s1", "on", 1)]:
                result = run("locate", text, light, env=path)
                self.assertEqual(result.returncode, status, result.stderr)
                self.assertEqual("no such drive" in result.stderr, status == 1)
            self.assertEqual(said.read_text(encoding="utf-8").splitlines(),
                             ["0 LOCATE 1:0 ON", "0 LOCATE 1:0 OFF", "0 LOCATE 1:1 ON"])


class Shortage(unittest.TestCase):
    def test_what_few_descriptors_cost_is_said(self):
        result = run("list", "-J", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (5, 5)))
        self.assertEqual(result.returncode, 64)
        self.assertIn("Too many open files", result.stderr)


class Waiting(unittest.TestCase):
    def test_wait_sees_files_come_and_go(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "later", "node")
            waiting = subprocess.Popen([TORVANE, "wait", "created", path, "--timeout", "30"])
            time.sleep(0.3)
            os.mkdir(os.path.dirname(path))
            # A longer name that begins alike is another file.
            open(path + "2", "w", encoding="utf-8").close()
            with self.assertRaises(subprocess.TimeoutExpired):
                waiting.wait(1.5)
            open(path, "w", encoding="utf-8").close()
            self.assertEqual(waiting.wait(10), 0)
            waiting = subprocess.Popen([TORVANE, "wait", "deleted", path, path + "2", "--timeout", "30"])
            os.unlink(path + "2")
            with self.assertRaises(subprocess.TimeoutExpired):
                waiting.wait(0.5)
            os.unlink(path)
            self.assertEqual(waiting.wait(10), 0)
            late = run("wait", "created", path, "--timeout", "0.3")
            self.assertEqual(late.returncode, 1)
            self.assertIn(path, late.stderr)

    def test_watch_tells_of_new_directories_until_interrupted(self):
        with tempfile.TemporaryDirectory() as folder:
            watching = subprocess.Popen([TORVANE, "watch", "-J", "--files", folder], stdout=subprocess.PIPE, text=True)
            time.sleep(0.5)
            os.mkdir(os.path.join(folder, "new"))
            self.assertEqual(json.loads(watching.stdout.readline()),
                             {"event": "created", "path": folder + "/new", "directory": True})
            time.sleep(0.3)
            open(os.path.join(folder, "new", "file"), "w", encoding="utf-8").close()
            self.assertEqual(json.loads(watching.stdout.readline())["path"], folder + "/new/file")
            self.assertEqual(json.loads(watching.stdout.readline())["event"], "written")
            expected = []
            for i in range(200):  # as fast as it goes: one read of the kernel's gives many
                path = f"{folder}/new/{i}"
                open(path, "w", encoding="utf-8").close()
                os.rename(path, path + ".old")
                os.unlink(path + ".old")
                expected += [("created", path, None), ("written", path, None), ("renamed", path, path + ".old"),
                             ("deleted", path + ".old", None)]
            lines = [json.loads(watching.stdout.readline()) for _ in expected]
            self.assertEqual([(line["event"], line["path"], line.get("to")) for line in lines], expected)
            watching.terminate()
            self.assertEqual(watching.wait(10), 0)
            watching.stdout.close()
        result = run("watch", "--files", "/nowhere")
        self.assertEqual(result.returncode, 1)
        self.assertIn("/nowhere", result.stderr)


class Mounting(unittest.TestCase):
    def test_umount_removes_nothing_that_mount_did_not_make(self):
        with tempfile.TemporaryDirectory() as folder:
            keep = pathlib.Path(folder, "torvane.abcdef", "letter")
            keep.parent.mkdir(mode=0o700)
            keep.write_text("dear", encoding="utf-8")
            for directory in (folder, str(keep.parent), str(keep), folder + "/nowhere"):
                result = run("umount", directory)
                self.assertEqual(result.returncode, 1, directory)
                self.assertIn(directory, result.stderr)
            self.assertEqual(keep.read_text(encoding="utf-8"), "dear")
            keep.unlink()
            keep.parent.chmod(0o755)  # others may have put anything there
            self.assertEqual(run("umount", str(keep.parent)).returncode, 1)
            keep.parent.chmod(0o700)
            link = pathlib.Path(folder, "torvane.linked")
            link.symlink_to(keep.parent)
            self.assertIn("Not a directory", run("umount", str(link)).stderr)
            keep.parent.joinpath("$(id)_mount").mkdir()
            self.assertIn("did not put there", run("umount", str(keep.parent)).stderr)
            keep.parent.joinpath("$(id)_mount").rmdir()
            self.assertEqual(run("umount", str(keep.parent)).returncode, 0)
            self.assertFalse(keep.parent.exists())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
