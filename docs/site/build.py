#!/usr/bin/env python3
"""Makes the site of the documents.

build.py API LAYERS SITE   API is vyx-api.json; LAYERS the picture of the rooms; SITE, a folder, receives the pages

Every Markdown page of the project becomes a page, each public header a page of the reference: the text of
docs/subsystems/NAME.md, then all that the header declares, from the description. A link to another file of the project
leads to a page that shows it. Exit status 1, with a line for each, if a link leads nowhere. Needs cmark-gfm.
"""

import html
import json
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing is written into the source tree
import highlight  # noqa: E402

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
HERE = pathlib.Path(__file__).resolve().parent

# The navigation. Pages that are not listed come last, under "More".
SECTIONS = [
    ("Start", ["README.md", "docs/guides/first-c.md", "docs/guides/first-cpp.md", "docs/guides/first-python.md",
               "docs/guides/windows.md", "docs/guides/posix.md"]),
    ("Guides", ["docs/guides/failures.md", "docs/guides/accept.md", "docs/guides/shutdown.md", "docs/guides/log.md",
                "docs/guides/hash.md", "docs/guides/tree.md", "docs/guides/container.md", "docs/guides/signals.md", "docs/python.md"]),
    ("Reference", ["docs/subsystems/%s.md" % name for name in
                   "frame sync thread pool msg net sys time log container string types".split()]),
    ("Behaviour", ["docs/behaviour.md", "docs/messages.md", "docs/performance.md", "docs/proven.md", "docs/reliability.md",
                   "docs/portability.md", "docs/versioning.md", "SECURITY.md", "CHANGELOG.md"]),
    ("More", ["docs/architecture.md", "docs/log.md"]),
]
SOURCES = {".c", ".h", ".cpp", ".py", ".sh", ".txt", ".cmake", ".awk", ".json", ""}


def text_of(markup):
    return html.unescape(re.sub(r"<[^>]*>", "", markup))


def anchor(heading):
    """As forges make them."""
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def address(path):
    """Where a file of the project is on the site."""
    if path == "README.md":
        return "index.html"
    if path.startswith("docs/subsystems/"):
        return "reference/" + pathlib.PurePath(path).stem + ".html"
    if path.endswith(".md"):
        return path.removeprefix("docs/").removesuffix(".md").lower() + ".html"
    return "source/" + (path or "all") + ".html"


def relative(here, there):
    """From the page here to the page there."""
    path, mark, place = there.partition("#")
    up = "../" * here.count("/")
    return (up + path if path != here else "") + mark + place


class Api:
    """The description, by header, and where each name is explained."""

    def __init__(self, file):
        self.data = json.loads(pathlib.Path(file).read_text())
        self.places = {}
        for kind in ("functions", "types", "records", "enums", "objects", "classes", "constants"):
            for item in self.data[kind]:
                if not item["name"].startswith("vyx::operator"):
                    self.places[item["name"]] = f"reference/{self.header(item)}.html#{item['name']}"
        for enum in self.data["enums"]:
            for value in enum["values"]:
                self.places[value["name"]] = f"reference/{self.header(enum)}.html#{value['name']}"

    @staticmethod
    def header(item):
        return pathlib.PurePath(item["header"]).stem

    def of(self, kind, header):
        return [item for item in self.data[kind] if self.header(item) == header]

    def link(self, name, here):
        place = self.places.get(name)
        return f'<a href="{relative(here, place)}">{html.escape(name)}</a>' if place else html.escape(name)

    def prose(self, text, here, own=""):
        """Text of a comment, its names linked."""
        words = re.split(r"(\b[A-Za-z_]\w*(?:::\w+)*)", text)
        return "".join(f"<code>{self.link(word, here) if word != own else word}</code>" if word in self.places
                       else html.escape(word) for word in words)


class Site:
    def __init__(self, api, layers, out):
        self.api, self.layers, self.out = api, pathlib.Path(layers), pathlib.Path(out)
        self.sections = self.find_pages()
        self.pages = {path for _, pages in self.sections for path in pages}
        self.titles = {}
        self.wanted = []  # (page, link) to be looked at in the end
        self.shown = set()  # files and folders that have a page of their own
        self.anchors = {}

    @staticmethod
    def find_pages():
        listed = {path for _, pages in SECTIONS for path in pages}
        found = {str(page.relative_to(TOP)) for page in (TOP / "docs").rglob("*.md") if "node_modules" not in page.parts}
        found |= {page.name for page in TOP.glob("*.md")}
        rest = sorted(found - listed)
        there = found | {p for p in listed if p.startswith("docs/subsystems/")}
        sections = [(title, [path for path in pages if path in there]) for title, pages in SECTIONS]
        sections[-1][1].extend(rest)
        return sections

    # ---- Markdown

    def markdown(self, path):
        """The page's HTML, with the links as the page has them."""
        run = subprocess.run(["cmark-gfm", "-e", "table", "-e", "strikethrough", TOP / path], check=True,
                             stdout=subprocess.PIPE)
        return run.stdout.decode()

    def place_of(self, path, link):
        """Where a link of the file `path` leads on the site; None if nowhere."""
        if re.match(r"[a-z]+:", link):
            return link
        name, mark, place = link.partition("#")
        target = (TOP / path).parent / name if name else TOP / path
        try:
            target = str(target.resolve().relative_to(TOP))
        except ValueError:
            return None
        if not (TOP / target).exists():
            return None
        if target.endswith((".svg", ".png")):
            return "pictures/" + pathlib.PurePath(target).name
        if target.startswith("include/vyx/"):
            return f"reference/{pathlib.PurePath(target).stem}.html" + mark + place
        if target in ("include/vyx", "include"):
            return "reference/index.html"
        if target not in self.pages:
            self.show(target)
        return self.address(target) + mark + place

    def address(self, target):
        """As address(), but of a document without a page of its own where its text is shown."""
        return f"source/{target}.html" if target.endswith(".md") and target not in self.pages else address(target)

    def finish(self, body, path, here):
        """Adapts the links, headings, code and tables of a page."""

        def link(found):
            place = self.place_of(path, html.unescape(found[2]))
            if place is None:
                sys.exit(f"{path}: nothing at {found[2]}")
            if not re.match(r"[a-z]+:", place):
                self.wanted.append((here, place))
                place = relative(here, place)
            return f'{found[1]}="{html.escape(place)}"'

        taken = {}

        def heading(found):
            name = anchor(text_of(found[2]))
            taken[name] = taken.get(name, -1) + 1
            name += f"-{taken[name]}" if taken[name] else ""
            return f'<h{found[1]} id="{name}">{found[2]}</h{found[1]}>'

        def code(found):
            return self.code(html.unescape(found[2]), found[1] or "text", here)

        body = re.sub(r'\b(href|src)="([^"]*)"', link, body)
        body = re.sub(r"<h([1-6])>(.*?)</h\1>", heading, body)
        body = re.sub(r'<pre><code(?: class="language-(\w+)")?>(.*?)</code></pre>', code, body, flags=re.S)
        body = re.sub(r"<code>([A-Za-z_]\w*(?:::\w+)?)</code>(?!</a>)",
                      lambda found: f"<code>{self.api.link(found[1], here)}</code>", body)
        body = body.replace("<th></th>", "<td></td>")
        body = body.replace("<table>", '<div class="wide" tabindex="0" role="group" aria-label="Table"><table>')
        return body.replace("</table>", "</table></div>").replace("<img ", '<img class="picture" ')

    def code(self, text, language, here):
        shown = highlight.markup(text, language, lambda name: self.api.link(name, here))
        return f'<pre tabindex="0" class="{language}"><code>{shown}</code></pre>'

    def declaration(self, item, here):
        shown = highlight.markup(item["declaration"], "cpp",
                                 lambda name: name if name == item["name"] else self.api.link(name, here))
        return f'<pre class="declaration"><code>{shown}</code></pre>'

    # ---- Reference

    def doc(self, doc, here, own=""):
        return self.purpose(doc, here, own) + self.details(doc, here, own)

    def purpose(self, doc, here, own):
        return f"<p>{self.api.prose(doc['purpose'], here, own)}</p>" if doc["purpose"] else ""

    def details(self, doc, here, own):
        return "\n".join(self.block(block, here, own) for block in doc["details"])

    def block(self, block, here, own):
        def say(text):
            return self.api.prose(text, here, own)

        if block["kind"] == "text":
            return f"<p>{say(block['text'])}</p>"
        if block["kind"] == "lines":
            return f'<pre tabindex="0" class="text">{say(block["text"])}</pre>'
        if block["kind"] == "list":
            return "<ul>" + "".join(f"<li>{say(item)}</li>" for item in block["items"]) + "</ul>"
        return "<dl>" + "".join(f"<dt>{say(term)}</dt><dd>{say(text)}</dd>" for term, text in block["items"]) + "</dl>"

    def notes(self, doc, here, own):
        rows = ["<dt>%s</dt><dd>%s</dd>" % (label, "".join(self.block(block, here, own) for block in blocks))
                for label, blocks in doc["notes"].items()]
        return "<dl class='notes'>" + "".join(rows) + "</dl>" if rows else ""

    def parameters(self, item, here):
        rows = [f"<dt><code>{html.escape(p['name'])}</code></dt><dd>{self.api.prose(p['text'], here)}</dd>"
                for p in item["parameters"] if p.get("text")]
        return "<dl>" + "".join(rows) + "</dl>" if rows else ""

    def function(self, item, here):
        name, doc = item["name"], item["doc"]
        return "\n".join([f'<section class="item"><h3 id="{name}"><code>{name}</code></h3>',
                          self.declaration(item, here), self.purpose(doc, here, name), self.parameters(item, here),
                          self.details(doc, here, name), self.notes(doc, here, name), "</section>"])

    def table(self, heads, rows):
        return ('<div class="wide" tabindex="0" role="group" aria-label="Table"><table><thead><tr>' +
                "".join(f"<th>{head}</th>" for head in heads) + "</tr></thead><tbody>" +
                "".join(f"<tr>{row}</tr>" for row in rows) + "</tbody></table></div>")

    def constants(self, header, here):
        rows = [f'<td id="{item["name"]}"><code>{item["name"]}</code></td><td><code>{html.escape(item["definition"])}</code>'
                f"</td><td>{self.api.prose(item['text'] or item['group'], here, item['name'])}</td>"
                for item in self.api.of("constants", header)]
        return "<h2 id='constants'>Constants</h2>" + self.table(("Name", "Value", "Meaning"), rows) if rows else ""

    def enum(self, item, here):
        rows = [f'<td id="{value["name"]}"><code>{value["name"]}</code></td><td>{value["value"]}</td>'
                f"<td>{self.api.prose(value['text'], here)}</td>" for value in item["values"]]
        return (f'<h3 id="{item["name"]}"><code>{item["name"]}</code></h3>' + self.doc(item["doc"], here) +
                self.table(("Name", "Value", "Meaning"), rows))

    def record(self, item, here):
        rows = [f"<td><code>{field['name']}</code></td><td><code>{html.escape(field['type'])}</code></td>"
                f"<td>{self.api.prose(field['text'], here)}</td>" for field in item["fields"]]
        mark = item["name"] if item["typedef"] else f"struct-{item['name']}"
        return (f'<h3 id="{mark}"><code>{item["kind"]} {item["name"]}</code></h3>' + self.doc(item["doc"], here) +
                self.table(("Field", "Type", "Meaning"), rows) if rows else "")

    def types(self, header, here):
        parts = []
        for item in self.api.of("types", header) + self.api.of("objects", header):
            shown = item.get("declaration") or f"extern {item['type']} {item['name']};"
            parts.append(f'<h3 id="{item["name"]}"><code>{item["name"]}</code></h3>' + self.code(shown, "c", here) +
                         f"<p>{self.api.prose(item['text'], here, item['name'])}</p>" * bool(item["text"]))
        parts += [self.record(item, here) for item in self.api.of("records", header)]
        parts += [self.enum(item, here) for item in self.api.of("enums", header)]
        return "<h2 id='types'>Types</h2>" + "\n".join(parts) if parts else ""

    def methods(self, item, here):
        rows = []
        for method in item["methods"]:
            shown = highlight.markup(method["declaration"], "cpp", lambda name: self.api.link(name, here))
            said = self.doc(method["doc"], here) + self.notes(method["doc"], here, "")
            rows.append(f"<td><code>{shown}</code></td><td>{said}</td>")
        return (f'<section class="item"><h3 id="{item["name"]}"><code>class {item["name"]}</code></h3>' +
                self.doc(item["doc"], here, item["name"]) + self.table(("Method", "Meaning"), rows) + "</section>")

    def functions(self, header, described, here):
        items = self.api.of("functions", header)
        parts = []
        for title, doc in [("", None)] + [(s["title"], s["doc"]) for s in described["sections"]]:
            own = [item for item in items if item.get("section", "") == title and not item["name"].startswith("vyx::operator")]
            if not own:
                continue
            title = title or "Functions"
            parts.append(f'<h2 id="{anchor(title)}">{html.escape(title)}</h2>')
            if doc:
                parts += [self.doc(doc, here), self.notes(doc, here, "")]
            parts += [self.function(item, here) for item in own]
        operators = [item for item in items if item["name"].startswith("vyx::operator")]
        classes = [self.methods(item, here) for item in self.api.of("classes", header)]
        if classes:
            parts.append('<h2 id="classes">Classes</h2>' + "\n".join(classes))
        if operators:
            rows = [f"<td><code>{html.escape(item['declaration'])}</code></td><td>{self.doc(item['doc'], here)}"
                    f"{self.notes(item['doc'], here, '')}</td>" for item in operators]
            parts.append('<h3 id="operators">Operators</h3>' + self.table(("Operator", "Meaning"), rows))
        return "\n".join(parts)

    def reference(self, header, here):
        described = next(h for h in self.api.data["headers"] if h["name"] == f"vyx/{header}.h")
        return "\n".join([f"<h2 id='header'>vyx/{header}.h</h2>", self.doc(described["doc"], here),
                          self.notes(described["doc"], here, ""), self.constants(header, here), self.types(header, here),
                          self.functions(header, described, here)])

    def index_of_names(self):
        here = "reference/index.html"
        rows = []
        for kind in ("functions", "classes"):
            for item in self.api.data[kind]:
                if item["name"] in self.api.places:
                    first = re.split(r"(?<=[.;:])\s", item["doc"]["purpose"])[0]
                    rows.append((item["name"], f"<td><code>{self.api.link(item['name'], here)}</code></td>"
                                               f"<td>{html.escape(first)}</td>"))
        rows = [row for _, row in sorted(rows)]
        headers = "".join(f'<li><a href="{pathlib.PurePath(address(path)).name}">{html.escape(self.titles[path])}</a></li>'
                          for path in dict(self.sections)["Reference"])
        self.write(here, "All functions and classes", f"<h1>All functions and classes</h1><p>By subject:</p><ul>{headers}"
                   "</ul>" + self.table(("Name", "What it does"), rows))

    # ---- Files of the project

    def show(self, target):
        """A page for a file or folder that is no document."""
        if target in self.shown:
            return
        self.shown.add(target)
        path = TOP / target
        here = self.address(target)
        if path.is_dir():
            files = sorted(p for p in path.iterdir() if p.is_dir() or p.suffix in SOURCES | {".md"})
            entries = []
            for file in files:
                place = self.place_of(target + "/x", file.name)
                self.wanted.append((here, place))
                entries.append(f'<li><a href="{relative(here, place)}">{html.escape(file.name)}</a></li>')
            body = "<ul>" + "".join(entries) + "</ul>"
        else:
            kind = {".h": "cpp", ".cpp": "cpp", ".c": "c", ".py": "python"}.get(path.suffix, "text")
            body = self.code(path.read_text(), kind, here)
        self.write(here, target, f"<h1>{html.escape(target)}</h1>" + body, search=False)

    # ---- Pages

    def navigation(self, here):
        parts = []
        for title, pages in self.sections:
            links = "".join('<li><a href="%s"%s>%s</a></li>' % (
                relative(here, address(path)) or "#", ' aria-current="page"' * (address(path) == here),
                html.escape(self.titles[path])) for path in pages)
            extra = f'<li><a href="{relative(here, "reference/index.html")}">All names</a></li>' * (title == "Reference")
            parts.append(f"<h2>{title}</h2><ul>{extra}{links}</ul>")
        return "".join(parts)

    def write(self, here, title, body, search=True):
        ids = re.findall(r"""\bid=["']([^"']+)["']""", body)
        for name in {name for name in ids if ids.count(name) > 1}:
            print(f"{here}: two places are named {name}", file=sys.stderr)
        self.anchors[here] = set(ids)
        page = (HERE / "page.html").read_text()
        for name, value in {"title": html.escape(title), "root": "../" * here.count("/"), "body": body,
                            "search": "data-pagefind-body" if search else "data-pagefind-ignore",
                            "navigation": self.navigation(here), "version": self.api.data["version"]}.items():
            page = page.replace("{{%s}}" % name, value)
        file = self.out / here
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(page)

    def header_title(self, path):
        header = pathlib.PurePath(path).stem
        purpose = next(h for h in self.api.data["headers"] if h["name"] == f"vyx/{header}.h")["doc"]["purpose"]
        return f"vyx/{header}.h", purpose

    def make(self):
        shutil.rmtree(self.out, ignore_errors=True)
        (self.out / "pictures").mkdir(parents=True)
        for picture in [*(TOP / "docs/pictures").glob("*.svg"), self.layers]:
            shutil.copy(picture, self.out / "pictures")
        for file in ("style.css", "search.js"):
            shutil.copy(HERE / file, self.out)
        names = sorted(self.api.places.items())
        (self.out / "names.js").write_text("window.vyxNames = " + json.dumps(names) + ";\n")
        bodies = {}
        for path in [path for _, pages in self.sections for path in pages]:
            if (TOP / path).exists():
                bodies[path] = self.markdown(path)
                self.titles[path] = text_of(re.search(r"<h1>(.*?)</h1>", bodies[path])[1])
            else:  # a header without a text of its own
                self.titles[path] = self.header_title(path)[0]
                bodies[path] = f"<h1>{self.titles[path]}</h1>"
        self.titles["README.md"] = "libvyx"
        for path, body in bodies.items():
            here = address(path)
            body = self.finish(body, path, here)
            if path.startswith("docs/subsystems/"):
                body += self.reference(pathlib.PurePath(path).stem, here)
            if path == "docs/architecture.md":
                body += '<p><img class="picture light" src="pictures/layers.svg" alt="The rooms and what they include"></p>'
            self.write(here, self.titles[path], body)
        self.index_of_names()
        self.check()

    def check(self):
        dead = 0
        for here, place in self.wanted + [("names.js", place) for place in self.api.places.values()]:
            path, _, name = place.partition("#")
            if path.startswith("pictures/"):
                good = (self.out / path).exists()
            else:
                good = path in self.anchors and (not name or name in self.anchors[path])
            if not good:
                print(f"{here}: nothing at {place}", file=sys.stderr)
                dead += 1
        sys.exit(1 if dead else 0)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    Site(Api(sys.argv[1]), sys.argv[2], sys.argv[3]).make()


main()
