#!/usr/bin/env python3
"""Makes from torvane.h the manual pages of section 3, their HTML, and the Python module's declarations.

usage: generate.py ROOT OUTPUT       pages in OUTPUT/man3, HTML in OUTPUT/html, the module in OUTPUT/python
       generate.py --check ROOT      only whether all that is needed is there
"""
import pathlib
import re
import shutil
import sys

HERE = pathlib.Path(__file__).resolve().parent


def manual_date(root):
    """The command-line tool's manual carries the date that all pages have: the same sources give the same pages."""
    return re.search(r"^\.Dd (.+)$", pathlib.Path(root, "man/torvane.1").read_text(encoding="utf-8"), re.M).group(1)


def generate(root, output):
    import bindings
    import failures
    import interface
    import manual
    import website

    model = interface.read_header(f"{root}/include/torvane.h")
    examples = {path.stem: path.read_text(encoding="utf-8") for path in sorted(HERE.glob("examples/*.c"))}
    unknown = set(examples) - set(model.exports)
    if unknown:
        raise interface.HeaderError(f"examples of no exported name: {', '.join(sorted(unknown))}")
    texts = failures.all_failures(model, root, output / "cache")
    notes = manual.read_notes(HERE / "functions.txt", model)
    writer = manual.Writer(model, notes, texts, examples, manual_date(root))
    for part in ("man3", "html", "python"):
        shutil.rmtree(output / part, ignore_errors=True)
    (output / "man3").mkdir(parents=True)
    for page in writer.pages():
        page.write(output / "man3")
    shutil.copytree(root / "python", output / "python", ignore=shutil.ignore_patterns("__pycache__"))
    declarations = bindings.declarations(model, notes)
    (output / "python/torvane/_interface.py").write_text(declarations, encoding="utf-8")
    if shutil.which("mandoc"):
        records = [(record.name, manual.record_summary(record)) for record in model.records.values()]
        pages = [*sorted((output / "man3").iterdir()), root / "man/torvane.1"]
        website.write(model, notes, records, pages, output / "html")
    else:
        print("mandoc is not here: no HTML of the manual", file=sys.stderr)


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "--check":
        import interface
        interface.read_header(f"{sys.argv[2]}/include/torvane.h")
    elif len(sys.argv) == 3:
        generate(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
