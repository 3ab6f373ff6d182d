#!/usr/bin/env python3
"""Holds the header, the version script and the library's dynamic symbols against each other.

usage: check_exports.py HEADER VERSION_SCRIPT LIBRARY
"""
import re
import subprocess
import sys


def header_names(path):
    """Functions and data that the header declares, as the C preprocessor leaves it."""
    preprocessed = subprocess.run(["cc", "-std=c11", "-E", path], capture_output=True, text=True, check=True).stdout
    lines, keep = [], False
    for line in preprocessed.splitlines():
        if line.startswith("# "):
            keep = line.split('"')[1] == path
        elif keep:
            lines.append(line)
    text = " ".join(line for line in lines if not line.startswith("#"))
    while True:  # record bodies and attributes hold no names of ours
        shorter = re.sub(r"\{[^{}]*\}", " ", text)
        if shorter == text:
            break
        text = shorter
    names = set()
    for statement in text.split(";"):
        statement = re.sub(r"__attribute__\s*\(\(.*?\)\)\)?", " ", statement).strip()
        if statement.startswith("typedef") or not statement:
            continue
        if statement.startswith("extern const"):
            names.update(name.strip() for name in statement.split(None, 3)[3].split(","))
        elif "(" in statement:
            names.add(re.search(r"(\w+)\s*\(", statement).group(1))
    return names


def script_names(path):
    text = re.sub(r"#.*|/\*.*?\*/", "", open(path, encoding="utf-8").read())
    return {name for part in re.findall(r"global:(.*?)(?:local:|\})", text, re.S) for name in re.findall(r"(\w+)\s*;", part)}


def exported_names(path):
    output = subprocess.run(["nm", "-D", "--defined-only", path], capture_output=True, text=True, check=True).stdout
    names = {line.split()[-1] for line in output.splitlines()}
    unversioned = {name for name in names if "@@TORVANE_" not in name and not name.startswith("TORVANE_")}
    if unversioned:
        sys.exit(f"exported without a version: {sorted(unversioned)}")
    return {name.split("@")[0] for name in names if "@@" in name}


def main():
    header, script, library = header_names(sys.argv[1]), script_names(sys.argv[2]), exported_names(sys.argv[3])
    failed = False
    for one, other, what in (
        (header, script, "declared, not in the version script"),
        (script, header, "in the version script, not declared"),
        (script, library, "in the version script, not exported"),
        (library, script, "exported, not in the version script"),
    ):
        if one - other:
            print(f"{what}: {', '.join(sorted(one - other))}")
            failed = True
    print(f"{len(header)} declared, {len(script)} in the version script, {len(library)} exported")
    sys.exit(1 if failed or len(header) < 100 else 0)


if __name__ == "__main__":
    main()
