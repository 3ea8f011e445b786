#!/usr/bin/env python3
"""The rooms of the library and what they include.

layers.py check   compares the table of docs/architecture.md with the includes, and the platform's files with the pages that
                  tell of them; looks for conditions on the platform in other files; exit status 1 and a line for each
                  fault
layers.py dot     prints the picture of the rooms for Graphviz
"""

import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"(\w+)/|<vyx/(\w+)\.h>)', re.M)
PLATFORM = re.compile(r"^\s*#\s*(?:el)?if.*__(?:APPLE|MACH|linux|gnu_linux|unix|\w*BSD)\w*__", re.M)
ROW = re.compile(r"^\| `src/(\w+)` \|[^|]*\|([^|]*)\|", re.M)


def actual():
    """What each room includes: room -> rooms. A public header counts as the room of its name."""
    rooms = {}
    for folder in sorted(p for p in (TOP / "src").iterdir() if p.is_dir()):
        names = set()
        for file in [*folder.glob("*.cpp"), *folder.glob("*.h")]:
            names |= {inner or public for inner, public in INCLUDE.findall(file.read_text())}
        rooms[folder.name] = names - {folder.name, "types"}
    for name in rooms:  # vyx/net.h and the like: what the room offers
        header = TOP / "include/vyx" / f"{name}.h"
        if header.exists():
            rooms[name] |= {public for _, public in INCLUDE.findall(header.read_text())} - {name, "types"}
    return rooms


def table():
    """The rooms from top to bottom, each with what it may include."""
    text = (TOP / "docs/architecture.md").read_text()
    return {room: set(re.findall(r"`(\w+)`", includes)) for room, includes in ROW.findall(text)}


def conditions():
    """The files of src with a condition on the platform that are not one platform's own."""
    return [file.relative_to(TOP) for file in (TOP / "src").glob("*/*.*")
            if not re.search(r"_[a-z]+$", file.stem) or not file.with_name(re.sub(r"_[a-z]+$", "_linux.cpp", file.stem)).exists()
            if PLATFORM.search(file.read_text())]


def platform_files():
    """The files that each platform has, without _PLATFORM.cpp at their end."""
    text = (TOP / "cmake/Platform.cmake").read_text()
    return re.search(r"set\(VYX_PLATFORM_FILES ([^)]*)\)", text).group(1).split()


def untold():
    """The platform's files of which a page does not tell."""
    porting, portability = ((TOP / "docs" / page).read_text() for page in ("porting.md", "portability.md"))
    for name in platform_files():
        if f"`{name}`" not in porting:
            yield f"docs/porting.md does not tell of {name}"
        if f"`{name}_darwin.cpp`" not in portability:
            yield f"docs/portability.md does not tell of {name}_darwin.cpp"
    if f"copy the {len(platform_files())} files" not in porting:
        yield "docs/porting.md has another number of platform files"


def check():
    listed, found = table(), actual()
    order = list(listed)
    faults = [f"src/{room} is not in the table" for room in found if room not in listed]
    faults += [f"src/{room} is in the table only" for room in listed if room not in found]
    for room in set(listed) & set(found):
        faults += [f"src/{room} includes {name}, which the table does not say" for name in found[room] - listed[room]]
        faults += [f"src/{room} does not include {name}, as the table says" for name in listed[room] - found[room]]
        faults += [f"src/{room} includes {name}, which is not below it" for name in found[room]
                   if name in order and order.index(name) < order.index(room)]
    faults += [f"{file} has a condition on the platform, which belongs into a file of its own" for file in conditions()]
    faults += untold()
    for fault in sorted(faults):
        print(fault)
    return 1 if faults else 0


def dot():
    listed = table()
    print('digraph layers {\n  node [shape=box, style="rounded,filled", fillcolor="#eef3fa", color="#5b7ba8", '
          'fontname="Helvetica"]\n  edge [color="#44546a", arrowsize=0.7]')
    for room, includes in listed.items():
        print(f'  {room} [label="src/{room}"]')
        # What a room below includes as well needs no arrow of its own.
        direct = includes - set().union(*(reach(listed, name) for name in includes)) if includes else set()
        for name in sorted(direct):
            print(f"  {room} -> {name}")
    print("}")
    return 0


def reach(listed, room):
    found = set()
    for name in listed.get(room, ()):
        found |= {name} | reach(listed, name)
    return found


if __name__ == "__main__":
    sys.exit({"check": check, "dot": dot}[sys.argv[1]]())
