#!/usr/bin/env python3
"""Makes vyx/raw.py, the flat functions for Python, from the description of the interface.

    python.py JSON    prints the module

Every C function becomes a Python function with the same name, the header's comment and types; every constant, record
and callback type keeps its name, too. Functions of C++ are left out: ctypes calls C.
"""

import json
import pathlib
import re
import sys
import textwrap

HEAD = '''"""The flat functions of libvyx, as the headers declare them. Made from vyx-api.json; not to be edited.

Nothing is checked here beyond the types: a function does what its text says. Pointers to records and to numbers take
what ctypes.byref makes, buffers take ctypes.create_string_buffer; handles are numbers, None is null. errno after a call
is ctypes.get_errno().
"""

import ctypes
import os
import sys
from collections.abc import Callable
from typing import Any, Final

_NAME = {name!r} if sys.platform == "darwin" else {soname!r}
_library = ctypes.CDLL(os.environ.get("VYX_LIBRARY", _NAME), use_errno=True)


def _bind(name: str, result: Any, *parameters: Any) -> Callable[..., Any]:
    function = getattr(_library, name)
    function.restype = result
    function.argtypes = parameters
    bound: Callable[..., Any] = function
    return bound

'''

SCALARS = {"int32_t": "c_int32", "uint32_t": "c_uint32", "int64_t": "c_int64", "uint64_t": "c_uint64",
           "uint16_t": "c_uint16", "uint8_t": "c_uint8", "int": "c_int", "unsigned int": "c_uint", "size_t": "c_size_t",
           "time_t": "c_long", "char": "c_char", "bool": "c_bool"}


class Types:
    """What the types of the headers are in ctypes, and for a type checker."""

    def __init__(self, api):
        self.api = api
        self.aliases = {t["name"]: t for t in api["types"]}
        self.records = {r["name"] for r in api["records"]}
        self.enums = {e["name"] for e in api["enums"]}
        self.opaque = set()  # aliases of the platform's records

    def ctype(self, form, result=False):
        form = re.sub(r"\b(const|volatile) ?", "", form).replace("struct ", "").replace(" volatile", "").strip()
        form = re.sub(r"\* (?=\*)", "*", form)
        array = re.fullmatch(r"(.*?)((?:\[\w+\])+)", form)
        if array:
            made = self.ctype(array.group(1))
            for size in reversed(re.findall(r"\[(\w+)\]", array.group(2))):
                made = f"{made} * {size}"
            return made
        if form.endswith("*"):
            return self.pointer(form[:-1].strip(), result)
        if form in SCALARS:
            return "ctypes." + SCALARS[form]
        if form in self.enums:
            return "ctypes.c_int32"
        if form in self.aliases:
            return self.alias(self.aliases[form])
        return form if form in self.records else None

    def alias(self, item):
        if item["kind"] == "callback" or item["name"] in self.opaque:
            return item["name"]
        if item["kind"] == "handle":
            return "ctypes.c_void_p"
        known = self.ctype(item["type"])
        if known:
            return known
        return item["name"] if item["size"] > 8 else f"ctypes.c_{'uint'}{8 * item['size']}"

    def pointer(self, to, result):
        if to == "char":
            return "ctypes.c_void_p" if result else "ctypes.POINTER(ctypes.c_char)"
        target = None if to == "void" else self.ctype(to)
        return f"ctypes.POINTER({target})" if target else "ctypes.c_void_p"

    def parameter(self, form):
        return "ctypes.c_char_p" if form == "const char *" else self.ctype(form)

    def result(self, form):
        if form == "void":
            return "None"
        return "ctypes.c_char_p" if form == "const char *" else self.ctype(form, True)

    def hint(self, made, result=False):
        if made in ("None", "ctypes.c_bool"):
            return made.replace("ctypes.c_bool", "bool")
        if made == "ctypes.c_char_p":
            return "bytes | None"
        if made == "ctypes.c_void_p":
            return "int | None" if result else "Any"
        if re.fullmatch(r"ctypes\.c_(u?int\d*|size_t|long)", made):
            return "int"
        return "bytes | int" if made == "ctypes.c_char" else "Any"


def docstring(text, indent="    "):
    lines = text.replace("\\", "\\\\").replace('"""', "'''").split("\n")
    closing = '"""' if len(lines) == 1 and not lines[0].endswith('"') else "\n" + indent + '"""'
    return [indent + ('"""' + line if index == 0 else line if line else "").rstrip() for index, line in enumerate(lines)], closing


def documented(text):
    lines, closing = docstring(text)
    return "\n".join(line.rstrip() if line.strip() else "" for line in lines) + closing


def constants(api):
    for item in api["constants"]:
        yield f"{item['name']}: Final = {item['value']}"
    for enum in api["enums"]:
        for value in enum["values"]:
            yield f"{value['name']}: Final = {value['value']}"


def classes(api, types):
    for item in api["types"]:
        if item["kind"] == "alias" and types.ctype(item["type"]) is None and item["size"] > 8:
            types.opaque.add(item["name"])
            words = item["size"] // item["alignment"]
            yield f'\n\nclass {item["name"]}(ctypes.Structure):\n{documented(item["text"] or "A record of the platform.")}\n'
            yield f'    _fields_ = [("opaque", ctypes.c_uint{8 * item["alignment"]} * {words})]\n'
    for item in api["records"]:
        base = "Structure" if item["kind"] == "struct" else "Union"
        text = item["doc"]["purpose"] or "A record."
        yield f"\n\nclass {item['name']}(ctypes.{base}):\n{documented(chr(10).join(textwrap.wrap(text, 110)))}\n"
        for field in item["fields"]:
            made = types.ctype(field["type"]) or "opaque"
            yield f"    {field['name']}: {types.hint(made) if ' * ' not in made else 'Any'}"
    yield ""
    for item in api["types"]:
        if item["kind"] == "callback":
            forms = [types.result(item["result"])] + [types.ctype(p["type"]) for p in item["parameters"]]
            yield f"\n{item['name']} = ctypes.CFUNCTYPE({', '.join(forms)})"
    yield ""
    for item in api["records"]:
        yield f"{item['name']}._fields_ = ["
        for field in item["fields"]:
            made = types.ctype(field["type"])
            if made is None:
                unit = item["alignment"] if field["size"] % item["alignment"] == 0 else 1
                made = f"ctypes.c_uint{8 * unit} * {field['size'] // unit}"
            yield f'    ("{field["name"]}", {made}),'
        yield "]"


def functions(api, types):
    for item in api["functions"]:
        if item["language"] != "c":
            continue
        given = [p for p in item["parameters"] if p["name"] != "..."]
        forms = [types.parameter(p["type"]) for p in given]
        result = types.result(item["result"])
        taken = [f"{p['name']}: {types.hint(form)}" for p, form in zip(given, forms)]
        names = [p["name"] for p in given]
        if len(given) < len(item["parameters"]):
            taken.append("*arguments: Any")
            names.append("*arguments")
        back = types.hint(result, True)
        yield f"\n\ndef {item['name']}({', '.join(taken)}) -> {back}:\n{documented(item['comment'])}"
        call = f"_{item['name'].lstrip('_')}({', '.join(names)})"
        if back == "None":
            yield f"    {call}"
        elif back == "Any":
            yield f"    return {call}"
        else:
            yield f"    made: {back} = {call}\n    return made"
        yield f'\n\n_{item["name"].lstrip("_")} = _bind("{item["name"]}", {", ".join([result, *forms])})'


def results(api):
    """The text of each function's result, for exceptions."""
    yield "\n\n#: What the header says of a function's result.\nRESULTS: Final[dict[str, str]] = {"
    for item in api["functions"]:
        blocks = item["doc"]["notes"].get("Result", [])
        if item["language"] == "c" and blocks:
            parts = [b.get("text") or "; ".join(" ".join(i) if isinstance(i, list) else i for i in b["items"]) for b in blocks]
            yield f"    {item['name']!r}: {' '.join(' '.join(parts).split())!r},"
    yield "}"


def main(source):
    api = json.loads(pathlib.Path(source).read_text())
    types = Types(api)
    major = api["version"].split(".")[0]
    print(HEAD.replace("{name!r}", f'"libvyx.{major}.dylib"').replace("{soname!r}", f'"libvyx.so.{major}"'))
    print("\n".join(constants(api)))
    print("\n".join(classes(api, types)))
    print("\n".join(functions(api, types)))
    for item in api["objects"]:
        form = types.ctype(item["type"])
        print(f"\n\n#: {item['text']}\n{item['name']}_object: Any = ({form}).in_dll(_library, \"{item['name']}\")"
              if item["name"] in types.records else
              f"\n\n#: {item['text']}\n{item['name']}: Any = ({form}).in_dll(_library, \"{item['name']}\")")
    print("\n".join(results(api)))


if __name__ == "__main__":
    main(*sys.argv[1:])
