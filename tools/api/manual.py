#!/usr/bin/env python3
"""Makes the manual pages, section 3, from the description of the interface.

    manual.py JSON CHANGES FOLDER    writes FOLDER/NAME.3 for every function and nothing else
CHANGES is CHANGELOG.md: the date of the newest release is that of the pages.
"""

import datetime
import json
import pathlib
import re
import sys
import textwrap

# Labels of comments as headings, in the order of a page. What a function gives back comes right behind its text.
HEADINGS = {"Result": "RETURN VALUES", "Errors": "ERRORS", "Threads": "THREADS", "Needs": "PREREQUISITES",
            "Routine": "ROUTINE", "Effect": "EFFECT", "Fork": "FORK", "Clock": "CLOCK", "Cost": "COST",
            "Rests on": "PLATFORM"}
SENTENCE = re.compile(r"(?:(?<=[.!?])|(?<=[.!?][)\"'])) +(?=[A-Z0-9(\"*])")
CALL = re.compile(r"(?<!\S)(\w+)\(\)([.,;:]*)(?!\S)")  # as in "free()," which has a macro of its own


def escaped(text):
    """A line of text that no formatter takes for a request."""
    text = text.replace("\\", "\\e").replace("'", "\\(aq").replace("`", "\\(ga").replace("^", "\\(ha").replace("~", "\\(ti")
    return "\\&" + text if text.startswith(".") else text


def prose(text):
    """Filled text: each sentence begins a line, as the formatters want it."""
    lines = []
    for sentence in SENTENCE.split(" ".join(text.split())):
        parts = CALL.split(sentence)  # text, name and what follows it, text, ...
        for index in range(0, len(parts), 3):
            words = escaped(parts[index].strip())
            lines += textwrap.wrap(words, 78, break_long_words=False, break_on_hyphens=False)
            if index + 1 < len(parts):
                lines.append(" ".join([f".Fn {parts[index + 1]}", *parts[index + 2]]))
    return lines


def argument(text):
    """One argument of a macro."""
    return '"' + escaped(text).replace('"', '\\(dq') + '"' if " " in text or '"' in text else escaped(text)


def tagged(items, macro=""):
    lines = [".Bl -tag -width Ds"]
    for term, text in items:
        lines += [f".It {macro}{argument(term)}", *prose(text)]
    return lines + [".El"]


def block(part):
    if part["kind"] == "list":
        return [".Bl -bullet"] + [line for item in part["items"] for line in [".It", *prose(item)]] + [".El"]
    if part["kind"] == "terms":
        return tagged(part["items"])
    if part["kind"] == "lines":
        return [".Bd -literal"] + [escaped(line) for line in part["text"].split("\n")] + [".Ed"]
    return [".Pp", *prose(part["text"])]


def blocks(parts):
    """The blocks below a heading, the first of which needs no paragraph of its own."""
    lines = [line for part in parts for line in block(part)]
    return lines[1:] if lines and lines[0] == ".Pp" else lines


def synopsis(function):
    lines = [".Sh SYNOPSIS", f".In {function['header']}", f".Ft {argument(function['result'])}"]
    if not function["parameters"]:
        return lines + [f".Fn {function['name']} void"]
    forms = []
    for p in function["parameters"]:
        pointer, array = p["type"].find("(*"), p["type"].find("[")
        if p["name"] == "...":
            forms.append("...")
        elif pointer >= 0:
            forms.append(p["type"][:pointer + 2] + p["name"] + p["type"][pointer + 2:])
        elif array >= 0:
            forms.append(p["type"][:array] + " " + p["name"] + p["type"][array:])
        else:
            forms.append(p["type"] + ("" if p["type"].endswith("*") else " ") + p["name"])
    return lines + [f".Fo {function['name']}", *(f".Fa {argument(form)}" for form in forms), ".Fc"]


def title(function):
    """The purpose's first sentence, short enough for a list of pages."""
    first = SENTENCE.split(function["doc"]["purpose"])[0].rstrip(".:")
    return escaped(first[0].lower() + first[1:] if first[1:2].islower() or first[1:2] == " " else first)


def general_of(function, api):
    """What is said of all functions of a header, and of a section of it."""
    header = next(header for header in api["headers"] if header["name"] == function["header"])
    docs = [header["doc"]] + [s["doc"] for s in header["sections"] if s["title"] == function.get("section")]
    lines = []
    for doc in docs:
        if doc["purpose"]:
            lines += [".Pp", *prose(doc["purpose"])]
        lines += [line for part in doc["details"] for line in block(part)]
    return lines


def page(function, api, date):
    doc, name = function["doc"], function["name"]
    lines = [f".Dd {date}", f".Dt {name.upper()} 3", ".Os", ".Sh NAME", f".Nm {name}",
             ".Nd " + title(function), *synopsis(function), ".Sh DESCRIPTION", *prose(doc["purpose"])]
    known = [(p["name"], p["text"]) for p in function["parameters"] if p["text"]]
    if known:
        lines += tagged(known, "Fa ")
    lines += [line for part in doc["details"] for line in block(part)]
    for label, heading in HEADINGS.items():
        if label in doc["notes"]:
            said = blocks(doc["notes"][label])
            if label == "Rests on":
                said.insert(0, "Rests on")
            elif label != "Result" and said[0][0].islower():  # results may begin with a name
                said[0] = said[0][0].upper() + said[0][1:]
            lines += [f".Sh {heading}", *said]
    general = general_of(function, api)
    if general:
        lines += [".Sh NOTES", f"What {function['header']} says of its functions:", *general]
    near = [other["name"] for other in api["functions"]
            if other["header"] == function["header"] and other.get("section") == function.get("section")
            and other["language"] == "c" and other is not function]
    if near and function["language"] == "c":
        near.sort(key=str.lower)
        lines += [".Sh SEE ALSO"] + [f".Xr {other} 3" + (" ," if other != near[-1] else "") for other in near]
    return "\n".join(lines) + "\n"


def main(source, changes, folder):
    api = json.loads(pathlib.Path(source).read_text())
    released = re.search(r"^## [0-9.]+ - (\d{4}-\d{2}-\d{2})$", pathlib.Path(changes).read_text(), re.M).group(1)
    date = datetime.date.fromisoformat(released)
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.3"):
        old.unlink()
    for function in api["functions"]:
        if "operator" not in function["name"]:
            text = page(function, api, f"{date:%B} {date.day}, {date.year}")
            (folder / f"{function['name']}.3").write_text(text)


if __name__ == "__main__":
    main(*sys.argv[1:])
