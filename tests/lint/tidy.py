#!/usr/bin/env python3
"""Runs clang-tidy over library, inventory and tool, as many times at once as there are processors.

Most of its time goes into headers, so the files that are compiled together, and those of a folder of the library, are
joined into one text and checked at once. A file in which that finds anything is checked by itself, and this is what
counts; where the text does not compile, all of its files are.
A text is passed over when it was found clean before with the same headers, checks, compile command and clang-tidy. What
was found clean is remembered in ~/.cache/torvane-tidy, for every clone and build folder.
usage: tidy.py SOURCE_ROOT BUILD_DIRECTORY
"""
import concurrent.futures
import dataclasses
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

FOLDERS = ("src", "inventory", "tools")
root, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "torvane-tidy"
joined = build / "tidy"


@dataclasses.dataclass
class Unit:
    files: list[pathlib.Path]  # below the root
    arguments: list[str]
    objects: list[str]


def output_of(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def headers_by_object() -> dict[str, list[pathlib.Path]]:
    """What each object was compiled from, as the build has noted it."""
    found: dict[str, list[pathlib.Path]] = {}
    for block in output_of("ninja", "-C", str(build), "-t", "deps").split("\n\n"):
        first, *files = block.splitlines() or [""]
        if "(VALID)" in first:
            found[first.split(": #deps")[0]] = [(build / file.strip()).resolve() for file in files]
    return found


def units() -> list[Unit]:
    found: dict[tuple[str, ...], Unit] = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        is_united = source.is_relative_to(build)
        names = re.findall(r'(?m)^#include "(.*)"$', source.read_text()) if is_united else [entry["file"]]
        files = [pathlib.Path(name).relative_to(root) for name in names if name.startswith(f"{root}/")]
        if not files or files[0].parts[0] not in FOLDERS:
            continue
        words = shlex.split(entry["command"])
        output, arguments = words[words.index("-o") + 1], words[1:words.index("-o")]
        # The build's units as they are; the library, which is compiled file by file, by folder.
        key = (str(files[0].parent if files[0].parts[0] == "src" else source), *arguments)
        unit = found.setdefault(key, Unit([], arguments, []))
        unit.files += files
        unit.objects.append(output)
    return list(found.values())


def told(path: pathlib.Path) -> bytes:
    """Our own files by name and text, wherever the clone lies; the system's by name, size and time. What the build
    makes only names our own."""
    if path.is_relative_to(build):
        return b""
    if path.is_relative_to(root):
        return str(path.relative_to(root)).encode() + path.read_bytes()
    status = path.stat()
    return f"{path.name} {status.st_size} {status.st_mtime_ns}".encode()


def key_of(unit: Unit) -> str | None:
    """None for files whose headers are not known: they are checked."""
    if not all(name in headers for name in unit.objects):
        return None
    files = {file for name in unit.objects for file in headers[name]}
    checks = {root / folder / ".clang-tidy" for source in unit.files for folder in source.parents}
    text = hashlib.sha256(VERSION)
    text.update(" ".join(unit.arguments).replace(str(build), "BUILD").replace(str(root), "ROOT").encode())
    for file in sorted(files | {path for path in checks if path.exists()} | {pathlib.Path(__file__).resolve()}):
        text.update(told(file))
    return text.hexdigest()


def hides_something(text: str) -> bool:
    """What clang-tidy cannot see once another file includes or uses the same."""
    includes = re.findall(r"(?m)^#include .*", text)
    names = re.findall(r"(?m)^ *using (?:\w+::)+(\w+);", text)
    aliases = re.findall(r"(?m)^ *namespace (\w+) =", text)
    return (len(set(includes)) < len(includes) or not all(re.search(rf"(?<!::)\b{name}\b", text) for name in names)
            or not all(re.search(rf"\b{alias}::", text) for alias in aliases))


def join(unit: Unit) -> tuple[pathlib.Path, list[pathlib.Path]]:
    """One text of all of them, each header included once, where the checks of their folder are found; and of which file
    each line is."""
    target = joined / unit.files[0].parent / (hashlib.sha256(str(unit.files).encode()).hexdigest()[:8] + ".cpp")
    for folder in target.relative_to(joined).parents:
        (joined / folder).mkdir(parents=True, exist_ok=True)
        if (root / folder / ".clang-tidy").exists():
            shutil.copy(root / folder / ".clang-tidy", joined / folder)
    lines: list[str] = []
    owners: list[pathlib.Path] = []
    included: set[str] = set()
    for file in unit.files:
        for line in (root / file).read_text().splitlines():
            if line in included:
                continue
            if line.startswith("#include"):
                included.add(line)
            lines.append(line + "\n")
            owners.append(file)
    target.write_text("".join(lines))
    return target, owners


def tidy(unit: Unit, file: pathlib.Path) -> str:
    # The compile commands are GCC's, with warnings that clang does not know.
    run = subprocess.run(["clang-tidy", "--quiet", str(file), "--", *unit.arguments, "-Wno-unknown-warning-option"],
                         cwd=root, capture_output=True, text=True, check=False)
    return "" if run.returncode == 0 else run.stdout or run.stderr


def compiles(unit: Unit, file: pathlib.Path) -> bool:
    """By itself, as not every build joins files."""
    command = ["clang++", *unit.arguments, "-w", "-fsyntax-only", str(root / file)]
    return file.parts[0] == "src" or subprocess.run(command, capture_output=True, check=False).returncode == 0


def suspects(unit: Unit) -> list[pathlib.Path]:
    """Those of its files that have to be checked by themselves."""
    if len(unit.files) == 1:
        return unit.files
    whole, owners = join(unit)
    findings = tidy(unit, whole)
    places = re.findall(r"(?m)^(/.*?):(\d+):\d+: error: ", findings)
    is_everywhere = not places or "[clang-diagnostic-error]" in findings or any(name != str(whole) for name, _ in places)
    if findings and is_everywhere:
        return unit.files
    found = {owners[int(line) - 1] for _, line in places}
    return [file for file in unit.files
            if file in found or hides_something((root / file).read_text()) or not compiles(unit, file)]


def findings_of(unit: Unit) -> str:
    key = keys[id(unit)]
    if key is not None and (cache / key).exists():
        return ""
    findings = "".join(tidy(unit, root / file) for file in suspects(unit))
    if not findings and key is not None:
        (cache / key).touch()
    return findings


os.nice(19)  # beside tests that have limits of time
cache.mkdir(parents=True, exist_ok=True)
VERSION = output_of("clang-tidy", "--version").encode()
headers = headers_by_object()
todo = sorted(units(), key=lambda unit: -sum((root / file).stat().st_size for file in unit.files))
keys = {id(unit): key_of(unit) for unit in todo}
known = sum(len(unit.files) for unit in todo if keys[id(unit)] is not None and (cache / keys[id(unit)]).exists())
with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
    findings = list(pool.map(findings_of, todo))
print("".join(findings), end="")
checked = {str(file) for unit in todo for file in unit.files}
print(f"{len(checked)} files, {known} of them unchanged since they were found clean")
missed = sorted({str(path.relative_to(root)) for folder in FOLDERS for path in (root / folder).rglob("*.cpp")} - checked)
if missed:
    print("not checked: " + " ".join(missed))
sys.exit(1 if missed or any(findings) else 0)
