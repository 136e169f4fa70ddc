"""Draws the plots of the benchmark as SVG, with their data beside them as JSON. Standalone use:

usage: plot.py DIRECTORY    redraws every DIRECTORY/*.svg from its .json
"""
import json
import math
import sys
from pathlib import Path

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 70, 40, 40, 50
COLOURS = ('#1f5fa8', '#c0392b', '#2e8b57')

# Plot -> (title, x axis, y axis, curves, x is logarithmic, y is logarithmic).
PLOTS = {
    'file-size': ('getFileSize', 'files', 'ms of CPU', ['getFileSize', 'raw getdents + stat', 'du -sbL'],
                  True, True),
    'oldest-run': ('Choosing the run to evict', 'runs in the store', 'us of CPU',
                   ['findOldestLogDir', 'readdir + stat'], True, True),
    'request-latency': ('Latency of a version request', 'idle workers', 'us', ['request'], False, False),
    'touch-rate': ('CPU of the touch recorder', 'events a second', '% of one CPU', ['recorder'],
                   True, True),
}


def ticks(low, high, logarithmic):
    """Round numbers from at most `low` to at least `high`."""
    if logarithmic:
        first, last = math.floor(math.log10(low)), math.ceil(math.log10(high))
        return [10.0 ** power for power in range(first, max(last, first + 1) + 1)]
    step = 10 ** math.floor(math.log10(high / 2))
    step *= next(factor for factor in (1, 2, 5, 10) if high / (step * factor) <= 6)
    return [step * i for i in range(math.ceil(high / step) + 1)]


def scale(marks, logarithmic, begin, end):
    """A function from values to pixels, for an axis from the first mark to the last."""
    turn = math.log10 if logarithmic else float
    low, high = turn(marks[0]), turn(marks[-1])
    return lambda value: begin + (turn(value) - low) / (high - low) * (end - begin)


def label(value):
    return f'{value:,.0f}' if value >= 1 else f'{value:g}'


def svg(name, points):
    title, x_axis, y_axis, curves, x_log, y_log = PLOTS[name]
    values = [value for _, ys in points for value in ys]
    x_marks = ticks(min(x for x, _ in points), max(x for x, _ in points), x_log)
    y_marks = ticks(min(values), max(values), y_log)
    to_x = scale(x_marks, x_log, LEFT, WIDTH - RIGHT)
    to_y = scale(y_marks, y_log, HEIGHT - BOTTOM, TOP)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="20" font-size="15">{title}</text>']
    for mark in x_marks:
        x = to_x(mark)
        out.append(f'<path d="M{x:.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#ddd"/>'
                   f'<text x="{x:.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{label(mark)}</text>')
    for mark in y_marks:
        y = to_y(mark)
        out.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{label(mark)}</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 12}" text-anchor="middle">{x_axis}</text>')
    out.append(f'<text transform="translate(16 {(TOP + HEIGHT - BOTTOM) / 2}) rotate(-90)" '
               f'text-anchor="middle">{y_axis}</text>')
    for i, curve in enumerate(curves):
        colour = COLOURS[i]
        spots = [(to_x(x), to_y(ys[i])) for x, ys in points]
        line = ' '.join(f'{x:.1f},{y:.1f}' for x, y in spots)
        out.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        out += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in spots]
        out.append(f'<text x="{LEFT + 10}" y="{TOP + 16 + 16 * i}" fill="{colour}">{curve}</text>')
    return '\n'.join(out + ['</svg>', ''])


def draw(directory, name, points):
    directory.mkdir(parents=True, exist_ok=True)
    _, x_axis, y_axis, curves, _, _ = PLOTS[name]
    lines = ',\n'.join('    ' + json.dumps([x, *ys]) for x, ys in points)
    columns = json.dumps([x_axis, *(f'{curve}, {y_axis}' for curve in curves)])
    (directory / f'{name}.json').write_text(f'{{\n  "columns": {columns},\n  "rows": [\n{lines}\n  ]\n}}\n')
    (directory / f'{name}.svg').write_text(svg(name, points))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for data in Path(sys.argv[1]).glob('*.json'):
        draw(data.parent, data.stem, [(row[0], row[1:]) for row in json.loads(data.read_text())['rows']])


if __name__ == '__main__':
    main()
