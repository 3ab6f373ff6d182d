#!/usr/bin/env python3
"""Runs clang-tidy over library, inventory and tool, as many files at a time as there are processors.

A file is passed over when it was found clean before with the same text, headers, checks, compile command and
clang-tidy. What was found clean is remembered in ~/.cache/torvane-tidy, for every clone and build folder.
usage: tidy.py SOURCE_ROOT BUILD_DIRECTORY
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import subprocess
import sys

FOLDERS = ("src/", "inventory/", "tools/")
root, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "torvane-tidy"


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


def told(path: pathlib.Path) -> bytes:
    """Our own files by name and text, wherever the clone lies; the system's by name, size and time."""
    if path.is_relative_to(root) and not path.is_relative_to(build):
        return str(path.relative_to(root)).encode() + path.read_bytes()
    status = path.stat()
    return f"{path.name} {status.st_size} {status.st_mtime_ns}".encode()


def key_of(entry: dict, headers: dict[str, list[pathlib.Path]]) -> str | None:
    """None for a file whose headers are not known: it is checked."""
    files = headers.get(entry["command"].split(" -o ")[1].split()[0])
    if files is None:
        return None
    source = pathlib.Path(entry["file"]).relative_to(root)
    checks = [folder / ".clang-tidy" for folder in source.parents if (root / folder / ".clang-tidy").exists()]
    command = entry["command"].replace(str(build), "BUILD").replace(str(root), "ROOT")
    text = hashlib.sha256(VERSION + command.encode())
    for file in sorted({*files, *(root / path for path in checks)}):
        text.update(told(file))
    return text.hexdigest()


def findings_of(entry: dict, key: str | None) -> str:
    stamp = cache / (key or "-")
    if key is not None and stamp.exists():
        return ""
    # The compile commands are GCC's, with warnings that clang does not know.
    run = subprocess.run(["clang-tidy", "-p", str(build), "--quiet", "--extra-arg=-Wno-unknown-warning-option",
                          entry["file"]], cwd=root, capture_output=True, text=True, check=False)
    if run.returncode == 0 and key is not None:
        stamp.touch()
    return "" if run.returncode == 0 else run.stdout or run.stderr


cache.mkdir(parents=True, exist_ok=True)
VERSION = output_of("clang-tidy", "--version").encode()
entries = {entry["file"]: entry for entry in json.loads((build / "compile_commands.json").read_text())
           if entry["file"].startswith(tuple(f"{root}/{folder}" for folder in FOLDERS))}
headers = headers_by_object()
keys = {file: key_of(entry, headers) for file, entry in entries.items()}
known = sum(key is not None and (cache / key).exists() for key in keys.values())
with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
    findings = list(pool.map(lambda file: findings_of(entries[file], keys[file]), entries))
print("".join(findings), end="")
print(f"{len(entries)} files, {known} of them unchanged since they were found clean")
complete = all(any(file.startswith(f"{root}/{folder}") for file in entries) for folder in FOLDERS)
sys.exit(0 if complete and not any(findings) else 1)
