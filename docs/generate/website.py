"""The manual as HTML: a page for each manual page, and an index whose search works from a file."""
import concurrent.futures
import html
import json
import pathlib
import re
import subprocess

STYLE = """
:root { color-scheme: light dark; }
body { max-width: 56rem; margin: 1rem auto; padding: 0 1rem; font: 1rem/1.5 system-ui, sans-serif; }
pre, code, .Nm, .Fn, .Fa, .Ft, .Va, .Vt, .Dv, .In { font-family: ui-monospace, monospace; font-style: normal; }
pre { padding: .5rem 1rem; overflow-x: auto; border-left: 3px solid #8888; }
h1 { font-size: 1.15rem; } h2 { font-size: 1rem; margin-bottom: 0; }
table.head, table.foot { width: 100%; opacity: .6; } .head-vol { text-align: center; }
.head-rtitle { text-align: right; }
.permalink { color: inherit; text-decoration: none; }
dt { margin-top: .3rem; } dd { margin-left: 2rem; } .Bl-compact > dt { margin-top: 0; }
input { width: 100%; font-size: 1.1rem; padding: .4rem; box-sizing: border-box; }
li[hidden], section[hidden] { display: none; } ul { padding-left: 1rem; } footer { margin-top: 2rem; opacity: .6; }
"""

# Words of the query may stand anywhere in a name, its summary or its section's title; all of them must.
SEARCH = """
const box = document.getElementById("search"), told = document.getElementById("told");
const rows = [...document.querySelectorAll("li")], words = WORDS;
function search() {
  const wanted = box.value.toLowerCase().split(/\\s+/).filter(Boolean);
  let shown = 0;
  rows.forEach((row, i) => {
    row.hidden = !wanted.every(word => words[i].includes(word));
    if (!row.hidden) ++shown;
  });
  document.querySelectorAll("section").forEach(part => part.hidden = !part.querySelector("li:not([hidden])"));
  told.textContent = wanted.length ? shown + " of " + rows.length : "";
}
box.addEventListener("input", search);
box.addEventListener("keydown", event => {
  const first = rows.find(row => !row.hidden);
  if (event.key === "Enter" && first) location.href = first.querySelector("a").href;
});
search();
"""

PAGE = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>{title}</title><link rel="stylesheet" href="style.css"></head><body>
{body}
</body></html>
"""

LINK = re.compile(r'<a class="Xr" href="(\w+)\.html">(.*?)</a>')


def convert(source, folder, system, known):
    command = ["mandoc", "-T", "html", "-O", "fragment,man=%N.html", "-I", f"os={system}", source]
    body = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    name = source.stem
    body = LINK.sub(lambda link: link.group(0 if link.group(1) in known else 2), body)
    page = PAGE.format(title=html.escape(source.name), body=f'<nav><a href="index.html">torvane</a></nav>\n{body}')
    pathlib.Path(folder, f"{name}.html").write_text(page, encoding="utf-8")


def index(model, notes, records):
    """Rows in the order of the header, which is that of the subjects."""
    words, parts = [], []

    def part(title, rows):
        items = []
        for name, summary in rows:
            words.append(f"{name} {summary} {title}".lower())
            items.append(f'<li><a href="{name}.html"><code>{name}</code></a> {html.escape(summary)}</li>')
        parts.append(f"<section><h2>{html.escape(title)}</h2><ul>{''.join(items)}</ul></section>")

    part("Where to begin",
         [("libtorvane", "the contract of the whole interface"), ("torvane", "the command-line tool")])
    for title in model.sections:
        part(title, [(name, notes[name].summary) for name, item in model.exports.items() if item.section == title])
    part("Records", records)
    script = SEARCH.replace("WORDS", json.dumps(words).replace("</", "<\\/"))
    body = (f"<h1>torvane {model.version}</h1><p>The storage devices of a Linux machine, and what they are.</p>"
            '<input id="search" type="search" autofocus placeholder="Search names and summaries" aria-label="Search">'
            f'<p id="told"></p>{"".join(parts)}<script>{script}</script>')
    return PAGE.format(title="torvane: reference", body=body)


def write(model, notes, records, pages, folder):
    folder.mkdir(parents=True)
    (folder / "style.css").write_text(STYLE.lstrip(), encoding="utf-8")
    (folder / "index.html").write_text(index(model, notes, records), encoding="utf-8")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        known = {page.stem for page in pages}  # pages of other packages are named without a link
        list(pool.map(lambda page: convert(page, folder, f"torvane {model.version}", known), pages))
