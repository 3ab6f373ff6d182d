#!/usr/bin/env python3
"""Checks that the functions which the failure sweep passes over make no call that could fail.

The sweep lists exports without a step of their own (kPlainNames). From the library's machine code this follows their
calls, and those of what they call, to the functions that the test program answers in the C library's place.
usage: check_plain.py LIBRARY TEST_PROGRAM FAILURE_ROWS
"""
import pathlib
import re
import subprocess
import sys

library, program, rows = sys.argv[1:]
CANNOT_FAIL = {"free"}


def output_of(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(*arguments: str) -> set[str]:
    return {line.split()[-1].split("@")[0] for line in output_of("nm", *arguments).splitlines() if line.strip()}


def calls_by_function() -> dict[str, set[str]]:
    found: dict[str, set[str]] = {}
    current: set[str] = set()
    for line in output_of("objdump", "-d", "--no-show-raw-insn", library).splitlines():
        if start := re.fullmatch(r"[0-9a-f]+ <(.+)>:", line):
            current = found.setdefault(start[1], set())
        elif call := re.search(r"\t(?:call|jmp|ja|jae|jb|jbe|je|jne|js|jns|jg|jge|jl|jle)\s+[0-9a-f]+ <([^+>]+)", line):
            current.add(call[1])
    return found


def reached_from(name: str, calls: dict[str, set[str]]) -> set[str]:
    seen = {name}
    waiting = [name]
    while waiting:
        for called in calls.get(waiting.pop(), ()):
            if called not in seen:
                seen.add(called)
                waiting.append(called)
    return {called.split("@")[0] for called in seen if "@plt" in called}


answered = (symbols("-D", "--undefined-only", library) & symbols("--defined-only", program)) - CANNOT_FAIL
text = pathlib.Path(rows).read_text(encoding="utf-8").split("kPlainNames =")[1].split(";")[0]
names = " ".join(re.findall(r'"([^"]*)"', text)).split()
calls = calls_by_function()
functions = [name for name in names if name in calls]
faults = 0
for name in functions:
    steps = reached_from(name, calls) & answered
    faults += bool(steps)
    if steps:
        print(f"{name} calls {', '.join(sorted(steps))}: it needs a row")
print(f"{len(functions)} functions without a step, {len(answered)} calls that can fail; {faults} faults")
sys.exit(1 if faults or len(functions) < 40 or len(answered) < 30 else 0)
