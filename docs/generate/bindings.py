"""The Python module's declarations: records, constants and functions for ctypes."""
import os

from clang.cindex import CursorKind, TypeKind

from interface import HeaderError

PLAIN = {
    TypeKind.VOID: "None", TypeKind.CHAR_S: "c_char", TypeKind.SCHAR: "c_byte", TypeKind.UCHAR: "c_ubyte",
    TypeKind.SHORT: "c_short", TypeKind.USHORT: "c_ushort", TypeKind.INT: "c_int", TypeKind.UINT: "c_uint",
    TypeKind.LONG: "c_long", TypeKind.ULONG: "c_ulong", TypeKind.LONGLONG: "c_longlong",
    TypeKind.ULONGLONG: "c_ulonglong",
}

HEAD = '''"""Records, constants and functions of libtorvane {version}. Made from torvane.h; not to be edited."""
# pylint: disable=too-many-lines,line-too-long,invalid-name,missing-class-docstring
from ctypes import (CFUNCTYPE, POINTER, c_byte, c_char, c_char_p, c_int, c_long, c_longlong, c_short, c_ubyte, c_uint,
                    c_uint64, c_ulong, c_ulonglong, c_ushort, c_void_p)
from enum import IntEnum, IntFlag

from ._library import Record, Text, constant, function

VERSION = "{version}"
'''


class Types:
    def __init__(self, model):
        self.model = model

    def of(self, kind):
        kind = kind.get_canonical()
        if kind.kind == TypeKind.POINTER:
            return self.pointer(kind.get_pointee())
        if kind.kind == TypeKind.CONSTANTARRAY:
            return f"{self.of(kind.element_type)} * {kind.element_count}"
        if kind.kind == TypeKind.RECORD:
            return self.record(kind)
        if kind.kind == TypeKind.ENUM:
            return "c_int"
        if kind.kind not in PLAIN:
            raise HeaderError(f"no ctypes type for {kind.spelling}")
        return PLAIN[kind.kind]

    def record(self, kind):
        name = kind.get_declaration().spelling
        if name in self.model.records:
            return name
        # struct stat: room for it, which only the C library's functions look into.
        return f"c_uint64 * {kind.get_size() // 8}"

    def pointer(self, target):
        target = target.get_canonical()
        if target.kind == TypeKind.FUNCTIONPROTO:
            return f"CFUNCTYPE({', '.join(map(self.of, [target.get_result(), *target.argument_types()]))})"
        if target.kind == TypeKind.CHAR_S:
            return "c_char_p"
        if target.kind == TypeKind.VOID or self.is_foreign(target):
            return "c_void_p"
        return f"POINTER({self.of(target)})"

    def is_foreign(self, target):
        declaration = target.get_declaration()
        return declaration.kind == CursorKind.STRUCT_DECL and declaration.spelling not in self.model.records


def enumeration(item):
    names = [constant.name for constant in item.constants]
    if item.name:
        prefix = os.path.commonprefix(names).rpartition("_")[0] + "_"
        base = "IntFlag" if ": bits " in item.comment else "IntEnum"
        yield f"\n\nclass {item.name}({base}):"
        yield f'    """{" ".join(item.comment.split()).partition(": ")[2]}"""'
        yield from (f"    {constant.name.removeprefix(prefix)} = {constant.value}" for constant in item.constants)
        yield ""
        yield ""
        yield from (f"{name} = {item.name}.{name.removeprefix(prefix)}" for name in names)
    else:
        yield ""
        yield from (f"{constant.name} = {constant.value}" for constant in item.constants)


def counted(record):
    """Array field -> the field that counts it: `drive_count` for `drives`, else `count`."""
    names = {item.name for item in record.fields}
    found = {}
    for item in record.fields:
        kind = item.type.get_canonical()
        if kind.kind == TypeKind.POINTER and kind.get_pointee().kind != TypeKind.CHAR_S:
            stem = item.name.removesuffix("s").removesuffix("e") if item.name.endswith("hes") else item.name[:-1]
            count = next((name for name in (f"{stem}_count", "count") if name in names), None)
            if count:
                found[item.name] = count
    return found


def record_class(record):
    yield f"\n\nclass {record.name}(Record):"
    yield f'    """{" ".join(record.comment.split()) or record.name}"""'
    arrays = counted(record)
    if arrays:
        yield f"    _arrays_ = {arrays!r}"


def record_fields(record, types):
    yield f"\n{record.name}.declare(["
    yield from (f'    ("{item.name}", {types.of(item.type)}),' for item in record.fields)
    yield "])"


def argument(parameter, types):
    kind = types.of(parameter.type)
    return "Text" if kind == "c_char_p" else kind


def function_line(export, summary, types):
    # Strings that the caller frees come as their address, which function() copies from and frees.
    result = "POINTER(c_char)" if export.result.spelling == "char *" else types.of(export.result)
    arguments = "".join(f", {argument(parameter, types)}" for parameter in export.parameters)
    return f'{export.name} = function("{export.name}", "{summary}", {result}{arguments})'


def declarations(model, notes):
    types = Types(model)
    lines = [HEAD.format(version=model.version).rstrip()]
    for item in model.enumerations:
        lines += enumeration(item)
    for record in model.records.values():
        lines += record_class(record)
    lines.append("")
    for record in model.records.values():
        lines += record_fields(record, types)
    lines.append("")
    for export in model.exports.values():
        if export.is_function:
            lines.append(function_line(export, notes[export.name].summary, types))
        else:
            lines.append(f'{export.name} = constant("{export.name}", {types.of(export.cursor.type)})')
    return "\n".join(lines) + "\n"
