"""Draws plots as small multiples in one SVG: what page.py puts beside its tables. A plot is {"title", "x", "y", "curves":
{name: [[x, y], ...]}}. An axis whose values range widely is logarithmic; a zero then stands left of all, or below."""
import html
import math

WIDTH, GAP, COLUMNS = 900, 20, 2
PANEL = (WIDTH - GAP) / COLUMNS
LEFT, RIGHT, PLOT = 58, 14, 160
TITLE, KEY, AXES = 46, 18, 56  # heights: above the key, of one line of it, below the plot
LETTER = 6.6  # the mean width of one
WIDE = 30  # a range from which on an axis is logarithmic

# Colour, dashes and mark of each curve: each alone tells them apart.
STYLES = [("a", "", "circle"), ("b", "6 3", "square"), ("c", "2 3", "triangle"), ("d", "9 3 2 3", "diamond"),
          ("e", "1 4", "cross"), ("f", "12 4", "plus")]
HEAD = """<style>
svg{background:#fff;font:12px sans-serif}text{fill:#333}.title{font-weight:bold;font-size:14px;fill:#111}
.end{text-anchor:end}.middle{text-anchor:middle}path{fill:none;stroke-width:1.6;stroke-linejoin:round}
.grid{stroke:#ddd;stroke-width:1}.mark{stroke-width:1.4;fill:#fff}
.a{stroke:#0b62a4}.b{stroke:#c4471f}.c{stroke:#2c7a3f}.d{stroke:#7b3fa0}.e{stroke:#8a6a00}.f{stroke:#00707a}
@media(prefers-color-scheme:dark){svg{background:#16181c}text{fill:#c8ccd2}.title{fill:#f0f2f5}.grid{stroke:#34383f}
.mark{fill:#16181c}.a{stroke:#63b3f5}.b{stroke:#ff9166}.c{stroke:#6fce86}.d{stroke:#cf9bf0}.e{stroke:#e0bd4c}
.f{stroke:#4fd0dc}}
</style>
"""
MARKS = {"circle": "m-3.5 0a3.5 3.5 0 1 0 7 0a3.5 3.5 0 1 0-7 0z", "square": "m-3-3h6v6h-6z", "triangle": "m0-4l4 7h-8z",
         "diamond": "m0-4.5l4.5 4.5l-4.5 4.5l-4.5-4.5z", "cross": "m-3.5-3.5l7 7m0-7l-7 7", "plus": "m-4 0h8m-4-4v8"}


def label(value):
    for unit, letter in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= unit and value >= 1e4:
            return f"{value / unit:g}{letter}"
    return f"{value:,.0f}" if value >= 100 else f"{value:g}"


class Axis:
    """From values to parts of its length."""

    def __init__(self, values):
        positive = [value for value in values if value > 0]
        self.log = bool(positive) and min(values) >= 0 and max(positive) / min(positive) > WIDE
        if self.log:
            self.zero = min(values) == 0
            low, high = math.log10(min(positive)), math.log10(max(positive))
            if high - low > 2:  # whole decades
                low, high = math.floor(low + 1e-9), math.ceil(high - 1e-9)
            self.low, self.high = low - (0.5 if self.zero else 0), high
            step = max(1, math.ceil((high - low) / 6))
            self.ticks = [10.0**power for power in range(math.ceil(low - 1e-9), math.floor(high + 1e-9) + 1, step)]
            if len(self.ticks) < 3:
                self.ticks = [factor * 10.0**power for power in range(math.floor(low), math.ceil(high) + 1)
                              for factor in (1, 2, 5) if low - 1e-9 <= math.log10(factor * 10.0**power) <= high + 1e-9]
            self.ticks = ([0] if self.zero else []) + self.ticks
        else:
            self.low, most = min(0, *values), max(*values, self.smallest(values))
            step = self.step((most - self.low) / 4)
            self.low = math.floor(self.low / step) * step
            self.high = math.ceil(most / step - 1e-9) * step
            self.ticks = [self.low + i * step for i in range(round((self.high - self.low) / step) + 1)]

    @staticmethod
    def smallest(values):
        return 1 if max(values) <= 0 else 0

    @staticmethod
    def step(least):
        power = 10 ** math.floor(math.log10(least))
        return next(factor * power for factor in (1, 2, 2.5, 5, 10) if factor * power >= least * (1 - 1e-9))

    def part(self, value):
        if self.log:
            value = math.log10(value) if value > 0 else self.low
        return (value - self.low) / (self.high - self.low)


def key_rows(names):
    """The key's lines: names side by side as far as they fit."""
    rows, room = [[]], 0
    for number, name in enumerate(names):
        width = 48 + LETTER * len(name)
        if room + width > PANEL - LEFT and rows[-1]:
            rows.append([])
            room = 0
        rows[-1].append((room, number, name))
        room += width
    return rows


def key_height(plot):
    return KEY * len(key_rows(plot["curves"])) if len(plot["curves"]) > 1 else 0


def curve(number, points):
    colour, dashes, mark = STYLES[number % len(STYLES)]
    line = "L".join(f"{x:.1f} {y:.1f}" for x, y in points)
    text = f'<path class="{colour}" stroke-dasharray="{dashes}" d="M{line}"/>' if dashes else \
        f'<path class="{colour}" d="M{line}"/>'
    if len(points) <= 40:
        text += f'<path class="mark {colour}" d="' + "".join(f"M{x:.1f} {y:.1f}{MARKS[mark]}" for x, y in points) + '"/>'
    return text + "\n"


def panel(plot, left, top, key):
    """`key` is the height that the row of panels leaves for keys."""
    points = [point for curve_points in plot["curves"].values() for point in curve_points]
    across, up = Axis([x for x, _ in points]), Axis([y for _, y in points])
    width, roof = PANEL - LEFT - RIGHT, TITLE + key
    bottom = roof + PLOT
    text = f'<g transform="translate({left:g} {top:g})">\n'
    text += f'<text class="title" x="0" y="18">{html.escape(plot["title"])}</text>\n'
    if len(plot["curves"]) > 1:
        for row, entries in enumerate(key_rows(plot["curves"])):
            y = 36 + KEY * row
            for x, number, name in entries:
                text += curve(number, [(x + 4 + 13 * i, y - 4) for i in range(3)])
                text += f'<text x="{x + 37:.0f}" y="{y}">{html.escape(name)}</text>\n'
    text += f'<text x="0" y="{roof - 8:g}">{html.escape(plot["y"])}</text>\n'
    for tick in up.ticks:
        y = bottom - PLOT * up.part(tick)
        text += f'<path class="grid" d="M{LEFT} {y:.1f}h{width:g}"/>'
        text += f'<text class="end" x="{LEFT - 8}" y="{y + 4:.1f}">{label(tick)}</text>\n'
    for tick in across.ticks:
        x = LEFT + width * across.part(tick)
        text += f'<path class="grid" d="M{x:.1f} {bottom:g}v4"/>'
        text += f'<text class="middle" x="{x:.1f}" y="{bottom + 18:g}">{label(tick)}</text>\n'
    text += f'<text class="middle" x="{LEFT + width / 2:.1f}" y="{bottom + 36:g}">{html.escape(plot["x"])}</text>\n'
    for number, curve_points in enumerate(plot["curves"].values()):
        text += curve(number, [(LEFT + width * across.part(x), bottom - PLOT * up.part(y)) for x, y in sorted(curve_points)])
    return text + "</g>\n"


def picture(plots):
    body, top = "", 0
    for start in range(0, len(plots), COLUMNS):
        row = plots[start:start + COLUMNS]
        key = max(map(key_height, row))
        for column, plot in enumerate(row):
            body += panel(plot, column * (PANEL + GAP), top, key)
        top += TITLE + key + PLOT + AXES
    titles = html.escape("; ".join(plot["title"] for plot in plots))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="-10 0 {WIDTH + 20} {top:g}" role="img" '
            f'aria-label="{titles}">\n{HEAD}{body}</svg>\n')
