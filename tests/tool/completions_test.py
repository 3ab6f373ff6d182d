#!/usr/bin/python3
"""TAB in real shells, on a machine made of files: what is on the line afterwards.

usage: completions_test.py TORVANE ON_MACHINE SOURCE_ROOT
"""
import os
import pathlib
import pty
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import unittest

from rows import rows_of

TORVANE, ON_MACHINE, ROOT = (os.path.abspath(word) for word in sys.argv[1:4])
COMPLETIONS = pathlib.Path(ROOT, "tools", "torvane", "completions")
RACK = os.path.join(ROOT, "tests", "tool", "machines", "rack.tree")
SLOWEST = 0.05  # seconds: people notice more

# Where each shell finds its own: what to run, and the start-up file that loads it.
SHELLS = {
    "bash": (["bash", "--noprofile", "--rcfile", "{home}/rc", "-i"], "rc", "PS1='ready> '; . {completions}/torvane.bash\n"),
    "zsh": (["zsh", "-i"], ".zshrc",
            "PS1='ready> '; fpath=({completions} $fpath); autoload -Uz compinit; compinit -u -d {home}/dump\n"),
    "fish": (["fish", "-i"], ".config/fish/config.fish",
             "function fish_prompt; echo 'ready> '; end; set fish_greeting; source {completions}/torvane.fish\n"),
}


class Shell:
    """A shell in a terminal of its own; its torvane writes down what it was called with."""

    def __init__(self, name, home):
        command, start_up, text = SHELLS[name]
        self.words = home / "words"
        torvane = home / "bin" / "torvane"
        torvane.parent.mkdir()
        torvane.write_text(f'#!/bin/sh\n[ "$1" = complete ] && exec {TORVANE} "$@"\n'
                           f'printf "%s\\n" "$@" >{home}/new && mv {home}/new {self.words}\n', encoding="utf-8")
        torvane.chmod(0o755)
        place = home / start_up
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_text(text.format(home=home, completions=COMPLETIONS), encoding="utf-8")
        environment = os.environ | {"HOME": str(home), "ZDOTDIR": str(home), "XDG_CONFIG_HOME": str(home / ".config"),
                                    "XDG_DATA_HOME": str(home), "TERM": "xterm", "PATH": f"{home}/bin:{os.environ['PATH']}"}
        line = [ON_MACHINE, RACK, *(word.format(home=home) for word in command)]
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.execve(line[0], line, environment)
        self.wait_for(b"ready> ")

    def wait_for(self, text, seen=b""):
        while text not in seen:
            seen += os.read(self.terminal, 65536)

    def complete(self, line):
        self.words.unlink(missing_ok=True)
        os.write(self.terminal, b"torvane " + line.encode() + b"\t\r")
        end = time.monotonic() + 20
        while not self.words.exists() and time.monotonic() < end:
            time.sleep(0.01)
        self.wait_for(b"ready> ")
        return self.words.read_text(encoding="utf-8").splitlines() if self.words.exists() else None

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.child, 0)


class Completions(unittest.TestCase):
    def try_shell(self, name):
        if shutil.which(name) is None:
            self.skipTest(f"{name} is not installed")
        with tempfile.TemporaryDirectory() as home:
            shell = Shell(name, pathlib.Path(home))
            for line, words in rows_of("completions.txt"):
                with self.subTest(line=line):
                    self.assertEqual(shell.complete(line), words.split())
            shell.close()

    def test_bash(self):
        self.try_shell("bash")

    def test_zsh(self):
        self.try_shell("zsh")

    def test_fish(self):
        self.try_shell("fish")

    def test_nobody_waits_for_it(self):
        if "sanitizers" in TORVANE:
            self.skipTest("a build of ten times the cost")
        for words in ([""], ["show", ""], ["list", "-o", ""]):
            times = []
            for _ in range(7):
                begin = time.monotonic()
                subprocess.run([TORVANE, "complete", *words], stdout=subprocess.DEVNULL, check=True)
                times.append(time.monotonic() - begin)
            self.assertLess(statistics.median(times), SLOWEST, words)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-v"])
