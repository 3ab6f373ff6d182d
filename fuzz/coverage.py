#!/usr/bin/env python3
"""Prints how many lines of each reader the corpora reach, and every line that they do not with its reason.

Reasons stand in a file of lines "FILES | TEXT | REASON": a shell pattern for paths, a regular expression for the line,
or for the name of a function that is not reached at all. A line without a reason is a failure.
usage: coverage.py LINES.INFO REASONS
"""
import collections
import fnmatch
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Whatever reads text or bytes from outside.
READERS = [
    "src/foundation/lines.cpp", "src/foundation/s*.cpp", "src/foundation/t*.cpp", "src/identity/ata.cpp",
    "src/identity/model.cpp", "src/identity/s*.cpp", "src/identity/unit_serial.cpp", "src/drives/*defects.cpp",
    "src/drives/*geometry.cpp", "src/drives/optical.cpp", "src/drives/partition*.cpp", "src/drives/software_raid.cpp",
    "src/raid/adaptec.cpp", "src/raid/lsi*.cpp", "src/raid/pci.cpp", "src/removable/file_system_checks.cpp",
    "src/removable/vendor/*.cpp", "inventory/bays/*.cpp", "inventory/kernel/*.cpp", "inventory/raid/*.cpp",
    "inventory/reading/packing.cpp", "inventory/survey/find.cpp", "inventory/survey/identity.cpp", "inventory/usb/*.cpp",
    "tools/torvane/commands/compare.cpp", "tools/torvane/output/columns.cpp", "tools/torvane/output/filter.cpp",
]
# They run tools, look for them, or listen to the device manager.
OTHERS = ["inventory/kernel/events.cpp", "inventory/raid/adapters.cpp", "inventory/raid/locate.cpp",
          "inventory/raid/raid.cpp", "inventory/raid/tools.cpp"]


class File:
    def __init__(self) -> None:
        self.lines: dict[int, int] = {}
        self.functions: dict[str, int] = {}  # their first lines
        self.reached: set[str] = set()


def fits(path: str, patterns: list[str]) -> bool:
    return any(fnmatch.fnmatch(path, pattern) for pattern in patterns)


def read_lines(path: str) -> dict[str, File]:
    files: dict[str, File] = collections.defaultdict(File)
    file = File()
    text = subprocess.run(["c++filt"], stdin=open(path, encoding="utf-8"), capture_output=True, text=True, check=True)
    for line in text.stdout.splitlines():
        tag, _, rest = line.partition(":")
        if tag == "SF":
            name = str(pathlib.Path(rest).resolve().relative_to(ROOT))
            file = files[name] if fits(name, READERS) and not fits(name, OTHERS) else File()
        elif tag == "FN":
            first, name = rest.split(",", 1)
            file.functions[name] = int(first)
        elif tag == "FNDA" and not rest.startswith("0,"):
            file.reached.add(rest.split(",", 1)[1])
        elif tag == "DA":
            number, count = (int(part) for part in rest.split(",")[:2])
            file.lines[number] = max(count, file.lines.get(number, 0))
    return files


def read_reasons(path: str) -> list[list[str]]:
    lines = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    return [[part.strip() for part in line.split(" | ")] for line in lines if line and not line.startswith("#")]


def unreached(path: str, file: File) -> list[tuple[int, int, str]]:
    """Runs of unreached lines: first, count of them, and the text that says what they are."""
    source = (ROOT / path).read_text(encoding="utf-8").splitlines()
    starts = {line: name for name, line in file.functions.items() if name not in file.reached}
    found: list[tuple[int, int, str]] = []
    previous = None
    for number, count in sorted(file.lines.items()):
        text = source[number - 1].strip()
        if count == 0 and text not in ("}", "};", "});"):
            if previous is not None and number not in starts:
                first, lines, words = found[-1]
                found[-1] = (first, lines + 1, f"{words}\n{text}")
            else:
                found.append((number, 1, f"{starts.get(number, '')} {text}"))
            previous = number
        elif count > 0:
            previous = None
    return found


files = read_lines(sys.argv[1])
reasons = read_reasons(sys.argv[2])
used: set[int] = set()
lines = missed = nameless = 0
for path, file in sorted(files.items()):
    runs = unreached(path, file)
    missing = sum(count for _, count, _ in runs)
    lines, missed = lines + len(file.lines), missed + missing
    print(f"{path:45} {100 * (1 - missing / max(len(file.lines), 1)):6.1f} % of {len(file.lines)} lines")
    for first, count, text in runs:
        place = next((i for i, (pattern, words, _) in enumerate(reasons)
                      if fnmatch.fnmatch(path, pattern) and re.search(words, text)), None)
        nameless += place is None
        used.add(place if place is not None else -1)
        where = f"{first}" if count == 1 else f"{first}, {count} lines"
        reason = "NO REASON: " + text.splitlines()[0] if place is None else reasons[place][2]
        print(f"    {where}: {reason}")
for i, reason in enumerate(reasons):
    if i not in used:
        print(f"no line needs the reason: {' | '.join(reason)}")
print(f"{100 * (1 - missed / max(lines, 1)):.1f} % of {lines} lines of {len(files)} files; "
      f"unreached without a reason: {nameless}")
sys.exit(1 if nameless or len(files) < 30 or len(used - {-1}) < len(reasons) else 0)
