"""Marks up code: comments, texts, numbers and words of the language; names of the library become links."""

import html
import re

WORDS = {
    "c": "auto break case char const continue default do double else enum extern float for goto if inline int long return"
         " short signed sizeof static struct switch typedef union unsigned void volatile while",
    "python": "and as assert break class continue def del elif else except False finally for from if import in is lambda"
              " None not or pass raise return True try while with yield",
    "sh": "case do done elif else esac exit export fi for function if in local return set then while",
    "cmake": "add_executable add_subdirectory cmake_minimum_required find_package project target_link_libraries PRIVATE",
}
WORDS["cpp"] = WORDS["c"] + (" bool class constexpr delete explicit false namespace new noexcept nullptr operator private"
                             " protected public static_cast template this throw true using virtual")
TOKEN = {
    "c": r"(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<text>\"(?:[^\"\\\n]|\\.)*\"|'(?:[^'\\\n]|\\.)+')",
    "python": r"(?P<comment>#[^\n]*)|(?P<text>\"\"\".*?\"\"\"|\"(?:[^\"\\\n]|\\.)*\"|'(?:[^'\\\n]|\\.)*')",
    "sh": r"(?P<comment>(?<!\S)#[^\n]*)|(?P<text>\"(?:[^\"\\]|\\.)*\"|'[^']*')",
    "cmake": r"(?P<comment>#[^\n]*)|(?P<text>\"(?:[^\"\\]|\\.)*\")",
}
TOKEN["cpp"] = TOKEN["c"]


def markup(code, language, link):
    """HTML of the code; `link` makes a name into HTML."""
    if language not in WORDS:
        return html.escape(code)
    words = set(WORDS[language].split())
    token = re.compile(TOKEN[language] + r"|(?P<number>\b\d[\w.]*)|(?P<name>[A-Za-z_]\w*(?:::\w+)?)", re.S)
    parts, end = [], 0
    for found in token.finditer(code):
        parts.append(html.escape(code[end:found.start()]))
        kind, text = found.lastgroup, found.group()
        end = found.end()
        if kind == "name":
            parts.append(f'<span class="word">{text}</span>' if text in words else link(text))
        else:
            parts.append(f'<span class="{kind}">{html.escape(text)}</span>')
    return "".join(parts) + html.escape(code[end:])
