#!/usr/bin/env python3
"""Compares the documents with the sources; exit status 1 and a line for each difference.

check.py behaviour   each test that behaviour.md names exists, each row names one, and the tests that the sources name
                     for deliberate behaviour are there
check.py links       each file of this project that a document links to is there, and has the heading
check.py messages    messages.md has exactly the texts that the library prints
check.py names       every VYX_ name in a document is in the sources
"""

import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
STRING = re.compile(r'"((?:[^"\\]|\\.)*)"')
COMMENT = re.compile(r'//[^\n]*|/\*.*?\*/|("(?:[^"\\\n]|\\.)*")', re.S)
TEST = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)", re.M)
TEST_NAME = re.compile(r"[A-Z]\w*\.[A-Z]\w*|(?:Fuzz|Torture)\.[a-z]\w*")
PINNED = re.compile(r"Deliberate[,:](?:(?!Deliberate).){,600}?Pinned by (" + TEST_NAME.pattern + ")")
# What prints a text of the library's. The last two are found by what they write to.
PRINTS = re.compile(r"\b(VYX_OutputDebug\w*|v?f?printf|v?dprintf|f?puts|f?putc|putchar|perror|psignal|v?syslog)\s*\(|"
                    r"\b(write\s*\(\s*(?:[12]|STD\w+)\s*,)|\b(std::c(?:out|err|log))\b")
# Where what is printed is the caller's: the log's lines, and the functions that print for the caller.
PRINT_FOR_CALLERS = {"src/log/log_targets.cpp", "src/sys/debug.cpp"}


def sources():
    return sorted(p for p in (TOP / "src").rglob("*") if p.suffix in (".cpp", ".h"))


def documents():
    return [*sorted(TOP.glob("*.md")), *sorted((TOP / "docs").rglob("*.md"))]


def rows(text):
    """The rows of all tables, as lists of cells, without heads and rulers."""
    lines = [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
             for line in text.splitlines() if line.startswith("|")]
    return [cells for n, cells in enumerate(lines)
            if not set("".join(cells)) <= set("-: ") and not (n + 1 < len(lines) and set("".join(lines[n + 1])) <= set("-: "))]


def check_behaviour():
    there = {f"Fuzz.{file.name[:-len('_fuzz.cpp')]}" for file in (TOP / "fuzz").glob("*_fuzz.cpp")}
    there |= {f"Torture.{stage.name}" for stage in (TOP / "tests/torture/stages").iterdir()}
    for file in (TOP / "tests").rglob("*.cpp"):
        there |= {".".join(names) for names in TEST.findall(file.read_text())}
    named = set()
    for cells in rows((TOP / "docs/behaviour.md").read_text()):
        tests = TEST_NAME.findall(cells[-1])
        named |= set(tests)
        if not tests:
            yield f"docs/behaviour.md: no test pins '{cells[0]}'"
    yield from (f"docs/behaviour.md: there is no test {name}" for name in sorted(named - there))
    for file in sources():
        prose = re.sub(r"\s*\n\s*//\s*", " ", file.read_text())
        for name in PINNED.findall(prose):
            if name not in named:
                yield f"docs/behaviour.md: nothing is said of the behaviour that {name} pins in {file.relative_to(TOP)}"


def argument_list(text, begin):
    """The text from begin to the parenthesis that closes the call."""
    depth = 1
    for at in re.finditer(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|[()]', text[begin:]):
        depth += {"(": 1, ")": -1}.get(at.group(), 0)
        if depth == 0:
            return text[begin:begin + at.start()]
    return text[begin:]


def printed():
    """(text, file) for each text that the sources print; the text is None where it is no literal."""
    for file in sources():
        name = str(file.relative_to(TOP))
        text = COMMENT.sub(lambda found: found.group(1) or " ", file.read_text())
        for call in PRINTS.finditer(text):
            if name in PRINT_FOR_CALLERS:
                continue
            literals = re.search(r'(?:"(?:[^"\\]|\\.)*"\s*)+', argument_list(text, call.end()))
            yield "".join(STRING.findall(literals.group())).removesuffix("\\n") if literals else None, name


def check_messages():
    listed = {cells[0].strip("`").replace("\\|", "|") for cells in rows((TOP / "docs/messages.md").read_text())}
    there = set()
    for text, file in printed():
        there.add(text)
        if text is None:
            yield f"{file}: prints something that is no literal text, which docs/messages.md cannot have"
        elif text not in listed:
            yield f"docs/messages.md: '{text}' of {file} is missing"
    yield from (f"docs/messages.md: nothing prints '{text}'" for text in sorted(listed - there))


def anchors(text):
    """The anchors of a page's headings, as forges make them."""
    heads = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```$", "", text, flags=re.S | re.M), re.M)
    return {re.sub(r"[^\w\- ]", "", head.lower()).replace(" ", "-") for head in heads}


def check_links():
    for page in documents():
        text = re.sub(r"^```.*?^```$|`[^`\n]*`", "", page.read_text(), flags=re.S | re.M)
        for link in re.findall(r"\]\(([^)\s]+)\)", text):
            path, _, anchor = link.partition("#")
            target = (page.parent / path).resolve() if path else page
            if "://" in link or link.startswith("mailto:"):
                continue
            if not target.exists() or (anchor and anchor not in anchors(target.read_text())):
                yield f"{page.relative_to(TOP)}: nothing at {link}"


def check_names():
    there = set()
    for file in [*(TOP / "include/vyx").glob("*.h"), *sources()]:
        there |= set(re.findall(r"\w+", file.read_text()))
    for file in documents():
        for name in sorted(set(re.findall(r"\bVYX_\w*[a-z]\w*+(?![…*])", file.read_text())) - there):
            yield f"{file.relative_to(TOP)}: there is no {name}"


def main():
    checks = {"behaviour": check_behaviour, "links": check_links, "messages": check_messages, "names": check_names}
    if len(sys.argv) != 2 or sys.argv[1] not in checks:
        sys.exit(__doc__)
    problems = list(checks[sys.argv[1]]())
    print("\n".join(problems) or "the documents agree with the sources")
    sys.exit(1 if problems else 0)


main()
