#!/usr/bin/env python3
"""Builds and runs the programs of docs/tutorial.md, and the examples of the manual, against an installed copy; and the
test of the Python module.

usage: tutorial_test.py SOURCE_ROOT BUILD_DIRECTORY
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

FILES = {"drives.c": "c", "drives.cpp": "cpp", "CMakeLists.txt": "cmake", "drives.py": "python"}
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def run(command, expected=(0,), **options):
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=120, **options)
    if done.returncode not in expected:
        sys.exit(f"{command}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout + done.stderr


def tutorial_blocks(path):
    blocks = re.findall(r"^```(\w+)\n(.*?)^```$", path.read_text(encoding="utf-8"), re.M | re.S)
    if [language for language, _ in blocks] != ["c", "cpp", "cmake", "python"]:
        sys.exit("the tutorial has other programs than one in C, C++ with CMake, and Python")
    return dict(blocks)


def list_drives(command, environment):
    """With and without a serial number; how many drives there are differs from machine to machine."""
    told = [run([*command, *words], env=environment) for words in ([], ["no such serial number"])]
    if not re.search(r"^\d+ drives$", told[0], re.M) or not re.search(r"^0 drives$", told[1], re.M):
        sys.exit(f"{command}: no count of drives in {told}")
    return re.search(r"^\d+ drives$", told[0], re.M).group()


def main():
    root, build = map(pathlib.Path, sys.argv[1:3])
    with tempfile.TemporaryDirectory() as scratch:
        here = pathlib.Path(scratch)
        run(["cmake", "--install", build, "--prefix", here / "installed"])
        library = next(here.glob("installed/**/libtorvane.so")).parent
        module = next(here.glob("installed/**/torvane/__init__.py")).parent.parent
        environment = {**os.environ, "LD_LIBRARY_PATH": str(library), "PKG_CONFIG_PATH": str(library / "pkgconfig"),
                       "PYTHONPATH": str(module), "CMAKE_PREFIX_PATH": str(here / "installed")}
        flags = run(["pkg-config", "--cflags", "--libs", "libtorvane"], env=environment).split()

        blocks = tutorial_blocks(root / "docs/tutorial.md")
        for name, language in FILES.items():
            (here / name).write_text(blocks[language], encoding="utf-8")
        run(["cc", "-std=c11", *STRICT, "-o", here / "in-c", here / "drives.c", *flags])
        run(["cmake", "-S", here, "-B", here / "build", f"-DCMAKE_CXX_FLAGS={' '.join(STRICT)}"], env=environment)
        run(["cmake", "--build", here / "build"])
        programs = [here / "in-c"], [here / "build/drives"], ["/usr/bin/python3", "-B", here / "drives.py"]
        counts = {list_drives(program, environment) for program in programs}
        if len(counts) != 1:
            sys.exit(f"the three programs disagree: {counts}")

        run(["/usr/bin/python3", "-B", root / "tests/reference/module_test.py"], env=environment)

        examples = sorted((root / "docs/generate/examples").glob("*.c"))
        for example in examples:
            run(["cc", "-std=c11", "-D_GNU_SOURCE", *STRICT, "-o", here / example.stem, example, *flags])
            # Whatever this machine has, an example ends by itself: 0, or 1 where there is no such device.
            run([here / example.stem], expected=(0, 1), env=environment, stdin=subprocess.DEVNULL)
    print(f"three programs that list {counts.pop()}, {len(examples)} examples")


if __name__ == "__main__":
    main()
