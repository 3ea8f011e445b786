#!/usr/bin/env python3
"""Describes the library's interface, from its headers and from what the compiler makes of them.

    describe.py probe HEADERS                        prints a C file whose object holds sizes, offsets and values
    describe.py json HEADERS VERSION TARGET OBJECT   prints vyx-api.json
    describe.py test-c JSON EXPORTS                  prints a C program with a table of every C function
    describe.py test-c++ JSON                        prints a C++ file that checks methods, operators and types of fields
HEADERS is the folder include/vyx; EXPORTS the linkage names that the library is to export, one a line.

The headers are the only source: the names, types and comments are read there (headers.py), the numbers come from the
object, which the compiler of this target has made. What was read is checked by the compiler, too: the files that
`test-c` and `test-c++` print compile only if each function, method, field and number is what the description says, and
`test-c` refuses a description that leaves out an exported name.

The description is one JSON object:

    format      1; raised when a reader of it has to change
    library     "vyx";  version, as "1.0.1";  target, as "x86_64-linux";  pointer_bytes;  byte_order
    headers     in the order of their names: {name: "vyx/sync.h", doc, sections: [{title, doc}]}
    functions   in the order of the headers:
                {name, header, line, section, language: "c" or "c++", declaration, result, parameters, comment, doc}
                and where it is so: noreturn: true, printf: [position of the format, of its first argument]
                name is qualified in C++ ("vyx::operator=="); section is left out in headers without sections
                parameters: [{name, type, text}], the last one of a printf-like function is {"name": "...", "type": "..."}
    constants   {name, header, line, section, definition, value, text, group}; value is a number, group the comment before
                a run of constants
    types       {name, header, line, declaration, text, kind, size, alignment}
                kind "alias" and "handle" have type; kind "callback" has result and parameters
    records     {name, kind: "struct" or "union", typedef: true or false, header, line, doc, size, alignment,
                fields: [{name, type, offset, size, text}]}
    enums       {name, header, line, doc, size, values: [{name, value, text}]}
    objects     {name, type, header, line, text, size}
    classes     {name, header, line, doc, methods: [{name, result, parameters, declaration, comment, doc, static, ...}]}

`comment` is the text right before a declaration, line by line. A `doc` is the same in parts:

    purpose     the first paragraph
    details     further paragraphs, as blocks
    notes       {label: [block]}; the labels are Result, Errors, Threads, Needs, Routine, Effect, Clock, Cost, Fork and
                "Rests on"

A block is {kind: "text", text}, one paragraph; {kind: "lines", text}, to be shown as it stands; {kind: "list", items:
[text]}; or {kind: "terms", items: [[term, text]]}.
"""

import json
import pathlib
import re
import sys

import headers

MAGIC = "VYX-API-NUMBERS:"
INCLUDES = "#include <stddef.h>\n#include <vyx/vyx.h>\n"


def names(read, kind):
    return [item for header in read for item in header.items[kind]]


def tag(record):
    """How a record is named in a program: the two tables' headers have no typedef."""
    return record["name"] if record["typedef"] else f"{record['kind']} {record['name']}"


def numbers(read):
    """What is asked of the compiler: (where the answer goes, under which key, expression in C)."""
    for item in names(read, "constants"):
        yield item, "value", item["name"]
    for item in names(read, "types"):
        yield item, "size", f"sizeof({item['name']})"
        yield item, "alignment", f"_Alignof({item['name']})"
    for item in names(read, "records"):
        yield item, "size", f"sizeof({tag(item)})"
        yield item, "alignment", f"_Alignof({tag(item)})"
        for field in item["fields"]:
            yield field, "offset", f"offsetof({tag(item)}, {field['name']})"
            yield field, "size", f"sizeof((({tag(item)} *)0)->{field['name']})"
    for item in names(read, "enums"):
        yield item, "size", f"sizeof(enum {item['name']})"
        for value in item["values"]:
            yield value, "value", value["name"]
    for item in names(read, "objects"):
        yield item, "size", f"sizeof({item['name']})"


def load(folder):
    read = headers.read(folder)
    for header in read:
        source = (pathlib.Path(folder) / pathlib.Path(header.header).name).read_text()
        for record in header.items["records"]:
            record["typedef"] = re.search(r"\} %s;" % record["name"], source) is not None
    return read


# ---- probe ---------------------------------------------------------------------------------------------------------


def probe(folder):
    """Eight bytes for each number, the lowest first, behind a mark; so the object can be read for every target."""
    rows = [expression for _, _, expression in numbers(load(folder))]
    print(INCLUDES)
    print("#define BYTE(x, n) (unsigned char)((unsigned long long)(x) >> (8 * (n)) & 255)")
    print("#define NUMBER(x) BYTE(x, 0), BYTE(x, 1), BYTE(x, 2), BYTE(x, 3), BYTE(x, 4), BYTE(x, 5), BYTE(x, 6), BYTE(x, 7)")
    print("const unsigned char vyx_api_numbers[] = {")
    print("   ", ", ".join(str(ord(c)) for c in MAGIC) + ",")
    print("    NUMBER(sizeof(void *)),")
    print("    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,")
    print(",\n".join(f"    NUMBER({row})" for row in rows))
    print("};")


# ---- json ----------------------------------------------------------------------------------------------------------


def describe(folder, version, target, file):
    read = load(folder)
    data = pathlib.Path(file).read_bytes()
    places = [match.end() for match in re.finditer(re.escape(MAGIC.encode()), data)]
    if len(places) != 1:
        raise SystemExit(f"{file}: {len(places)} tables of numbers")
    wanted = list(numbers(read))
    at = places[0]

    def number(place):
        return int.from_bytes(data[place:place + 8], "little", signed=True)

    pointer, little = number(at), data[at + 8]
    for index, (item, key, _) in enumerate(wanted):
        item[key] = number(at + 9 + 8 * index)
    made = {"format": 1, "library": "vyx", "version": version, "target": target, "pointer_bytes": pointer,
            "byte_order": "little" if little else "big",
            "headers": [{"name": header.header, "doc": {k: v for k, v in header.text.items() if k != "parameters"},
                         "sections": [{"title": s["title"], "doc": {k: v for k, v in s["doc"].items() if k != "parameters"}}
                                      for s in header.sections]} for header in read]}
    for kind in ("functions", "constants", "types", "records", "enums", "objects", "classes"):
        made[kind] = names(read, kind)
    json.dump(made, sys.stdout, indent=1)
    print()


# ---- test-c, test-c++ ----------------------------------------------------------------------------------------------


def read_json(path):
    return json.loads(pathlib.Path(path).read_text())


def types_of(item):
    return ", ".join(p["type"] for p in item["parameters"])


def c_functions(api):
    return [item for item in api["functions"] if item["language"] == "c"]


def compare(described, exported):
    """Both ways; the exported lock s_hCreateLock is no part of the interface."""
    faults = [f"{name} is described, but not exported" for name in described - exported]
    faults += [f"{name} is exported, but not described" for name in exported - described - {"s_hCreateLock"}]
    if faults or not described:
        raise SystemExit("\n".join(sorted(faults)) or "nothing is described")


def test_c(path, exports):
    api = read_json(path)
    functions = c_functions(api)
    listed = {line for line in pathlib.Path(exports).read_text().split("\n") if line and not line.startswith("_Z")}
    compare({item["name"] for item in functions + api["objects"]}, listed)
    print(INCLUDES + "#include <stdio.h>\n#include <string.h>\n")
    print("/* Each function once more, as it is described: another type is an error of the compiler. */")
    for item in functions:
        print(item["declaration"])
    print("\n/* Numbers of this target. */")
    for kind in ("constants", "enums"):
        for item in api[kind]:
            for value in item.get("values", [item]):
                if "intptr_t" in value.get("definition", ""):
                    continue  # a pointer on some platforms: no constant expression there
                bits = value["value"] & 0xFFFFFFFFFFFFFFFF
                print(f'_Static_assert((unsigned long long)({value["name"]}) == {bits:#x}u, "{value["name"]}");')
    for item in api["records"]:
        print(f'_Static_assert(sizeof({tag(item)}) == {item["size"]}, "size of {item["name"]}");')
        for field in item["fields"]:
            print(f'_Static_assert(offsetof({tag(item)}, {field["name"]}) == {field["offset"]}, '
                  f'"{item["name"]}.{field["name"]}");')
        gaps(item)
    print("""
/* Every function by its name. */
typedef void (*FUNCTION)(void);
static const struct {
    const char *szName;
    FUNCTION fnAddress;
} s_functions[] = {""")
    for item in functions:
        print(f'    {{"{item["name"]}", (FUNCTION){item["name"]}}},')
    print("""};

/* Two names with one address would be two entries of the library that were mixed up. */
int main(void) {
    const size_t nCount = sizeof s_functions / sizeof s_functions[0];
    for (size_t i = 0; i < nCount; ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (s_functions[i].fnAddress == s_functions[j].fnAddress)
                return (void)fprintf(stderr, "%s is %s\\n", s_functions[i].szName, s_functions[j].szName), 1;
        }
    }
    if (VYX_GetVYXVersion() != VYX_VERSION || strcmp(vyx_day_snames[6], "Sat") != 0)
        return (void)fputs("this is not the library of these headers\\n", stderr), 1;
    return printf("%zu functions\\n", nCount) < 0;
}""")


def gaps(record):
    """Nothing is missing among the fields: between them there is only what the alignment needs."""
    if record["kind"] == "union":
        return
    end = 0
    for field in record["fields"]:
        if not end <= field["offset"] < end + record["alignment"]:
            raise SystemExit(f"{record['name']}: something is missing before {field['name']}")
        end = field["offset"] + field["size"]
    if record["size"] - end >= record["alignment"]:
        raise SystemExit(f"{record['name']}: something is missing at its end")


def test_cxx(path):
    api = read_json(path)
    print("#include <cstddef>\n#include <type_traits>\n#include <vyx/vyx.h>\n\nusing namespace vyx;\n")
    for item in api["records"]:
        for field in item["fields"]:
            print(f'static_assert(std::is_same_v<decltype({item["name"]}::{field["name"]}), {field["type"]}>, '
                  f'"{item["name"]}.{field["name"]}");')
    for item in api["types"]:
        form = item.get("type") or f"{item['result']} (*)({types_of(item)})"
        print(f'static_assert(std::is_same_v<{item["name"]}, {form}>, "{item["name"]}");')
    for item in api["objects"]:
        print(f'static_assert(std::is_same_v<decltype(::{item["name"]}), {item["type"]}>, "{item["name"]}");')
    count = 0
    for item in api["functions"]:
        if item["language"] == "c++":
            count += 1
            print(f"[[maybe_unused]] {item['result']} (*const function{count})({types_of(item)}) = &{item['name']};")
    for cls in api["classes"]:
        for method in cls["methods"]:
            count += 1
            check_method(cls["name"], method, count)


def check_method(name, method, number):
    short = name.split("::")[-1]
    if method["name"] == short:
        made = ", ".join([name] + [p["type"] for p in method["parameters"]])
        print(f'static_assert(std::is_constructible_v<{made}>, "{method["declaration"]}");')
    elif method["name"] == "~" + short:
        yes = "true" if method.get("virtual") else "false"
        print(f'static_assert(std::has_virtual_destructor_v<{name}> == {yes}, "{method["declaration"]}");')
    else:
        pointer = f"(*const method{number})" if method.get("static") else f"({name}::*const method{number})"
        const = " const" if method.get("const") else ""
        print(f"[[maybe_unused]] {method['result']} {pointer}({types_of(method)}){const} = &{name}::{method['name']};")


COMMANDS = {"probe": probe, "json": describe, "test-c": test_c, "test-c++": test_cxx}

if __name__ == "__main__":
    COMMANDS[sys.argv[1]](*sys.argv[2:])
