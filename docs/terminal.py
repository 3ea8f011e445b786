#!/usr/bin/env python3
"""A terminal's picture, from a recording.

terminal.py record CAST COMMAND...   runs the command in a terminal and writes what it shows (asciicast, version 2)
terminal.py draw CAST                prints the picture, an SVG that plays the recording once
terminal.py check CAST SVG           whether the picture is the one of the recording
"""

import codecs
import fcntl
import html
import json
import os
import pathlib
import pty
import re
import struct
import subprocess
import sys
import termios
import time

WIDTH, HEIGHT = 88, 24
LONGEST_PAUSE = 1.5  # seconds; longer ones are shortened in the picture
LINE, CHARACTER = 19, 8.43  # pixels, before the picture is scaled
SCALE = 0.8


def record(file, command):
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", HEIGHT, WIDTH, 0, 0))
    start = time.monotonic()
    events = [{"version": 2, "width": WIDTH, "height": HEIGHT}]
    with subprocess.Popen(command, stdin=theirs, stdout=theirs, stderr=theirs) as process:
        os.close(theirs)
        decoder = codecs.getincrementaldecoder("utf-8")(errors="replace")
        try:
            while data := os.read(ours, 65536):
                events.append([round(time.monotonic() - start, 3), "o", decoder.decode(data)])
        except OSError:  # the end, as Linux tells it
            pass
    file.write_text("".join(json.dumps(event) + "\n" for event in events))
    sys.exit(process.returncode)


def versions(events):
    """Each text that a line of the screen had: (line, from, until or None, text)."""
    shown, line, now, last = {0: [0, ""]}, 0, 0.0, events[0][0]
    found = []
    for moment, _, text in events:
        now += min(moment - last, LONGEST_PAUSE)
        last = moment
        for piece in re.findall(r"\r\n|\n|\r|\x1b\[K|[^\r\n\x1b]+", text):
            if piece in ("\n", "\r\n"):
                line += 1
                shown[line] = [now, ""]
            elif piece == "\r" or piece == "\x1b[K":
                if shown[line][1] and piece == "\x1b[K":
                    found.append((line, shown[line][0], now, shown[line][1]))
                    shown[line] = [now, ""]
                shown[line].append("overwrite")
            else:
                start, old = shown[line][:2]
                if len(shown[line]) > 2 and old:  # written over
                    found.append((line, start, now, old))
                    start, old = now, ""
                shown[line] = [start if old else now, old + piece]
    return sorted(found + [(line, start, None, text) for line, (start, text, *_) in shown.items() if text])


def draw(file):
    events = [json.loads(text) for text in file.read_text().splitlines()[1:]]
    lines = versions(events)
    height = (max(line for line, *_ in lines) + 1) * LINE + 48
    width = round(WIDTH * CHARACTER) + 32
    parts = []
    for line, start, end, text in lines:
        kind = "prompt" if text.startswith("$ ") else "line"
        moves = f"show 1ms {start:.2f}s both" if end is None else f"show 1ms {start:.2f}s both, hide 1ms {end:.2f}s forwards"
        gone = "" if end is None else " gone"
        parts.append(f'<text class="{kind}{gone}" x="16" y="{line * LINE + 52}" style="animation: {moves}">'
                     f"{html.escape(text.rstrip())}</text>")
    return f"""<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width * SCALE:.0f}" height="{height * SCALE:.0f}" role="img">
<title>logmill at work, recorded in a terminal</title>
<style>
text {{ font: 14px ui-monospace, "DejaVu Sans Mono", Menlo, Consolas, monospace; fill: #e6edf3; white-space: pre; }}
.prompt {{ fill: #7ee787; }}
.gone {{ opacity: 0; }}
@keyframes show {{ from {{ opacity: 0; }} to {{ opacity: 1; }} }}
@keyframes hide {{ to {{ opacity: 0; }} }}
@media (prefers-reduced-motion: reduce) {{ text {{ animation: none !important; }} }}
</style>
<rect width="{width}" height="{height}" rx="8" fill="#161b22"/>
<circle cx="20" cy="18" r="6" fill="#ff7b72"/><circle cx="40" cy="18" r="6" fill="#d29922"/><circle cx="60" cy="18" r="6" fill="#3fb950"/>
{chr(10).join(parts)}
</svg>
"""


def main():
    what, files = sys.argv[1:2], [pathlib.Path(name) for name in sys.argv[2:]]
    if what == ["record"] and len(files) > 1:
        record(files[0], sys.argv[3:])
    elif what == ["draw"] and len(files) == 1:
        print(draw(files[0]), end="")
    elif what == ["check"] and len(files) == 2:
        sys.exit(None if draw(files[0]) == files[1].read_text() else f"{files[1]} is not the picture of {files[0]}")
    else:
        sys.exit(__doc__)


main()
