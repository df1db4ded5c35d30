"""A line plot as SVG: logarithmic x axis, y from zero."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 720, 400
LEFT, RIGHT, TOP, BOTTOM = 70, 110, 40, 60
COLORS = ("#1f5fa8", "#c0392b", "#2e8b57", "#8e44ad", "#b8860b", "#555555")


def step_for(highest):
    """A round distance of grid lines, four to eight of them."""
    size = 10 ** math.floor(math.log10(highest / 4))
    return next(size * factor for factor in (1, 2, 5, 10) if highest / (size * factor) <= 8)


def text(x, y, content, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}"{extra}>{escape(content)}</text>'


def svg(plot):
    points = [point for line in plot.series.values() for point in line]
    low, high = (math.log10(limit(x for x, _ in points)) for limit in (min, max))
    top = max(y for _, y in points) * 1.05
    across = lambda x: LEFT + (math.log10(x) - low) / ((high - low) or 1) * (WIDTH - LEFT - RIGHT)  # noqa: E731
    up = lambda y: HEIGHT - BOTTOM - y / top * (HEIGHT - TOP - BOTTOM)  # noqa: E731
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           'font-family="sans-serif" font-size="13">', f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           text(WIDTH / 2, 22, plot.title, extra=' font-weight="bold"'),
           text(WIDTH / 2, HEIGHT - 12, plot.x_label),
           text(16, HEIGHT / 2, plot.y_label, extra=f' transform="rotate(-90 16 {HEIGHT / 2:.0f})"')]
    step = step_for(top)
    for number in range(int(top / step) + 1):
        y = up(number * step)
        out += [f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{y:.1f}" y2="{y:.1f}" stroke="#dddddd"/>',
                text(LEFT - 8, y + 4, f"{number * step:g}", "end")]
    for x in sorted({x for x, _ in points}):
        out.append(text(across(x), HEIGHT - BOTTOM + 18, f"{x:g}"))
    for number, (name, line) in enumerate(plot.series.items()):
        color = COLORS[number % len(COLORS)]
        path = " ".join(f"{across(x):.1f},{up(y):.1f}" for x, y in line)
        out.append(f'<polyline points="{path}" fill="none" stroke="{color}" stroke-width="2"/>')
        out += [f'<circle cx="{across(x):.1f}" cy="{up(y):.1f}" r="3" fill="{color}"/>' for x, y in line]
        y = TOP + 16 * number + 4
        out += [f'<line x1="{WIDTH - RIGHT + 14}" x2="{WIDTH - RIGHT + 38}" y1="{y}" y2="{y}" stroke="{color}" stroke-width="2"/>',
                text(WIDTH - RIGHT + 44, y + 4, name, "start")]
    return "\n".join([*out, "</svg>"]) + "\n"
