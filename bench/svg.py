"""Plots as SVG, readable on light and dark pages: bars() and curves(). Both return the picture as text."""

import html
import math

WIDTH = 760
# Of the lines and bars of the sides, the library's own first.
COLOURS = ["#2f7ed8", "#e08a1e", "#3d9a50", "#b5539c", "#a07a45", "#6d7f8f", "#c0504d", "#17a2a2"]
STYLE = """<style>
text { font: 12px sans-serif; fill: #333 } .small { font-size: 10px; fill: #666 } .head { font-weight: bold }
.axis { stroke: #888 } .grid { stroke: #8884 } .spread { stroke: #333; stroke-width: 1.2 }
@media (prefers-color-scheme: dark) { text { fill: #ddd } .small { fill: #aaa } .spread { stroke: #eee } }
</style>"""


def text(x, y, what, anchor="start", kind=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" class="{kind}">{html.escape(what)}</text>'


def line(x1, y1, x2, y2, kind):
    return f'<path d="M{x1:.1f} {y1:.1f}L{x2:.1f} {y2:.1f}" class="{kind}"/>'


def document(height, parts, title):
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" width="{WIDTH}" role="img">',
                      f"<title>{html.escape(title)}</title>", STYLE, *parts, "</svg>"]) + "\n"


def bars(title, rows, longest=4.0):
    """A group of bars for each row, each as long as a side's value divided by that of the row's first side, which is 1.

    rows: (label, [(side, value as text, (low, middle, high))]). What is longer than `longest` is cut, with an arrow.
    """
    left, right, bar, parts, y = 120, WIDTH - 110, 13, [], 26
    scale = (right - left) / longest
    sides = list(dict.fromkeys(side for _, bars_of_row in rows for side, _, _ in bars_of_row))
    for label, bars_of_row in rows:
        parts.append(text(8, y + 11, label, kind="head"))
        y += 17
        own = bars_of_row[0][2][1]
        for side, value, (low, middle, high) in bars_of_row:
            length, cut = min(middle / own, longest), middle / own > longest
            colour = COLOURS[sides.index(side) % len(COLOURS)]
            parts.append(text(left - 6, y + 10, side, "end", "small"))
            parts.append(f'<rect x="{left}" y="{y}" width="{length * scale:.1f}" height="{bar - 3}" fill="{colour}"/>')
            end = left + length * scale
            if not cut:
                ends = [left + min(at / own, longest) * scale for at in (low, high)]
                parts.append(line(ends[0], y + 5, ends[1], y + 5, "spread"))
                end = max(end, ends[1])
            parts.append(text(end + 5, y + 10, ("→ " if cut else "") + value, kind="small"))
            y += bar
        y += 7
    grid = []
    for step in range(int(longest) + 1):
        x = left + step * scale
        grid += [line(x, 22, x, y, "axis" if step in (0, 1) else "grid"), text(x, 16, f"{step} ×", "middle", "small")]
    return document(y + 6, grid + parts, title)


def decades(values):
    return range(math.floor(math.log10(min(values))), math.ceil(math.log10(max(values))) + 1)


def short(value):
    for unit, factor in (("M", 1e6), ("k", 1e3)):
        if value >= factor:
            return f"{value / factor:g}{unit}"
    return f"{value:g}"


def curves(title, x_name, y_name, series):
    """Lines on logarithmic axes.  series: [(name, [(x, (low, middle, high))])]; the spread is a vertical stroke."""
    left, right, top, bottom = 70, WIDTH - 170, 30, 330
    xs = [x for _, points in series for x, _ in points]
    ys = [max(y, 1e-9) for _, points in series for _, spread in points for y in spread]
    y_range = decades(ys)

    def across(x):
        return left + math.log10(x / min(xs)) / math.log10(max(xs) / min(xs)) * (right - left)

    def up(y):
        return bottom - (math.log10(max(y, 1e-9)) - y_range[0]) / max(y_range[-1] - y_range[0], 1) * (bottom - top)

    parts = [text(left, 18, y_name), text((left + right) / 2, bottom + 36, x_name, "middle")]
    for size in sorted(set(xs)):
        x = across(size)
        parts += [line(x, top, x, bottom, "grid"), text(x, bottom + 16, short(size), "middle", "small")]
    for power in y_range:
        y = up(10.0**power)
        parts += [line(left, y, right, y, "grid"), text(left - 6, y + 4, short(10.0**power), "end", "small")]
    names = []
    for number, (name, points) in enumerate(series):
        colour = COLOURS[number % len(COLOURS)]
        path = "L".join(f"{across(x):.1f} {up(spread[1]):.1f}" for x, spread in points)
        parts.append(f'<path d="M{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        for x, (low, middle, high) in points:
            parts.append(f'<path d="M{across(x):.1f} {up(low):.1f}V{up(high):.1f}" stroke="{colour}"/>')
            parts.append(f'<circle cx="{across(x):.1f}" cy="{up(middle):.1f}" r="3" fill="{colour}"/>')
        names.append([up(points[-1][1][1]) + 4, name, colour])
    names.sort()
    for before, after in zip(names, names[1:]):
        after[0] = max(after[0], before[0] + 13)  # no name on another
    for y, name, colour in names:
        parts.append(f'<circle cx="{right + 12}" cy="{y - 4:.1f}" r="4" fill="{colour}"/>' + text(right + 20, y, name))
    return document(max(bottom + 44, names[-1][0] + 8), parts, title)
