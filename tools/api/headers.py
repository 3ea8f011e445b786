"""Reads the public headers: every declaration with the comment right before it.

This knows C as these headers write it, not C in general. It needs no compiler, so that it runs wherever the library is
built; a compiler confirms what it found (see describe.py): each function is declared once more as it was read here.
"""

import pathlib
import re

LABELS = ("Result", "Errors", "Threads", "Needs", "Routine", "Effect", "Clock", "Cost", "Costs", "Fork")
LABEL = re.compile(r"(%s):\s*" % "|".join(LABELS))
RESTS = re.compile(r"Rests on\s+")
ATTRIBUTES = re.compile(r"\b(VYX_API|VYX_NORETURN)\b\s*|\s*\bVYX_PRINTF\((\d+), (\d+)\)")


class Piece:
    """A comment or a statement of a header, with the lines that it stands on."""

    def __init__(self, kind, text, line, last, cxx):
        self.kind, self.text, self.line, self.last, self.cxx = kind, text, line, last, cxx
        self.behind = False  # a comment on the line of the statement before it


# ---- From text to pieces -------------------------------------------------------------------------------------------


def without_conditions(text):
    """The text less conditional directives and what is not for readers, and for each line whether it is C++ only."""
    lines, cxx, stack = [], [], []
    for line in text.split("\n"):
        directive = re.match(r"\s*#\s*(ifdef|ifndef|if|else|endif)\b\s*(.*)", line)
        if directive:
            word, condition = directive.groups()
            if word == "endif":
                stack.pop()
            elif word == "else":
                stack[-1] = "skip" if stack[-1] == "c++" else stack[-1]
            else:
                guard = word == "ifndef"
                stack.append("c" if guard else "c++" if condition == "__cplusplus" else "skip")
            line = ""
        lines.append("" if "skip" in stack else re.sub(r"^(\} *)// .*", r"\1", line))
        cxx.append("c++" in stack)
    return lines, cxx


def pieces(text, cxx=None, first=1, end=";"):
    """Splits a header, or a body between braces, into its pieces."""
    if cxx is None:
        lines, cxx = without_conditions(text)
        text = "\n".join(lines)
    found, start, depth, i = [], 0, 0, 0

    def line_of(place):
        return first + text.count("\n", 0, place)

    def add(kind, begin, stop):
        body = text[begin:stop]
        begin += len(body) - len(body.lstrip())
        line = line_of(begin)
        cxx_here = cxx if isinstance(cxx, bool) else cxx[line - first]
        made = Piece(kind, body.strip(), line, line_of(begin + len(body.strip()) - 1), cxx_here)
        made.behind = kind == "comment" and bool(found) and found[-1].kind != "comment" and found[-1].last == line
        found.append(made)

    while i < len(text):
        pending = text[start:i].strip()
        if text.startswith("/*", i):
            stop = text.index("*/", i) + 2
            if pending and end == "," and depth == 0:  # behind the last enumerator
                add("code", start, i)
                pending = ""
            if not pending:
                add("comment", i, stop)
                start = stop
            i = stop
            continue
        if text[i] == "#" and not pending:
            stop = re.compile(r"(?:\\\n|[^\n])*").match(text, i).end()
            comment = text.find("/*", i, stop)
            stop = comment if comment >= 0 else stop
            if re.match(r"#\s*define\s", text[i:stop]):
                add("define", i, stop)
            i = start = stop
            continue
        c = text[i]
        i += 1
        if c == "{" and depth == 0 and re.fullmatch(r"namespace \w+", pending):
            add("open", start, i)
            start = i
        elif c == "}" and depth == 0 and not pending:
            add("close", start, i)
            start = i
        elif c in "({[":
            depth += 1
        elif c in ")}]":
            depth -= 1
        elif c == end and depth == 0:
            add("code", start, i - 1)
            start = i
        elif c == ":" and depth == 0 and pending in ("public", "private"):
            add("title", start, i - 1)
            start = i
        elif c == "\n" and pending in ("VYX_BEGIN_DECLS", "VYX_END_DECLS"):
            start = i
    if text[start:].strip():
        add("code", start, len(text))
    return found


# ---- Comments ------------------------------------------------------------------------------------------------------


def comment_lines(text):
    """The lines of a comment without its markers."""
    lines = text[2:-2].split("\n")
    lines = [lines[0].strip()] + [re.sub(r"^\s*\* ?", "", line).rstrip() for line in lines[1:]]
    while lines and not lines[0]:
        lines.pop(0)
    while lines and not lines[-1]:
        lines.pop()
    return lines


def unindented(lines):
    depth = min((len(line) - len(line.lstrip()) for line in lines if line.strip()), default=0)
    return [line[depth:] for line in lines]


def deeper(lines):
    """The first run of lines that stand further to the right than the first line: where it begins and ends; or (0, 0)."""
    start = next((i for i, line in enumerate(lines) if line.startswith("  ")), 0)
    stop = next((i for i, line in enumerate(lines) if i > start and not line.startswith("  ")), len(lines))
    return (start, stop) if start else (0, 0)


def blocks(lines):
    """Paragraphs, lists of terms with their texts, or lines to be shown as they are."""
    lines = unindented(lines)
    if lines[0].startswith("- "):
        items = re.split(r"(?:^|\n)- ", "\n".join(lines))[1:]
        return [{"kind": "list", "items": [" ".join(item.split()) for item in items]}]
    start, stop = deeper(lines)
    if start and not any(re.search(r"\S  +\S", line) for line in lines[:start]):  # a sentence and what it leads to
        return blocks(lines[:start]) + blocks(lines[start:stop]) + (blocks(lines[stop:]) if lines[stop:] else [])
    rows, rest = [], []
    for line in lines:
        row = re.match(r"( ?\S+(?: \S+){0,3})  +(\S.*)$", line)
        if row and not line.startswith("  ") and not rest:
            rows.append([row.group(1).strip(), row.group(2)])
        elif rows and line.startswith("  ") and not rest:
            rows[-1][1] += " " + line.strip()
        else:
            rest.append(line)
    table = any(re.search(r"\S   +\S", text) for _, text in rows)
    if rows and not table and not any(re.search(r"\S  +\S", line) for line in rest):
        return [{"kind": "terms", "items": rows}] + (blocks(rest) if rest else [])
    if any(re.search(r"\S  +\S", line) or line.startswith((" ", "|")) for line in lines):
        return [{"kind": "lines", "text": "\n".join(lines)}]
    return [{"kind": "text", "text": " ".join(line.strip() for line in lines)}]


def names_of(term, parameters):
    """The parameters that a line of a comment describes: "pLocal, pPeer" or "iArg1..3"."""
    span = re.fullmatch(r"(\w*?)(\d+)\.\.(\d+)", term)
    if span:
        term = ", ".join(span.group(1) + str(n) for n in range(int(span.group(2)), int(span.group(3)) + 1))
    names = term.split(", ")
    return names if names and all(name in parameters for name in names) else []


def described(lines, parameters=()):
    """What a comment says: its purpose, a text for each parameter, the labelled parts, and the rest in order."""
    doc = {"purpose": "", "parameters": {}, "details": [], "notes": {}}
    if len(lines) == 1 or not any(LABEL.match(line) for line in lines):  # short form: labels within a line
        lines = [part for line in [" ".join(lines)] if not any(not l for l in lines) for part in
                 re.split(r"(?<=[.)]) (?=(?:%s): )" % "|".join(LABELS), line)] or lines
    groups = []  # of lines that belong together, each with what it is
    for line in lines:
        labelled, rests = LABEL.match(line), RESTS.match(line)
        term = re.match(r"  (\w+(?:\.\.\d+)?(?:, \w+)*)  +(\S.*)$", line)
        names = names_of(term.group(1), parameters) if term else []
        if not line:
            groups.append((None, []))
        elif labelled:
            groups.append((labelled.group(1).rstrip("s") if labelled.group(1) == "Costs" else labelled.group(1),
                           [" " * labelled.end() + line[labelled.end():]]))
        elif rests:
            groups.append(("Rests on", [line[rests.end():]]))
        elif names:
            groups.append((tuple(names), [term.group(2)]))
        elif groups and groups[-1][0] is not None and (line.startswith("  ") or groups[-1][0] == "Rests on"):
            groups[-1][1].append(line)
        elif groups and groups[-1][0] is None:
            groups[-1][1].append(line)
        else:
            groups.append((None, [line]))
    for what, text in groups:
        if not text:
            continue
        if isinstance(what, tuple):
            for name in what:
                doc["parameters"][name] = " ".join(part.strip() for part in text)
        elif what:
            doc["notes"].setdefault(what, []).extend(blocks(text))
        elif not doc["purpose"]:
            start = deeper(text)[0] or len(text)
            doc["purpose"] = " ".join(line.strip() for line in text[:start])
            doc["details"].extend(blocks(text[start:]) if text[start:] else [])
        else:
            doc["details"].extend(blocks(text))
    return doc


# ---- Declarations --------------------------------------------------------------------------------------------------


def plain(code):
    """A declaration on one line, without comments."""
    return " ".join(re.sub(r"/\*.*?\*/", " ", code, flags=re.S).split())


def split_parameters(text):
    parts, depth, current = [], 0, ""
    for c in text:
        depth += (c in "(<[") - (c in ")>]")
        if c == "," and depth == 0:
            parts.append(current.strip())
            current = ""
        else:
            current += c
    return [part for part in parts + [current.strip()] if part and part != "void"]


def parameter(text):
    """Its name and its type as one writes it in a cast."""
    if text == "...":
        return {"name": "...", "type": "..."}
    pointer = re.fullmatch(r"(.*\(\*)(\w+)(\).*)", text)
    array = re.fullmatch(r"(.*?)(\w+)((?:\[\w*\])+)", text)
    if pointer or array:
        before, name, after = (pointer or array).groups()
        return {"name": name, "type": (before.strip() if array else before) + after}
    before, name = re.fullmatch(r"(.*?[\s*&])(\w+)", text).groups()
    return {"name": name, "type": before.strip()}


def function(code):
    """A function's name, result and parameters; None if the statement declares something else."""
    attributes = ATTRIBUTES.findall(code)
    code = ATTRIBUTES.sub("", code).strip()
    match = re.fullmatch(r"((?:static |virtual )*)(.*?[\s*&])??(~?\w+|operator\S+)\((.*)\)( const)?", code)
    if not match or code.startswith(("typedef", "extern")):
        return None
    before, result, name, parameters, const = match.groups()
    made = {"name": name, "result": (result or "").strip(), "parameters": [parameter(p) for p in split_parameters(parameters)]}
    made["declaration"] = code + ";"
    if any(word == "VYX_NORETURN" for word, _, _ in attributes):
        made["noreturn"] = True
    for _, form, first in attributes:
        if form:
            made["printf"] = [int(form), int(first)]
    for word in before.split():
        made[word] = True
    if const:
        made["const"] = True
    return made


class Reader:
    """Goes through one header and sorts what it declares."""

    def __init__(self, path):
        self.header = "vyx/" + path.name
        self.items = {kind: [] for kind in ("constants", "types", "records", "enums", "objects", "functions", "classes")}
        self.sections, self.space = [], ""
        self.found = pieces(path.read_text())
        first = self.found[0]
        self.text = described(comment_lines(first.text)) if first.kind == "comment" else described([])
        self.run = (0, "")  # the last line of a run of constants, and the comment before the run
        around = [None, *self.found, None]
        for before, piece, after in zip(around, self.found, around[2:]):
            self.take(piece, before, after)

    def take(self, piece, before, after):
        if piece.kind == "comment":
            title = re.match(r"---- (.*?) -+$", comment_lines(piece.text)[0]) if comment_lines(piece.text) else None
            if title:
                name, _, more = title.group(1).partition(": ")
                rest = comment_lines(piece.text)[1:]
                text = described(([more[0].upper() + more[1:] + "."] if more else []) + rest) if more or rest else described([])
                self.sections.append({"title": name, "doc": text})
            elif not piece.behind and piece is not self.found[0] and (after is None or after.line > piece.last + 1):
                self.remark(described(comment_lines(piece.text)))
        elif piece.kind == "open":
            self.space = piece.text.split()[1] + "::"
        elif piece.kind == "close":
            self.space = ""
        elif piece.kind == "define":
            self.constant(piece, before, after)
        elif piece.kind == "code":
            self.statement(piece, self.own(piece, before, after))

    def remark(self, said):
        """A comment of its own belongs to the section that it stands in, or to the header."""
        doc = self.sections[-1]["doc"] if self.sections else self.text
        doc["details"] += [{"kind": "text", "text": said["purpose"]}] if doc["purpose"] else []
        doc["purpose"] = doc["purpose"] or said["purpose"]
        doc["details"] += said["details"]
        for label, more in said["notes"].items():
            doc["notes"].setdefault(label, []).extend(more)

    @staticmethod
    def own(piece, before, after):
        """The lines of the comment of a declaration: the one behind it, or the one that ends right before it."""
        if after is not None and after.behind:
            return comment_lines(after.text)
        if before is not None and before.kind == "comment" and not before.behind and before.last == piece.line - 1:
            return comment_lines(before.text)
        return []

    def base(self, piece, name):
        made = {"name": self.space + name, "header": self.header, "line": piece.line}
        if self.sections:
            made["section"] = self.sections[-1]["title"]
        return made

    def constant(self, piece, before, after):
        match = re.fullmatch(r"#\s*define (\w+)\s+(\S.*)", piece.text, re.S)
        group = self.run[1] if self.run[0] == piece.line - 1 else ""
        if before is not None and before.kind == "comment" and not before.behind and before.last == piece.line - 1:
            group = " ".join(comment_lines(before.text))
        self.run = (piece.last, group)
        if not match or not re.match(r"(VYX|MAX)_", match.group(1)) or "__" in match.group(2):
            return
        if piece.cxx:
            return
        text = " ".join(comment_lines(after.text)) if after is not None and after.behind else ""
        self.items["constants"].append({**self.base(piece, match.group(1)), "definition": match.group(2),
                                        "text": " ".join(text.split()), "group": " ".join(group.split())})

    def statement(self, piece, lines):
        code = plain(piece.text)
        if re.match(r"class \w+$|typedef enum \w+ \w+$", code):
            return
        declared = function(code)
        if declared:
            made = {**self.base(piece, declared["name"]), **declared, "name": self.space + declared["name"]}
            made["language"] = "c++" if piece.cxx else "c"
            made["comment"] = "\n".join(lines)
            made["doc"] = described(lines, [p["name"] for p in made["parameters"]])
            for p in made["parameters"]:
                p["text"] = made["doc"]["parameters"].get(p["name"], "")
            del made["doc"]["parameters"]
            self.items["functions"].append(made)
            return
        body = re.match(r"(?:typedef )?(struct|union|enum|class)(?: VYX_API)? (\w+)(?: VYX_ENUM32)? \{(.*)\}[\s\w]*$",
                        re.sub(r"\A\s*", "", piece.text), re.S)
        if body:
            self.body(piece, lines, *body.groups())
        elif code.startswith("typedef"):
            self.typedef(piece, code, lines)
        elif code.startswith("extern"):
            name, form = re.fullmatch(r"extern VYX_API (.*?)(\w+(?:\[\d+\])*)", code).group(2, 1)
            bare = re.match(r"\w+", name).group()
            self.items["objects"].append({**self.base(piece, bare), "type": form.strip() + name[len(bare):],
                                          "text": " ".join(l.strip() for l in lines)})
        else:
            raise SystemExit(f"{self.header}:{piece.line}: not understood: {code}")

    def typedef(self, piece, code, lines):
        callback = re.fullmatch(r"typedef (.*?)\(\*(\w+)\)\((.*)\)", code)
        made = self.base(piece, "")
        if callback:
            result, name, parameters = callback.groups()
            made.update(name=name, kind="callback", result=result.strip(),
                        parameters=[parameter(p) for p in split_parameters(parameters)])
            doc = described(lines, [p["name"] for p in made["parameters"]])
            for p in made["parameters"]:
                p["text"] = doc["parameters"].get(p["name"], "")
            text = doc["purpose"]
        else:
            target, name = re.fullmatch(r"typedef (.*?[\s*])(\w+)", code).groups()
            target = target.strip()
            made.update(name=name, kind="handle" if target.endswith("*") else "alias", type=target)
            text = " ".join(line.strip() for line in lines)
        self.items["types"].append({**made, "declaration": code + ";", "text": text})

    def body(self, piece, lines, kind, name, body):
        made = {**self.base(piece, name), "doc": described(lines)}
        del made["doc"]["parameters"]
        offset = piece.line + piece.text[:piece.text.index("{")].count("\n")
        inner = pieces(body, piece.cxx, offset, "," if kind == "enum" else ";")
        if kind == "class":
            made["methods"] = list(self.methods(inner, name))
            self.items["classes"].append(made)
            return
        fields = []
        for index, part in enumerate(inner):
            if part.kind != "code":
                continue
            lines = self.own(part, inner[index - 1] if index else None, inner[index + 1] if index + 1 < len(inner) else None)
            text = " ".join(" ".join(lines).split())
            code = plain(part.text)
            if kind == "enum":
                fields.append({"name": code.split(" = ")[0], "text": text})
            else:
                array = re.fullmatch(r"(.*[\s*])(\w+)(\[\w+\])?", code)
                fields.append({"name": array.group(2), "type": array.group(1).strip() + (array.group(3) or ""), "text": text})
        if kind == "enum":
            self.items["enums"].append({**made, "values": fields})
        else:
            self.items["records"].append({**made, "kind": kind, "fields": fields})

    def methods(self, inner, name):
        public, around = False, [None, *inner, None]
        for before, part, after in zip(around, inner, around[2:]):
            if part.kind == "title":
                public = part.text == "public"
            elif part.kind == "code" and public and "= delete" not in part.text:
                declared = function(plain(part.text))
                lines = self.own(part, before, after)
                declared.update(line=part.line, comment="\n".join(lines),
                                doc=described(lines, [p["name"] for p in declared["parameters"]]))
                del declared["doc"]["parameters"]
                yield declared


def read(folder):
    """All public headers in the folder include/vyx, in the order of their names; vyx.h has nothing of its own."""
    return [Reader(path) for path in sorted(pathlib.Path(folder).glob("*.h")) if path.name != "vyx.h"]
