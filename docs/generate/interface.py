"""The public header as a model: sections, functions, data, records, enumerations, with their comments.

Whatever is made from torvane.h is made from this one parse.
"""
import pathlib
import re
import subprocess
from dataclasses import dataclass, field

from clang import cindex
from clang.cindex import CursorKind, TypeKind

SECTION = re.compile(r"/\* ---- (.*?) -{3,} \*/")


class HeaderError(Exception):
    """The header cannot be parsed, or something in it cannot be documented."""


@dataclass
class Parameter:
    name: str
    type: cindex.Type
    text: str  # as the header has it


@dataclass
class Export:
    """A function, or a constant that the library exports."""

    name: str
    cursor: cindex.Cursor
    section: str
    comment: str
    kin: list = field(default_factory=list)  # names that share the comment, in order, this one too
    parameters: list = field(default_factory=list)

    @property
    def is_function(self):
        return self.cursor.kind == CursorKind.FUNCTION_DECL

    @property
    def is_variadic(self):
        return self.is_function and self.cursor.type.is_function_variadic()

    @property
    def result(self):
        return self.cursor.result_type


@dataclass
class Field:
    name: str
    type: cindex.Type
    text: str  # as the header has it
    comment: str


@dataclass
class Record:
    name: str
    type: cindex.Type
    comment: str
    section: str
    fields: list


@dataclass
class Constant:
    name: str
    value: int
    comment: str


@dataclass
class Enumeration:
    name: str  # "DriveType", also where C has only an int of that name; "" when the comment names none
    comment: str
    constants: list


@dataclass
class Interface:
    head: str
    version: str
    exports: dict
    records: dict
    enumerations: list
    sections: list

    def owners(self):
        """Record name -> the functions that release it, the one that takes the record first."""
        found = {}
        for export in self.exports.values():
            if export.is_function and export.name.startswith(("release_", "destroy_")):
                record = record_of(export.parameters[0].type)
                if record:
                    found.setdefault(record, []).append(export.name)
        return found


def record_of(kind):
    """The name of the record behind any number of pointers, or None."""
    while kind.kind == TypeKind.POINTER:
        kind = kind.get_pointee()
    declaration = kind.get_canonical().get_declaration()
    return declaration.spelling if declaration.kind == CursorKind.STRUCT_DECL and declaration.spelling else None


def enumeration_of(kind):
    """DriveOptions, DeviceKind: integers by a name of their own."""
    while kind.kind == TypeKind.POINTER:
        kind = kind.get_pointee()
    return kind.spelling.replace("const ", "")


def builtin_headers():
    """stddef.h and its like: Debian keeps the parser's own apart from the parser; the compiler's serve as well."""
    return subprocess.run(["cc", "-print-file-name=include"], capture_output=True, text=True, check=True).stdout.strip()


def parse(path, language=("-x", "c", "-std=c11"), options=0, text=None):
    """The file, or the text instead of what is in it."""
    unit = cindex.Index.create().parse(str(path), args=[*language, "-isystem", builtin_headers()], options=options,
                                       unsaved_files=[] if text is None else [(str(path), text)])
    errors = [str(note) for note in unit.diagnostics if note.severity >= cindex.Diagnostic.Error]
    if errors:
        raise HeaderError("\n".join(errors))
    return unit


class Comments:
    """The comments of the header, by the line that they speak of."""

    def __init__(self, text):
        self.text = text.encode()
        self.lines = text.splitlines()
        self.blocks = {}  # last line -> (first line, text)
        for found in re.finditer(r"/\*.*?\*/", text, re.S):
            first = text.count("\n", 0, found.start()) + 1
            last = text.count("\n", 0, found.end()) + 1
            body = re.sub(r"\n[ \t]*\*? ?", "\n", found.group()[2:-2])
            self.blocks[last] = (first, body.strip())

    def source(self, cursor):
        return " ".join(self.text[cursor.extent.start.offset:cursor.extent.end.offset].decode().split())

    def alone(self, line):
        """The comment that ends in this line, when nothing else is in its lines."""
        if line not in self.blocks:
            return None
        first, body = self.blocks[line]
        starts = self.lines[first - 1].lstrip().startswith("/*") and self.lines[line - 1].rstrip().endswith("*/")
        return body if starts and not SECTION.match(self.lines[first - 1].lstrip()) else None

    def above(self, line):
        return self.alone(line - 1)

    def beside(self, line):
        """The comment that stands behind a declaration."""
        for first, body in self.blocks.values():
            if first == line and not self.lines[line - 1].lstrip().startswith("/*"):
                return " ".join(body.split())
        return ""

    def continues(self, line):
        """Whether the declaration that begins here stands right below another's last line."""
        return line > 1 and self.lines[line - 2].rstrip().endswith(";") and "/*" not in self.lines[line - 2]

    def section(self, line):
        for number in range(line, 0, -1):
            found = SECTION.search(self.lines[number - 1])
            if found:
                return found.group(1)
        return ""


def read_record(cursor, comments):
    def beside(item):
        note = comments.beside(item.extent.end.line)
        return note or " ".join((comments.above(item.extent.start.line) or "").split())

    fields = [Field(item.spelling, item.type, comments.source(item), beside(item))
              for item in cursor.get_children() if item.kind == CursorKind.FIELD_DECL]
    line = cursor.extent.start.line
    return Record(cursor.spelling, cursor.type, comments.above(line) or "", comments.section(line), fields)


def read_enumeration(cursor, comments):
    line = cursor.extent.start.line
    comment = comments.above(line)
    while comment is None and comments.lines[line - 2].startswith("typedef"):
        line -= 1
        comment = comments.above(line)
    comment = comment or ""
    named = re.match(r"(\w+): ", comment)
    own_lines = cursor.extent.start.line != cursor.extent.end.line
    constants = [Constant(item.spelling, item.enum_value, comments.beside(item.extent.end.line) if own_lines else "")
                 for item in cursor.get_children()]
    return Enumeration(cursor.spelling or (named.group(1) if named else ""), comment, constants)


def add_export(exports, cursor, comments):
    line = cursor.extent.start.line
    previous = next(reversed(exports.values()), None)
    comment = comments.above(line)
    if comment is None and previous is not None and comments.continues(line):
        export = Export(cursor.spelling, cursor, previous.section, previous.comment, previous.kin)
    else:
        export = Export(cursor.spelling, cursor, comments.section(line), comment or "")
    export.kin.append(export.name)
    if export.is_function:
        export.parameters = [Parameter(item.spelling, item.type, comments.source(item))
                             for item in cursor.get_arguments()]
    exports[export.name] = export


def version_of(text):
    numbers = [re.search(rf"#define TORVANE_VERSION_{part} (\d+)", text) for part in ("MAJOR", "MINOR", "PATCH")]
    if None in numbers:
        raise HeaderError("the header does not tell its version")
    return ".".join(number.group(1) for number in numbers)


def read_header(path):
    text = pathlib.Path(path).read_text(encoding="utf-8")
    comments = Comments(text)
    exports, records, enumerations, sections = {}, {}, [], []
    for cursor in parse(path).cursor.get_children():
        if cursor.location.file is None or cursor.location.file.name != str(path):
            continue
        if cursor.kind in (CursorKind.FUNCTION_DECL, CursorKind.VAR_DECL):
            add_export(exports, cursor, comments)
            section = exports[cursor.spelling].section
            if section not in sections:
                sections.append(section)
        elif cursor.kind == CursorKind.STRUCT_DECL and cursor.is_definition():
            records[cursor.spelling] = read_record(cursor, comments)
        elif cursor.kind == CursorKind.ENUM_DECL:
            enumerations.append(read_enumeration(cursor, comments))
    silent = [name for name, export in exports.items() if not export.comment]
    if silent:
        raise HeaderError(f"declared without a comment: {', '.join(silent)}")
    head = re.match(r"/\*(.*?)\*/", text, re.S).group(1)
    return Interface(re.sub(r"\n \* ?", "\n", head).strip(), version_of(text), exports, records, enumerations, sections)

