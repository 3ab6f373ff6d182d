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
# Below inventory/: facts and machine are its ground floor, the survey its roof.
INVENTORY = {
    "inventory": set(),
    "reading": {"inventory"},
    "kernel": {"inventory", "reading"},
    "usb": {"inventory", "reading", "kernel"},
    "bays": {"inventory", "reading", "kernel"},
    "drives": {"inventory", "reading", "kernel"},
    "raid": {"inventory", "reading", "kernel"},
    "survey": {"inventory", "reading", "kernel", "usb", "bays", "drives", "raid"},
}
# Of the tool: output prints what it is given, commands choose.
TOOL = {"output": {"output"}, "commands": {"commands", "output"}, "torvane": {"commands", "output"}}
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
    yield from inventory_complaints(root)
    yield from tool_complaints(root)


def room_of(parts):
    """inventory/facts.h -> inventory, inventory/kernel/disks.h -> kernel."""
    return parts[1] if len(parts) > 2 else parts[0]


def includes_below(folder):
    for path in sorted(folder.rglob("*.[ch]*")):
        if path.suffix in {".h", ".cpp"}:
            for include in LOCAL.findall(path.read_text(encoding="utf-8")):
                yield path, include


def inventory_complaints(root):
    for path, include in includes_below(root / "inventory"):
        if include == "torvane.h":
            continue
        home = room_of(path.relative_to(root).parts)
        parts = pathlib.PurePath(include).parts
        target = room_of(parts)
        if parts[0] != "inventory" or (target != home and target not in INVENTORY[home]):
            yield f"{path.relative_to(root)}: {home} must not include {include}"


def tool_complaints(root):
    top = root / "tools" / "torvane"
    for path, include in includes_below(top):
        home = room_of(("torvane", *path.relative_to(top).parts))
        is_own = (top / include).exists() and room_of(("torvane", *pathlib.PurePath(include).parts)) in TOOL[home]
        if include != "torvane.h" and not include.startswith("inventory/") and not is_own:
            yield f"{path.relative_to(root)}: {home} of the tool must not include {include}"


def main():
    root = pathlib.Path(sys.argv[1])
    found = list(complaints(root))
    print("\n".join(found) or f"{len(list((root / 'src').rglob('*.cpp')))} sources keep to the arrows")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
