#!/usr/bin/env python3
"""Fails when a folder includes one that the architecture keeps it from.

usage: check_arrows.py SOURCE_ROOT
"""
import pathlib
import re
import sys

ALLOWED = {
    "foundation": set(),
    "identity": {"foundation"},
    "monitor": {"foundation", "identity"},
    "removable": {"foundation", "identity", "monitor"},
    "raid": {"foundation", "identity"},
    "drives": {"foundation", "identity", "monitor", "removable", "raid"},
}
LOCAL = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def complaints(root):
    for path in sorted((root / "src").rglob("*.[ch]*")):
        if path.suffix not in {".h", ".cpp"}:
            continue
        home = path.relative_to(root / "src").parts[0]
        for include in LOCAL.findall(path.read_text(encoding="utf-8")):
            target = include.split("/")[0]
            if include != "torvane.h" and target != home and target not in ALLOWED[home]:
                yield f"{path.relative_to(root)}: {home} must not include {include}"
    for path in sorted((root / "tools").rglob("*.[ch]*")):
        for include in LOCAL.findall(path.read_text(encoding="utf-8")):
            if include != "torvane.h" and not (path.parent / include).exists():
                yield f"{path.relative_to(root)}: the tool uses only torvane.h, not {include}"


def main():
    root = pathlib.Path(sys.argv[1])
    found = list(complaints(root))
    print("\n".join(found) or f"{len(list((root / 'src').rglob('*.cpp')))} sources keep to the arrows")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
