#!/usr/bin/env python3
"""What can be said of the Debian packages without building them: every installed file goes into one of them, every
line of their lists finds something, and the symbols file has what the library exports.

usage: check_packages.py BUILD_DIRECTORY SOURCE_ROOT LIBRARY
"""
import fnmatch
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BUILD, ROOT, LIBRARY = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])


def installed():
    """As dh_auto_install lays them out: the folder of libraries has the machine's name."""
    with tempfile.TemporaryDirectory() as stage:
        subprocess.run(["cmake", "--install", BUILD, "--prefix", "/usr"], env=os.environ | {"DESTDIR": stage}, check=True,
                       stdout=subprocess.DEVNULL)
        for path in pathlib.Path(stage).rglob("*"):
            if path.is_symlink() or not path.is_dir():
                yield re.sub(r"^usr/lib/(?!python3|[^/]+-linux-)", "usr/lib/machine/", str(path.relative_to(stage)))


def main():
    files, lists, told = set(installed()), {}, []
    for path in (ROOT / "debian").glob("*.install"):
        for line in path.read_text(encoding="utf-8").splitlines():
            pattern = line.split()[0]
            found = {f for f in files if fnmatch.fnmatch(f, pattern) or fnmatch.fnmatch(f, pattern + "/*")}
            if not found and not (ROOT / pattern).exists():
                told.append(f"{path.name}: nothing is {pattern}")
            lists.setdefault(path.stem, set()).update(found)
    told += [f"in no package: {name}" for name in sorted(files.difference(*lists.values()))]
    told += [f"in several packages: {name}" for name in sorted(files) if sum(name in own for own in lists.values()) > 1]
    symbols = subprocess.run(["dpkg-gensymbols", "-plibtorvane2", "-v2.0.0", "-c4", f"-e{LIBRARY}", "-O/dev/null",
                              "-Idebian/libtorvane2.symbols"], cwd=ROOT, capture_output=True, text=True, check=False)
    if symbols.returncode != 0:
        told.append(symbols.stdout + symbols.stderr)
    print("\n".join(told) or f"{len(files)} files in {len(lists)} packages")
    sys.exit(1 if told or not files else 0)


if __name__ == "__main__":
    main()
