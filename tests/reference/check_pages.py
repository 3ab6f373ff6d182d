#!/usr/bin/env python3
"""Holds the manual's section 3 against the library's exports, and every page against mandoc's linter and its
neighbours: nothing may be referred to that has no page.

usage: check_pages.py REFERENCE VERSION_SCRIPT
"""
import pathlib
import re
import subprocess
import sys

OTHERS = {"torvane 1"}


def exported(script):
    text = re.sub(r"#.*|/\*.*?\*/", "", pathlib.Path(script).read_text(encoding="utf-8"))
    parts = re.findall(r"global:(.*?)(?:local:|\})", text, re.S)
    return {name for part in parts for name in re.findall(r"(\w+)\s*;", part)}


def findings(pages):
    """mandoc looks for the manuals of other pages among the installed ones only; here ours are looked for."""
    names = {f"{page.stem} 3" for page in pages} | OTHERS
    lint = subprocess.run(["mandoc", "-T", "lint", *pages], capture_output=True, text=True, check=False).stdout
    for line in lint.splitlines():
        unknown = re.search(r"referenced manual not found: Xr (\w+ \d)", line)
        if not unknown or unknown.group(1) not in names:
            yield line


def wide_examples(pages):
    """Code is never wrapped: a terminal of 80 columns has to have room for it."""
    for page in pages:
        _, _, rest = page.read_text(encoding="utf-8").partition(".Sh EXAMPLES\n")
        for line in rest.partition("\n.Sh ")[0].splitlines():
            if len(re.sub(r"\\(\(..|.)", "_", line)) > 75:
                yield f"{page.name}: wider than a terminal: {line.strip()}"


def link_findings(folder):
    pages = {page.name for page in folder.iterdir()}
    for page in sorted(folder.glob("*.html")):
        for link in re.findall(r'href="([^"#:]+)[^"]*"', page.read_text(encoding="utf-8")):
            if link not in pages:
                yield f"{page.name}: no {link}"


def main():
    reference, names = pathlib.Path(sys.argv[1]), exported(sys.argv[2])
    pages = sorted((reference / "man3").iterdir())
    told = [*findings(pages), *wide_examples(pages), *link_findings(reference / "html")]
    told += [f"no page of {name}" for name in sorted(names - {page.stem for page in pages})]
    for page in pages:
        text = page.read_text(encoding="utf-8")
        tells_result = page.stem not in names or ".Sh RETURN VALUES" in text or ".Vt" in text
        if f".Nm {page.stem}\n" not in text or not tells_result:
            told.append(f"{page.name}: name or result are missing")
    index = (reference / "html/index.html").read_text(encoding="utf-8")
    told += [f"not in the index: {name}" for name in sorted(names) if f'href="{name}.html"' not in index]
    print("\n".join(told) or f"{len(names)} exports, {len(pages)} pages without findings")
    sys.exit(1 if told or len(names) < 200 else 0)


if __name__ == "__main__":
    main()
