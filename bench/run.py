#!/usr/bin/env python3
"""Runs the rows of the benchmark, each in a bench phone of its own, and holds them against the goals.

usage: run.py BUILD_DIRECTORY [--record] [FILTER]

FILTER is a regular expression over row names. Results go to BUILD_DIRECTORY/bench; --record, which
runs every row, puts them where they are committed: bench/results.json and docs/figures. The exit
status is 1 when a goal is missed: a count at once, a time only when three phones in turn have missed
it, because the machine may be busy with something else.
"""
import json
import os
import platform
import re
import subprocess
import sys
import time
from pathlib import Path

import plot

ROOT = Path(__file__).resolve().parent.parent
INSIDE = '/data/local/tmp/bench'
ATTEMPTS = 3

# Row -> options of its phone.
ROWS = {
    'touch': ['--no-daemon', '--input'],
}

# Figure -> (what it is, unit, least, most, counted exactly). A figure that is not here is printed
# without a verdict.
GOALS = {
    'touch.ratio': ('touch event to disk / poll + read + 4 writes', 'x', None, 1.15, False),
    'touch.calls': ('system calls of a touch event', '', 6, 6, True),
}
NOTES = {
    'touch.event_us': ('touch event to disk, CPU time', 'us'),
    'touch.bare_us': ('poll + read + 4 writes, CPU time', 'us'),
}


def met(figure):
    _, _, least, most, _ = GOALS[figure['figure']]
    return (least is None or figure['value'] >= least) and (most is None or figure['value'] <= most)


def goal_text(name):
    _, unit, least, most, _ = GOALS[name]
    if least == most:
        return f'= {most:g}{unit}'
    return f'<= {most:g}{unit}' if least is None else f'{least:g} to {most:g}{unit}'


def run_row(build, row):
    """The figures and the points of plots that one run of a row prints."""
    command = [build / 'phone/phone', '--timeout', '150', *ROWS[row],
               '--file', f'{build}/bench/bench={INSIDE}', '--', INSIDE, row]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f'bench: row {row} failed with status {done.returncode}')
    said = [json.loads(line) for line in done.stdout.splitlines()]
    return [one for one in said if 'figure' in one], [one for one in said if 'plot' in one]


def measure(build, row):
    """Runs a row until it meets its goals or no other run would help."""
    for attempt in range(1, ATTEMPTS + 1):
        start = time.monotonic()
        figures, points = run_row(build, row)
        missed = [one['figure'] for one in figures if one['figure'] in GOALS and not met(one)]
        print(f'-- {row}: {time.monotonic() - start:.1f} s'
              + (f', run {attempt} misses {", ".join(missed)}' if missed else ''), flush=True)
        if not missed or any(GOALS[name][4] for name in missed):
            break
    for one in figures:
        name = one['figure']
        what, unit = (GOALS if name in GOALS else NOTES)[name][:2]
        one.update({'what': what, 'unit': unit, 'runs': attempt})
        if name in GOALS:
            one.update({'goal': goal_text(name), 'met': met(one)})
    return figures, points


def number(value, unit):
    return f'{value:.3g}{unit}' if value < 1000 else f'{value:.0f}{unit}'


def print_table(figures):
    width = max(len(one['what']) for one in figures)
    print(f'\n{"what":<{width}}  {"goal":>14}  {"figure":>9}  {"quartiles":>13}  verdict')
    for one in figures:
        spread = f'{one["low"]:.3g} .. {one["high"]:.3g}' if 'low' in one else ''
        verdict = '' if 'goal' not in one else 'met' if one['met'] else 'MISSED'
        if one['runs'] > 1:
            verdict += f' (run {one["runs"]})'
        print(f'{one["what"]:<{width}}  {one.get("goal", ""):>14}  {number(one["value"], one["unit"]):>9}  '
              f'{spread:>13}  {verdict}')


def machine():
    model = re.search(r'model name\s*: (.*)', Path('/proc/cpuinfo').read_text())
    return {'processor': model.group(1) if model else platform.machine(), 'cpus': os.cpu_count(),
            'kernel': '.'.join(platform.release().split('.')[:2]), 'date': time.strftime('%Y-%m-%d')}


def write_results(figures, points, results, drawings):
    results.parent.mkdir(parents=True, exist_ok=True)
    lines = ',\n'.join('    ' + json.dumps(one) for one in figures)
    results.write_text(f'{{\n  "machine": {json.dumps(machine())},\n  "figures": [\n{lines}\n  ]\n}}\n')
    for name in {one['plot'] for one in points}:
        plot.draw(drawings, name, [(one['x'], one['y']) for one in points if one['plot'] == name])
    print(f'\nresults: {results}, plots: {drawings}')


def main():
    arguments = sys.argv[1:]
    record = '--record' in arguments
    if record:
        arguments.remove('--record')
    if not arguments or len(arguments) > (1 if record else 2):
        sys.exit(__doc__)
    build = Path(arguments[0]).resolve()
    wanted = arguments[1] if len(arguments) == 2 else ''
    rows = [row for row in ROWS if re.search(wanted, row)]
    if not rows:
        sys.exit(f'bench: no row matches {wanted}; there are: {" ".join(ROWS)}')
    figures, points = [], []
    for row in rows:
        more_figures, more_points = measure(build, row)
        figures += more_figures
        points += more_points
    print_table(figures)
    if record:
        write_results(figures, points, ROOT / 'bench/results.json', ROOT / 'docs/figures')
    else:
        write_results(figures, points, build / 'bench/results.json', build / 'bench/figures')
    missed = [one['what'] for one in figures if not one.get('met', True)]
    if missed:
        sys.exit('bench: missed: ' + '; '.join(missed))


if __name__ == '__main__':
    main()
