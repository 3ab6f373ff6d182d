"""The error texts that each exported function can leave, read from the library's own sources.

A text stands in a call of fail(), fail_null() or set_error_str(). A function leaves those of its own body and of every
internal function and table that it names, down to other exported functions, which have pages of their own.
"""
import concurrent.futures
import hashlib
import itertools
import json
import os
import pathlib
from dataclasses import dataclass, field

from clang.cindex import CursorKind

import interface

RECORDERS = {"fail", "fail_null", "set_error_str"}
SKIPPED_FILES = {"errors.cpp", "errors.h"}  # the recorders themselves
DEFINITIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
               CursorKind.FUNCTION_TEMPLATE, CursorKind.VAR_DECL, CursorKind.STRUCT_DECL}


@dataclass
class Failures:
    texts: set = field(default_factory=set)  # (category name, printf format)
    calls: set = field(default_factory=set)  # exported functions whose texts may stand there, too


def literal_of(cursor):
    """The text of a string literal, or of the constant that is named; None for what is made at run time."""
    if cursor.kind == CursorKind.STRING_LITERAL:
        return json.loads(cursor.spelling) if cursor.spelling.startswith('"') else cursor.spelling
    if cursor.kind == CursorKind.DECL_REF_EXPR and cursor.referenced is not None:
        cursor = cursor.referenced
        if cursor.kind != CursorKind.VAR_DECL:
            return None
    return next((text for text in map(literal_of, cursor.get_children()) if text is not None), None)


def category_of(cursor):
    """kDriveList -> TORVANE_ERROR_DRIVE_LIST, by way of the constant's own definition."""
    for item in cursor.walk_preorder():
        if item.kind == CursorKind.DECL_REF_EXPR and item.referenced is not None:
            if item.referenced.kind == CursorKind.ENUM_CONSTANT_DECL:
                return item.referenced.spelling
            if item.referenced.kind == CursorKind.VAR_DECL:
                return category_of(item.referenced)
    return None


def recorded(call):
    """(category, format) of a call of a recorder. A leading %s of known words is replaced by them; it stays for the
    words of a tool, which tool_texts() has."""
    arguments = list(call.get_arguments())
    text = literal_of(arguments[1])
    if text == "%s" or (text and text.startswith("%s ") and len(arguments) > 2):
        words = literal_of(arguments[2])
        text = text.replace("%s", words, 1) if words else text
    return category_of(arguments[0]), text


def tool_texts(aggregate):
    """{command, start failure, end failure, end names the command}: the words of src/raid/tool.h."""
    children = list(aggregate.get_children())
    if len(children) != 4 or children[3].kind != CursorKind.CXX_BOOL_LITERAL_EXPR:
        return []
    command, start, end = (literal_of(child) for child in children[:3])
    names_command = next(children[3].get_tokens()).spelling == "true"
    quoted = f" '{command or '%s'}' (%s)"
    texts = (start + quoted, end + (quoted if names_command else " (%s)"))
    return [["TORVANE_ERROR_RAID", text] for text in texts]


# The owner that records a failed open under the category that its constructor is given last.
OPENER, UNOPENED = "ActiveDescriptor", "failed to open '%s'"


def read_body(top, node):
    for cursor in top.walk_preorder():
        if cursor.kind == CursorKind.CALL_EXPR and cursor.spelling == OPENER:
            arguments = list(cursor.get_arguments())
            category = category_of(arguments[-1]) if len(arguments) == 3 else None
            if category is not None:
                node["texts"].append([category, UNOPENED])
        if cursor.kind == CursorKind.CALL_EXPR and cursor.spelling in RECORDERS:
            category, text = recorded(cursor)
            if category is None and text == UNOPENED:
                continue  # the owner's own, told where it is made
            if category is None or text is None:
                raise interface.HeaderError(f"{cursor.location}: an error without fixed category and text")
            if not text.startswith("%s"):
                node["texts"].append([category, text])
        elif cursor.kind == CursorKind.INIT_LIST_EXPR:
            node["texts"] += tool_texts(cursor)
        elif cursor.kind == CursorKind.OVERLOADED_DECL_REF:
            node["names"].append(template_key(cursor))
        elif cursor.kind in (CursorKind.DECL_REF_EXPR, CursorKind.MEMBER_REF_EXPR, CursorKind.CALL_EXPR):
            if cursor.referenced is not None and cursor.referenced.get_usr():
                node["names"] += [cursor.referenced.get_usr(), template_key(cursor.referenced)]


def template_key(cursor):
    """Templates are known by name: a call names an instance of it, which has no body of its own in the sources."""
    return f"template {cursor.spelling}"


def parse_together(paths, root):
    """As one unit, as most of the time goes into the headers that they share; none where their names clash."""
    text = "".join(f'#include "{path}"\n' for path in paths)
    language = ["-x", "c++", "-std=c++20", f"-I{root}/src", f"-I{root}/include"]
    try:
        return [interface.parse(paths[0].parent / "together.cpp", language, text=text)]
    except interface.HeaderError:
        return [interface.parse(path, language) for path in paths]


def read_folder(paths, root, cached):
    """USR -> {name, texts, names}; kept on disk under what it was made from."""
    if cached.exists():
        return json.loads(cached.read_text())
    nodes = {}

    def visit(parent):
        for cursor in parent.get_children():
            where = cursor.location.file.name if cursor.location.file else ""
            if not where.startswith(f"{root}/src") or os.path.basename(where) in SKIPPED_FILES:
                continue
            if cursor.kind in (CursorKind.NAMESPACE, CursorKind.LINKAGE_SPEC, CursorKind.UNEXPOSED_DECL):
                visit(cursor)
            elif cursor.kind in DEFINITIONS and cursor.is_definition():
                node = {"name": cursor.spelling, "texts": [], "names": []}
                read_body(cursor, node)
                is_template = cursor.kind == CursorKind.FUNCTION_TEMPLATE
                nodes[template_key(cursor) if is_template else cursor.get_usr()] = node
                visit(cursor)

    for unit in parse_together(paths, root):
        visit(unit.cursor)
    cached.parent.mkdir(parents=True, exist_ok=True)
    cached.write_text(json.dumps(nodes))
    return nodes


def read_sources(root, cache):
    sources = sorted(pathlib.Path(root, "src").rglob("*.cpp"))
    headers = sorted([*pathlib.Path(root, "src").rglob("*.h"), *pathlib.Path(root, "include").glob("*.h")])
    own = pathlib.Path(__file__)
    common = b"".join(path.read_bytes() for path in [*headers, own])
    folders = [list(paths) for _, paths in itertools.groupby(sources, lambda path: path.parent)]
    keys = [hashlib.sha256(common + b"".join(str(path).encode() + path.read_bytes() for path in paths)).hexdigest()
            for paths in folders]
    nodes = {}
    with concurrent.futures.ProcessPoolExecutor() as pool:
        for part in pool.map(read_folder, folders, [root] * len(folders), [pathlib.Path(cache, key) for key in keys]):
            nodes.update(part)
    for stale in set(os.listdir(cache)) - set(keys):
        os.unlink(os.path.join(cache, stale))
    return nodes


def failures_of(name, usr, nodes, exports):
    """Everything below one exported function, stopping at the others."""
    found, seen, pending = Failures(), set(), [usr]
    while pending:
        current = pending.pop()
        if current in seen or current not in nodes:
            continue
        seen.add(current)
        node = nodes[current]
        if node["name"] in exports and node["name"] != name and exports[node["name"]].is_function:
            found.calls.add(node["name"])
            continue
        found.texts.update(map(tuple, node["texts"]))
        pending.extend(node["names"])
    return found


def all_failures(model, root, cache):
    nodes = read_sources(root, cache)
    usrs = {node["name"]: usr for usr, node in nodes.items() if node["name"] in model.exports}
    missing = [name for name, export in model.exports.items() if export.is_function and name not in usrs
               and name not in ("set_error_str", "get_error_str", "has_error", "get_error")]
    if missing:
        raise interface.HeaderError(f"declared, but not defined in the sources: {', '.join(missing)}")
    found = {name: failures_of(name, usr, nodes, model.exports) for name, usr in usrs.items()}
    # Of an exported function that leaves no text, not even through others, there is nothing to say.
    silent = {name for name in model.exports if not leaves_text(name, found, set())}
    for failures in found.values():
        failures.calls -= silent
    return found


def leaves_text(name, found, seen):
    if name in seen or name not in found:
        return False
    seen.add(name)
    return bool(found[name].texts) or any(leaves_text(call, found, seen) for call in found[name].calls)
