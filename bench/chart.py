"""Draws size against time, a line for each program over its levels, as SVG.

Colours stand as plain attributes, which every renderer knows; a style sheet only
changes them where the reader's scheme is dark.
"""
import html
import math

WIDTH, HEIGHT = 760, 470
LEFT, RIGHT, TOP, BOTTOM = 64, 24, 82, 54

# what: on light, on dark
INK, SOFT, GRID, PAPER = ("#1f2328", "#e6edf3"), ("#59636e", "#9198a1"), \
    ("#d8dee4", "#30363d"), ("#ffffff", "#0d1117")
VELK = ("#b3400a", "#ff9a5c")
PEERS = [("#0550ae", "#79c0ff"), ("#6639ba", "#d2a8ff"), ("#116329", "#7ee787"),
         ("#0b6b74", "#56d4dd"), ("#7d4e00", "#e3b341"), ("#99286e", "#ff9bce"),
         ("#59636e", "#9198a1")]
FONT = 'font-family="system-ui, DejaVu Sans, sans-serif"'


def name_of(colour):
    return "c" + colour[0][1:]


def style():
    """The dark scheme: what has a class changes its colour."""
    rules = [f".{name_of(c)}{{fill:{c[1]}}} .l{name_of(c)}{{stroke:{c[1]}}}"
             for c in dict.fromkeys([INK, SOFT, GRID, PAPER, VELK, *PEERS])]
    return ("<style>@media (prefers-color-scheme: dark) {\n" + "\n".join(rules) + "\n}</style>")


def text(x, y, words, colour=INK, size=12, anchor="start", bold=False):
    """On a halo of paper, so that no line runs through it."""
    return (f'<text class="{name_of(colour)} l{name_of(PAPER)}" x="{x:.1f}" y="{y:.1f}" {FONT} '
            f'font-size="{size}" fill="{colour[0]}" stroke="{PAPER[0]}" stroke-width="3" '
            f'stroke-linejoin="round" paint-order="stroke" text-anchor="{anchor}"'
            f'{" font-weight=" + chr(34) + "bold" + chr(34) if bold else ""}>{words}</text>')


def line(points, colour, width):
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
    return (f'<polyline class="l{name_of(colour)}" points="{path}" fill="none" '
            f'stroke="{colour[0]}" stroke-width="{width}"/>')


def overlap(a, b):
    return max(0, min(a[2], b[2]) - max(a[0], b[0])) * max(0, min(a[3], b[3]) - max(a[1], b[1]))


class Labels:
    """Finds each label a place near its point that hides as little as it can."""

    def __init__(self, lines):
        self.taken = []
        for points in lines:
            self.taken += [(x - 5, y - 5, x + 5, y + 5) for x, y in points]
            for (x1, y1), (x2, y2) in zip(points, points[1:]):
                steps = max(1, int(math.hypot(x2 - x1, y2 - y1) / 6))
                self.taken += [(x - 1, y - 1, x + 1, y + 1) for x, y in (
                    (x1 + (x2 - x1) * s / steps, y1 + (y2 - y1) * s / steps)
                    for s in range(steps))]

    def place(self, x, y, words, bold):
        wide, high = len(words) * (7.6 if bold else 6.8), 13
        best = None
        for rank, (dx, dy) in enumerate([(1, 0), (-1, 0), (0, -1), (0, 1), (1, -1), (1, 1),
                                         (-1, -1), (-1, 1)] * 2):
            away = 9 if rank < 8 else 20
            left = x + dx * away - (0 if dx > 0 else wide if dx < 0 else wide / 2)
            top = y + dy * away - high / 2 - (0 if dx else dy * 1)
            box = (left, top, left + wide, top + high)
            outside = box[0] < LEFT + 2 or box[2] > WIDTH - 4 or box[1] < TOP or \
                box[3] > HEIGHT - BOTTOM
            cost = sum(overlap(box, t) for t in self.taken) + 1000 * outside + rank
            if best is None or cost < best[0]:
                best = (cost, box)
        self.taken.append(best[1])
        return best[1][0], best[1][3] - 3


def chart(title, subtitle, x_title, y_title, lines):
    """lines: (name, [(level, seconds, percent)]); better is lower and further left."""
    points = [p for _, levels in lines for p in levels]
    seconds, percents = [p[1] for p in points], [p[2] for p in points]
    low, high = math.log2(min(seconds)) - 0.3, math.log2(max(seconds)) + 0.5
    margin = max(0.5, (max(percents) - min(percents)) * 0.06)
    floor, ceiling = max(0, min(percents) - margin), max(percents) + margin

    def x(value):
        return LEFT + (math.log2(value) - low) / (high - low) * (WIDTH - LEFT - RIGHT)

    def y(value):
        return HEIGHT - BOTTOM - (value - floor) / (ceiling - floor) * (HEIGHT - TOP - BOTTOM)

    bottom = HEIGHT - BOTTOM
    subtitle = html.escape(subtitle)
    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           f'width="{WIDTH}" height="{HEIGHT}" role="img" aria-label="{title}">', style(),
           f'<rect class="{name_of(PAPER)}" width="{WIDTH}" height="{HEIGHT}" fill="{PAPER[0]}"/>',
           text(16, 26, title, size=16, bold=True), text(16, 46, subtitle, SOFT),
           text(16, 70, y_title, SOFT),
           text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 10, x_title, SOFT, anchor="middle")]
    marks = []
    for power in range(math.ceil(low), math.floor(high) + 1):
        at = x(2.0 ** power)
        svg.append(line([(at, TOP), (at, bottom)], GRID, 1))
        marks.append(text(at, bottom + 18, f"{2.0 ** power:g} s", SOFT, anchor="middle"))
    step = next(s for s in (0.5, 1, 2, 5, 10, 20, 50) if (ceiling - floor) / s <= 10)
    for tick in range(math.ceil(floor / step), math.floor(ceiling / step) + 1):
        at = y(tick * step)
        svg.append(line([(LEFT, at), (WIDTH - RIGHT, at)], GRID, 1))
        marks.append(text(LEFT - 8, at + 4, f"{tick * step:g} %", SOFT, anchor="end"))
    svg += marks

    places = [[(x(s), y(p)) for _, s, p in levels] for _, levels in lines]
    labels = Labels(places)
    colours = iter(PEERS * 2)
    written = []
    # VELK, the first, is drawn last, on top.
    for (name, levels), spots in list(zip(lines, places))[::-1]:
        ours = name == lines[0][0]
        colour = VELK if ours else next(colours)
        if len(spots) > 1:
            svg.append(line(spots, colour, 3 if ours else 1.5))
        svg += [f'<circle class="{name_of(colour)}" cx="{px:.1f}" cy="{py:.1f}" '
                f'r="{5 if ours else 4}" fill="{colour[0]}"/>' for px, py in spots]
        for i, ((level, _, _), (px, py)) in enumerate(zip(levels, spots)):
            whole = i == len(levels) - 1
            words = f"{name} {level}".strip() if whole else level
            written.append((not whole, words, px, py, colour, ours))
    for _, words, px, py, colour, ours in sorted(written, key=lambda w: w[0]):
        at = labels.place(px, py, words, ours)
        svg.append(text(*at, words, colour, bold=ours))
    return "\n".join([*svg, "</svg>\n"])
