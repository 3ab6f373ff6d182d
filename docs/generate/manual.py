"""Manual pages: one for each exported name, one for each record, and libtorvane(3)."""
import pathlib
import re
import textwrap
from dataclasses import dataclass

from interface import HeaderError, enumeration_of, record_of

# Characters that roff takes for others of its own.
SPECIAL = str.maketrans({"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti", '"': "\\(dq"})
UNIT = re.compile(r"\b(bytes?|sectors?|logical blocks|rotations per minute|seconds)\b")
SENTENCE_END = re.compile(r"(?<=[.;:!?])\s+(?=[A-Z`0-9-])|(?<=[.!?])\s+")
REFERENCE = re.compile(r"(?<![\w.])(\w+)\(\)")
MARKED = re.compile(r"(?P<before>[^\s`\w]*)(?:`(?P<code>[^`]+)`|\b(?P<name>\w+)\(\))(?P<after>\S*)")


OWNED_PLACES = {
    "char **": "The string in `{}` is the caller's, who returns it with free().",
    "char ***": "The array in `{}` and its strings are the caller's.",
    "FILE **": "The stream in `{}` is the caller's, who closes it with fclose().",
}
OWNED_BY_HAND = {
    "PartitionList": "each name and the array with free().",
    "DeviceState": "`firmware_image` with free().",
}


@dataclass
class Note:
    summary: str
    result: str = ""
    more: str = ""
    ownership: str = ""


def read_notes(path, model):
    """functions.txt, held against the header: every exported name has its line, and no other."""
    notes, last = {}, None
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        if line.startswith("= ") and last:
            last.result = line[2:]
        elif line.startswith("| ") and last:
            last.more += line[1:]
        elif line.startswith("@ ") and last:
            last.ownership = line[2:]
        elif line and not line.startswith("#"):
            name, _, summary = line.partition(": ")
            last = notes[name] = Note(summary)
    differing = set(notes) ^ set(model.exports)
    if differing:
        raise HeaderError(f"{path}: not both declared and described: {', '.join(sorted(differing))}")
    return notes


def record_summary(record):
    first = " ".join(re.split(r"[:;]|\.(?!\d)", record.comment, maxsplit=1)[0].split())
    is_word = first[1:2].islower() or first[1:2] == " "  # and no abbreviation
    return (first[:1].lower() + first[1:] if is_word else first) or "a record"


def escaped(text):
    """Text for the middle of a roff line."""
    return text.translate(SPECIAL)


def quoted(text):
    """One argument of a macro."""
    return f'"{escaped(text)}"'


class Page:
    """Lines of mdoc."""

    def __init__(self, name, section, summary, writer):
        self.name, self.section, self.writer = name, section, writer
        self.lines = [f".Dd {writer.date}", f".Dt {name.upper()} {section}", ".Os",
                      ".Sh NAME", f".Nm {name}", f".Nd {escaped(summary)}",
                      ".Sh LIBRARY", "Storage devices of a Linux machine (libtorvane, \\-ltorvane)"]

    def add(self, *lines):
        self.lines += lines

    def heading(self, title):
        self.lines.append(f".Sh {title}")

    def text(self, text):
        """Words of the header: one sentence a line, `code` and references as macros."""
        for sentence in SENTENCE_END.split(" ".join(text.split())):
            self.sentence(sentence)

    def sentence(self, sentence):
        position = 0
        for found in MARKED.finditer(sentence):
            self.plain(sentence[position:found.start()])
            self.macro(found)
            position = found.end()
        self.plain(sentence[position:])

    def plain(self, text):
        for line in textwrap.wrap(escaped(text.strip()), 78, break_long_words=False, break_on_hyphens=False):
            self.lines.append(("\\&" if line[0] in ".'" else "") + line)

    def macro(self, found):
        """`code` or name() on a line of its own, with the marks around it."""
        before, code, name, after = found.group("before", "code", "name", "after")
        if code:
            macro = ("Fa " if code.isidentifier() else "Ql ") + quoted(code)
        elif name in self.writer.model.exports and name != self.name:
            macro = f"Xr {name} 3"
        else:
            macro = f"Fn {name}"
        opening = f"No {escaped(before)} Ns " if before else ""
        is_punctuation = re.fullmatch(r"[.,;:)!?]*", after)
        closing = "".join(f" {mark}" for mark in after) if is_punctuation else f" Ns {escaped(after)}"
        self.lines.append(f".{opening}{macro}{closing}")

    def listing(self, rows):
        """(term macro line, text) pairs."""
        self.add('.Bl -tag -width Ds -compact')
        for term, text in rows:
            self.add(f".It {term}")
            if text:
                self.text(text)
        self.add(".El")

    def literal(self, text):
        self.add(".Bd -literal")
        for line in text.rstrip("\n").split("\n"):
            line = escaped(line)
            self.add(("\\&" if line[:1] in (".", "'") else "") + line)
        self.add(".Ed")

    def see_also(self, names):
        self.heading("SEE ALSO")
        names = sorted(set(names) - {(self.name, self.section)}, key=lambda item: (item[1], item[0].lower()))
        for i, (name, section) in enumerate(names):
            self.add(f".Xr {name} {section}" + (" ," if i + 1 < len(names) else ""))

    def write(self, folder):
        pathlib.Path(folder, f"{self.name}.{self.section}").write_text("\n".join(self.lines) + "\n", encoding="utf-8")


class Writer:
    def __init__(self, model, notes, failures, examples, date):
        self.model, self.notes, self.failures, self.examples, self.date = model, notes, failures, examples, date
        self.owners = model.owners()

    # ---- What a signature tells --------------------------------------------------------------------

    def records_in(self, export):
        """Names of the records that the signature names, in order."""
        kinds = [export.result, *(parameter.type for parameter in export.parameters)] if export.is_function else [
            export.cursor.type]
        names = [record_of(kind) for kind in kinds]
        return list(dict.fromkeys(name for name in names if name in self.model.records))

    def enumerations_in(self, export):
        names = {enumeration_of(parameter.type) for parameter in export.parameters}
        names.add(enumeration_of(export.result) if export.is_function else "")
        return [item for item in self.model.enumerations
                if (item.name and item.name in names) or f"{export.name}()" in item.comment]

    def fields_below(self, record, seen):
        """(path, comment) of every field, records inside included."""
        if record in seen or record not in self.model.records:
            return
        seen.add(record)
        for item in self.model.records[record].fields:
            yield f"{record}.{item.name}", item.comment
            yield from self.fields_below(record_of(item.type), seen)

    def units(self, export):
        seen = set()
        rows = [(path, comment) for record in self.records_in(export)
                for path, comment in self.fields_below(record, seen) if UNIT.search(comment)]
        for parameter in export.parameters:
            if parameter.name.endswith("_seconds"):
                rows.append((parameter.name, "seconds"))
            elif parameter.type.spelling == "size_t":
                rows.append((parameter.name, "bytes"))
        return rows

    def ownership(self, export):
        """Who frees what, by the types: the contract of the library's head, applied."""
        if self.notes[export.name].ownership:
            return [self.notes[export.name].ownership]
        if export.name.startswith(("release_", "destroy_")):
            return ["What it frees was the caller's, and is not to be used again.", "Null is accepted."]
        said = [self.owned_result(export), *(self.owned_place(export, item) for item in export.parameters)]
        return [words for words in said if words] or [
            "Nothing changes hands: what the arguments point to stays the caller's."]

    def owned_result(self, export):
        record = record_of(export.result)
        if export.result.spelling == "char *":
            return "The string is the caller's, who returns it with free()."
        if export.result.spelling == "const char *":
            return "The text is not the caller's and must not be freed."
        if not self.is_owner(record):
            return ""
        return f"The result is the caller's, who returns it with {self.owners[record][0]}()."

    def owned_place(self, export, parameter):
        kind, record = parameter.type.spelling, record_of(parameter.type)
        held = f"What `{parameter.name}` holds afterwards is the caller's, who returns "
        if kind in OWNED_PLACES:
            return OWNED_PLACES[kind].format(parameter.name)
        if "const" in kind:
            return ""
        if record in OWNED_BY_HAND:
            return held + OWNED_BY_HAND[record]
        return f"{held}it with {self.releaser(export, parameter)}()." if self.is_owner(record) else ""

    def is_owner(self, record):
        return record in self.owners

    def releaser(self, export, parameter):
        """destroy_raids() for an array, destroy_controller() for one of them."""
        functions = self.owners[record_of(parameter.type)]
        is_array = parameter.type.spelling.count("*") > 1 or any("count" in item.name for item in export.parameters)
        return functions[-1] if is_array else functions[0]

    def default_result(self, export):
        kind = export.result.spelling
        if kind == "void":
            return "None."
        if kind.endswith("*"):
            return "What was made, or a null pointer on failure."
        return "0 on success, -1 on failure."

    # ---- Pages ---------------------------------------------------------------------------------------

    def synopsis(self, page, export):
        page.heading("SYNOPSIS")
        page.add(".In torvane.h")
        if not export.is_function:
            page.add(f".Vt extern {export.cursor.type.spelling}")
            page.add(f".Va {export.name} ;")
            return
        page.add(f".Ft {quoted(export.result.spelling)}", f".Fo {export.name}")
        page.add(*(f".Fa {quoted(parameter.text)}" for parameter in export.parameters))
        if export.is_variadic:
            page.add('.Fa "..."')
        elif not export.parameters:
            page.add(".Fa void")
        page.add(".Fc")

    def description(self, page, export):
        page.heading("DESCRIPTION")
        page.text(export.comment)
        if self.notes[export.name].more:
            page.add(".Pp")
            page.text(self.notes[export.name].more)
        if len(export.kin) > 1:
            page.add(".Pp", "These words are for the following, in this order:")
            page.listing((f"Fn {name}" if name == export.name else f"Xr {name} 3", self.notes[name].summary)
                         for name in export.kin)

    def errors(self, page, export):
        page.heading("ERRORS")
        found = self.failures.get(export.name)
        if found is None or not (found.texts or found.calls):
            page.add("It sets no error text.")
            return
        page.add("A failure leaves its words for", ".Xr get_error_str 3 .")
        for category in sorted({category for category, _ in found.texts}):
            page.add(".Pp", f".Dv {category} :", ".Bd -literal -offset indent -compact")
            page.add(*(escaped(text) for name, text in sorted(found.texts) if name == category), ".Ed")
        if found.calls:
            page.add(".Pp", "They may also be those of what it calls:")
            calls = sorted(found.calls)
            page.add(*(f".Xr {name} 3" + (" ," if name != calls[-1] else " .") for name in calls))

    def export_page(self, export):
        note = self.notes[export.name]
        page = Page(export.name, "3", note.summary, self)
        self.synopsis(page, export)
        self.description(page, export)
        for i, item in enumerate(self.enumerations_in(export)):
            if i == 0:
                page.heading("CONSTANTS")
            page.text(item.comment)
            page.listing((f"Dv {constant.name} No = {constant.value}", constant.comment) for constant in item.constants)
        if export.is_function:
            page.heading("RETURN VALUES")
            page.text(note.result or self.default_result(export))
            page.heading("OWNERSHIP")
            page.text(" ".join(self.ownership(export)))
            units = self.units(export)
            if units:
                page.heading("UNITS")
                page.listing((f"Va {path}", comment) for path, comment in units)
            self.example(page, export)
            self.errors(page, export)
        self.related(page, export)
        return page

    def example(self, page, export):
        source = next((self.examples[name] for name in [export.name, *export.kin] if name in self.examples), None)
        if source:
            page.heading("EXAMPLES")
            page.literal(source)

    def related(self, page, export):
        names = {(name, "3") for name in export.kin} | {("libtorvane", "3"), ("get_error_str", "3")}
        names |= {(name, "3") for name in REFERENCE.findall(export.comment) if name in self.model.exports}
        records = self.records_in(export)
        names |= {(record, "3") for record in records}
        names |= {(name, "3") for record in records for name in self.owners.get(record, [])}
        page.see_also(names)

    def record_page(self, record):
        page = Page(record.name, "3", record_summary(record), self)
        page.heading("SYNOPSIS")
        page.add(".In torvane.h", ".Bd -literal", f"typedef struct {record.name} {{")
        page.add(*(f"    {escaped(item.text)};" for item in record.fields), f"}} {record.name};", ".Ed")
        page.heading("DESCRIPTION")
        page.text(record.comment or f"{record.name}.")
        page.listing((f"Va {item.name}", item.comment) for item in record.fields)
        users = [(export.name, "3") for export in self.model.exports.values() if record.name in self.records_in(export)]
        inner = {record_of(item.type) for item in record.fields} & set(self.model.records)
        page.see_also([*users, *((name, "3") for name in inner), ("libtorvane", "3")])
        return page

    def library_page(self):
        page = Page("libtorvane", "3", "the storage devices of a Linux machine, and what they are", self)
        page.heading("SYNOPSIS")
        page.add(".In torvane.h")
        page.heading("DESCRIPTION")
        for paragraph in self.model.head.split("\n\n")[1:]:
            title, dot, rest = paragraph.partition(".  ")
            if dot:
                page.add(f".Ss {escaped(title)}")
                page.text(rest)
            else:
                page.text(paragraph)
        page.heading("CONSTANTS")
        for i, item in enumerate(self.model.enumerations):
            if i > 0:
                page.add(".Pp")
            page.text(item.comment)
            page.listing((f"Dv {constant.name} No = {constant.value}", constant.comment) for constant in item.constants)
        page.heading("FUNCTIONS")
        for section in self.model.sections:
            page.add(f".Ss {escaped(section)}")
            page.listing((f"Xr {name} 3", self.notes[name].summary)
                         for name, export in self.model.exports.items() if export.section == section)
        page.heading("DATA TYPES")
        page.listing((f"Xr {name} 3", "") for name in self.model.records)
        page.see_also([("torvane", "1"), ("get_drives", "3"), ("get_error_str", "3")])
        return page

    def pages(self):
        yield self.library_page()
        for export in self.model.exports.values():
            yield self.export_page(export)
        for record in self.model.records.values():
            yield self.record_page(record)
