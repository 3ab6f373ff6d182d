#!/usr/bin/python3
"""Plugs and pulls disks in random order while the library and the tool are asked, and holds every answer against what
was there: an answer is right when it was so at some moment of the call. Runs in the machine `changes`.

usage: changes_test.py TORVANE SECONDS [SEED]
"""
import collections
import dataclasses
import json
import math
import os
import pathlib
import random
import re
import select
import signal
import subprocess
import sys
import time

import torvane
from truth import content_of, holds_soon, monitor, output_of, write_to

FOLDER = pathlib.Path("/run/changes")
DEBUG_HOSTS = "/sys/bus/pseudo/drivers/scsi_debug/add_host"
# The tool's limits are 10 s here; an emulated processor that others use, too, adds to that.
HUNG = 90
MIB = 1 << 20
now = time.monotonic  # of the clock that all processes share


@dataclasses.dataclass
class Answer:
    """One call and what was told, as a line of JSON between processes."""
    call: str
    begin: float
    end: float
    failure: str = ""  # stated by the callee
    fault: str = ""  # of the callee, whatever was plugged in
    is_list: bool = False  # of all disks: each that was there throughout must be in it
    rows: list = dataclasses.field(default_factory=list)  # name, serial number, bytes, partitions
    there: str = ""  # serial number of what is said to be there,
    gone: str = ""  # or gone, at some moment of the call


@dataclasses.dataclass
class Stay:
    """Of a disk in the machine. It came at some moment of the first pair of times, and went at one of the second."""
    name: str  # "sdc"
    plugged_from: float = 0
    plugged_by: float = 0
    pulled_from: float = math.inf
    pulled_by: float = math.inf

    def may_be_within(self, answer):
        return self.plugged_from <= answer.end and self.pulled_by >= answer.begin

    def lasts_throughout(self, answer):
        return self.plugged_by <= answer.begin and self.pulled_from >= answer.end


@dataclasses.dataclass
class Disk:
    id: str
    size: int = 0  # bytes; 0: any
    partitions: int = 0
    stays: list = dataclasses.field(default_factory=list)

    def __post_init__(self):
        self.serial = self.id if self.id not in ("DEBUG", "md0") else ""  # any; scsi_debug counts on
        # Nobody but the hands takes it away or gives it another name.
        self.is_steady = not self.id.startswith("MOUNT")
        self.is_in_drawer = not self.stays  # in the beginning and in the end

    def is_in(self):
        return bool(self.stays) and self.stays[-1].pulled_from == math.inf

    def name_now(self):
        """By its size: nothing is asked of it for that."""
        for folder in pathlib.Path("/sys/block").glob("sd*"):
            if content_of(folder / "size") == str(self.size // 512) and os.path.exists(f"/dev/{folder.name}"):
                return folder.name
        return ""

    def is_on_usb(self):
        return any(content_of(folder / "serial") == self.id for folder in pathlib.Path("/sys/bus/usb/devices").glob("*"))

    def has_come(self):
        """Sticks that callers bind and unbind have a disk or none; that they are plugged in is what counts."""
        return self.name_now() != "" if self.is_steady else self.is_on_usb()

    def has_gone(self):
        return self.name_now() == "" and not self.is_on_usb()

    def fits(self, row, stay):
        name, serial, size, partitions = row
        return (name in ("", stay.name) or not self.is_steady) and (not serial or self.serial in ("", serial)) and \
            (0 in (size, self.size) or size == self.size) and partitions <= self.partitions


def fault_of(answer, disks):
    """What is wrong with an answer; "" for a right one."""
    stays = [(disk, stay) for disk in disks for stay in disk.stays]
    possible = [(disk, stay) for disk, stay in stays if stay.may_be_within(answer)]
    certain = [(disk, stay) for disk, stay in stays if stay.lasts_throughout(answer)]
    told = {row[0] for row in answer.rows}
    if answer.fault:
        return answer.fault
    for row in answer.rows:
        if not any(disk.fits(row, stay) for disk, stay in possible):
            return f"was never so: {row}"
    for disk, stay in certain:
        if answer.is_list and disk.is_steady and stay.name not in told:
            return f"was there throughout and is not listed: {disk.id} {stay.name}"
    if answer.there and not any(disk.serial == answer.there for disk, _ in possible):
        return f"was never there: {answer.there}"
    if answer.gone and any(disk.serial == answer.gone for disk, _ in certain):
        return f"was never gone: {answer.gone}"
    return ""


# ---- Those who ask meanwhile, each loop in a process of its own ----

def ask_library(chance):
    is_everything = chance.random() < 0.5
    options = sum(option for option in torvane.DriveOptions if is_everything or chance.random() < 0.5)
    descriptors = os.listdir("/proc/self/fd")
    found = torvane.DriveList()
    begin = now()
    result = torvane.get_drives(found, options, None, 0)
    answer = Answer("get_drives", begin, now(), is_list=result == 0 and options & torvane.DriveOptions.SYSTEM != 0)
    if result != 0:
        answer.failure = torvane.get_error_str(torvane.TORVANE_ERROR_DRIVE_LIST)
        if found.count > 0 or not answer.failure:
            answer.fault = "failed without words, or halfway"
    answer.rows = [(os.path.basename(drive.name or ""), drive.serial or "", drive.block_count * drive.block_size,
                    drive.partitions.count) for drive in found.drives]
    torvane.release_drives(found)
    if os.listdir("/proc/self/fd") != descriptors:
        answer.fault = "descriptors stay open"
    try:
        os.waitpid(-1, os.WNOHANG)
        answer.fault = "a child is left"
    except ChildProcessError:
        pass
    return [answer]


def rows_in(part):
    """The drives of a document."""
    for below in part.values() if isinstance(part, dict) else part:
        if isinstance(below, (dict, list)):
            yield from rows_in(below)
    if isinstance(part, dict) and "name" in part and part.get("type") != "part":
        name = part["name"] or ""
        yield "" if ":" in name else name, part.get("serial") or "", part.get("size") or 0, len(part.get("partitions", []))


def torvane_says(*words, patience=None):
    """What the tool prints, and the answer that it is; SIGTERM comes after `patience` seconds."""
    call = " ".join(("torvane", *words[:2 if words[0] in ("usb", "wait") else 1]))
    with os.fdopen(os.memfd_create("output"), "r+") as output, os.fdopen(os.memfd_create("errors"), "r+") as errors:
        begin = now()
        tool = subprocess.Popen([TORVANE, *words], stdout=output, stderr=errors)
        ending, process = select.poll(), os.pidfd_open(tool.pid)
        ending.register(process, select.POLLIN)
        if patience and not ending.poll(patience * 1000):
            tool.terminate()
        answer = Answer(call, begin, 0, fault="" if ending.poll(HUNG * 1000) else "hung")
        tool.kill()
        status = tool.wait()
        os.close(process)
        answer.end = now()
        for file in output, errors:
            file.seek(0)
        said, words = output.read(), errors.read()
    if status in (1, 64):
        answer.failure = words or "(json says it)"
        answer.fault = answer.fault or ("" if words or said else "failed without words")
    # Told to end before it had begun.
    elif status != 0 and not (status == -signal.SIGTERM and patience and not said):
        answer.fault = answer.fault or f"status {status}: {words}"
    return said, answer


def documents(*words, patience=None):
    """An answer in JSON: a document, or with patience one a line."""
    said, answer = torvane_says(*words, patience=patience)
    try:
        for document in said.splitlines() if patience else [said]:
            answer.rows += rows_in(json.loads(document))
    except ValueError:
        answer.fault = f"no JSON: {said}"
    return answer


def list_drives(_chance):
    answer = documents("list", "--json", "--raid", "--usb", "--timeout=10")
    answer.is_list = not answer.fault
    return [answer]


def ask_for_one(chance):
    serial = chance.choice(["USB1", "USB2", "SCSI1", "AGAIN", "HALF2", "STAYUSB"])
    what = chance.choice(["find", "watch", "created", "deleted"])
    if what == "watch":
        return [documents("watch", "--json", "--initial", patience=chance.randint(2, 6))]
    if what == "find":
        answer = documents("find", "--json", serial, "--timeout=10")
        is_there = bool(answer.rows)
    else:
        _, answer = torvane_says("wait", what, serial, "--timeout=2")
        is_there = (what == "created") == (answer.failure == "")
    return [dataclasses.replace(answer, **{"there" if is_there else "gone": serial})]


def use_stick(chance):
    serial = chance.choice(["MOUNT1", "MOUNT2"])
    if chance.randrange(3) > 0:
        words = chance.choice([["unbind", serial], ["bind", serial], ["bind", serial, "--wait"],
                               ["state", serial, chance.choice(["unbound", "bound", "node"])]])
        return [torvane_says("usb", *words, "--timeout=10")[1]]
    said, mounted = torvane_says("mount", serial, "--timeout=10")
    if mounted.failure:
        return [mounted]
    mounted.there = serial
    directory = said.split("\n")[0]
    _, unmounted = torvane_says("umount", directory, "--timeout=10")
    if os.path.exists(directory):
        unmounted.fault = f"{directory} is left: {unmounted.failure}"
    return [mounted, unmounted]


LOOPS = [ask_library, list_drives, ask_for_one, use_stick]


def be_a_caller(loop, chance, end):
    with open(FOLDER / loop.__name__, "w", encoding="utf-8") as answers:
        while now() < end:
            for answer in loop(chance):
                print(json.dumps(dataclasses.asdict(answer)), file=answers)


def leavings():
    """Commands of the tool that still run, and all mounts, temporary files, nodes without device and lock files."""
    left = {f"mount {line}" for line in content_of("/proc/mounts").splitlines()}
    left |= {str(path) for folder in ("/run/torvane", "/tmp") for path in pathlib.Path(folder).glob("*")}
    left |= {str(path) for path in pathlib.Path("/dev").glob("sd*") if not os.path.exists(f"/sys/class/block/{path.name}")}
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            left |= {f"process {process}"} if os.readlink(process / "exe") == TORVANE else set()
        except OSError:
            pass  # gone
    return left


# ---- The hands that plug and pull ----

class Hands:
    def __init__(self, chance):
        self.chance, self.counts = chance, collections.Counter()
        self.disks = [Disk(name, size * MIB, name == "AGAIN") for name, size in {
            "STAYUSB": 21, "STAYSCSI": 22, "HALF1": 48, "HALF2": 49, "AGAIN": 24, "USB1": 25, "USB2": 26, "MOUNT1": 27,
            "MOUNT2": 28, "SCSI1": 29, "DEBUG": 30}.items()]
        for disk in self.disks:
            disk.stays = [Stay(name) for name in [disk.name_now()] if name]
            disk.is_in_drawer = not disk.stays
        self.moved = [disk for disk in self.disks if disk.is_in_drawer or disk.id in ("AGAIN", "HALF2")]
        address = os.path.basename(os.readlink(f"/sys/block/{self.disks[1].name_now()}/device"))
        self.scan = f"/sys/class/scsi_host/host{address.split(':')[0]}/scan"
        self.disks.append(Disk("md0", stays=[Stay("md0")]))

    def plug(self, disk):
        if disk.id == "DEBUG":
            write_to(DEBUG_HOSTS, "1")
        elif disk.id in ("AGAIN", "HALF2"):
            write_to(self.scan, "0 3 0" if disk.id == "AGAIN" else "0 2 0")
        else:
            what = "scsi-hd,bus=hba.0,scsi-id=4,vendor=ACME,product=COMES" if disk.id == "SCSI1" else \
                "usb-storage,bus=xhci.0,removable=on"
            line = f"device_add {what},id={disk.id.lower()},drive={disk.id.lower()},serial={disk.id}"
            # Refused while the emulator still takes the device away.
            assert holds_soon(lambda: monitor(line) == ""), monitor(line)

    def pull(self, disk):
        name = disk.stays[-1].name
        if disk.id == "DEBUG":
            write_to(DEBUG_HOSTS, "-1")
        elif disk.id in ("AGAIN", "HALF2"):
            # A member of an array goes in good order, or as a disk that dies.
            if disk.id == "HALF2" and self.chance.random() < 0.5:
                output_of(f"mdadm /dev/md0 --fail /dev/{name} --remove /dev/{name}")
            write_to(f"/sys/block/{name}/device/delete", "1")
        else:
            monitor(f"device_del {disk.id.lower()}")

    def begin_change(self, disk):
        if disk.is_in():
            disk.stays[-1].pulled_from = now()
            self.pull(disk)
            self.counts["pulled " + disk.id] += 1
        else:
            disk.stays.append(Stay("", now(), math.inf))
            self.plug(disk)
            self.counts["plugged " + disk.id] += 1

    def finish_change(self, disk):
        stay = disk.stays[-1]
        if disk.is_in():
            assert holds_soon(disk.has_come), f"{disk.id} does not come"
            stay.name, stay.plugged_by = disk.name_now(), now()
        else:
            assert holds_soon(disk.has_gone), f"{disk.id} does not go"
            stay.pulled_by = now()
        if disk.id == "HALF2":
            output_of(f"mdadm /dev/md0 --add /dev/{stay.name}" if disk.is_in() else "mdadm /dev/md0 --remove detached")

    def work_until(self, end):
        """Up to three disks at once, in any order; then all is as it was in the beginning."""
        while now() < end:
            chosen = self.chance.sample(self.moved, self.chance.randint(1, 3))
            for step in self.begin_change, self.finish_change:
                for disk in chosen:
                    step(disk)
            time.sleep(self.chance.random())
        for disk in self.moved:
            if disk.is_in() == disk.is_in_drawer:
                self.begin_change(disk)
                self.finish_change(disk)


def kind_of(words):
    """Without names and numbers that vary, for counting."""
    for pattern, text in [(r"torvane\.\w{6}", "torvane.XXXXXX"), (r"\bsd[a-z]+\d*", "sdX"),
                          (r"(USB|MOUNT|SCSI|HALF|STAY)\w+", "SERIAL"), (r"\d+", "N"), (r"\s*\n\s*", "; ")]:
        words = re.sub(pattern, text, words)
    return words[:200]


def judged(disks):
    """Counts what callers were told, and yields what is wrong with it."""
    calls, failures, longest = collections.Counter(), collections.Counter(), collections.Counter()
    for loop in LOOPS:
        for line in (FOLDER / loop.__name__).read_text(encoding="utf-8").splitlines():
            answer = Answer(**json.loads(line))
            calls[answer.call] += 1
            longest[answer.call] = max(longest[answer.call], answer.end - answer.begin)
            if answer.failure:
                failures[answer.call, kind_of(answer.failure)] += 1
            if fault := fault_of(answer, disks):
                yield f"{answer.call} {answer.begin}-{answer.end}: {fault}"
    for call, count in sorted(calls.items()):
        print(f"{count:6} calls of {call}, the longest {longest[call]:.1f} s")
        for words in (words for of, words in failures if of == call):
            print(f"       {failures[call, words]:5} failures: {words}")


def put_tmp_aside():
    """The host's /tmp shows through, where others work meanwhile. Where the tool is now."""
    aside = FOLDER / "tmp"
    aside.mkdir(parents=True)
    subprocess.run(f"mount --bind /tmp {aside} && mount -t tmpfs tmpfs /tmp", shell=True, check=True)
    return sys.argv[1].replace("/tmp/", f"{aside}/") if sys.argv[1].startswith("/tmp/") else sys.argv[1]


TORVANE = put_tmp_aside()


def main():
    seconds = int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else random.randrange(1 << 32)
    print(f"seed {seed}, {seconds} s", flush=True)
    before = leavings()
    hands = Hands(random.Random(seed))
    end = now() + seconds
    callers = {}
    for number, loop in enumerate(LOOPS):
        if (child := os.fork()) == 0:
            be_a_caller(loop, random.Random(seed + 1 + number), end)
            os._exit(0)
        callers[child] = loop.__name__
    hands.work_until(end)
    faults = [f"the caller {name} ended with status {status}" for child, name in callers.items()
              if (status := os.waitpid(child, 0)[1]) != 0]
    output_of("udevadm settle")
    faults += judged(hands.disks)
    if not holds_soon(lambda: leavings() == before):
        faults += [f"left behind: {thing}" for thing in leavings() - before]
    if oops := output_of("dmesg | grep -E 'BUG:|Oops|general protection|hung_task|blocked for more'"):
        faults.append(f"the kernel: {oops}")
    if faults:
        print(*(f"FAULT {fault}" for fault in faults), *hands.disks, sep="\n")
    for what, count in sorted(hands.counts.items()):
        print(f"{count:6} times {what}")
    print(f"{len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
