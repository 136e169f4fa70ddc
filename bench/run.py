#!/usr/bin/env python3
"""Runs the rows of the benchmark, each in a bench phone of its own, and compares the figures with the goals.

usage: run.py BUILD_DIRECTORY [--record] [FILTER]

FILTER is a regular expression over row names. Results go to BUILD_DIRECTORY/bench; --record, which
runs every row, puts them where they are committed: bench/results.json, docs/figures and the table of
docs/performance.md. The exit status is 1 when a goal is missed: a count at once, a time only when
three phones in turn have missed it, because the machine may be busy with something else.
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
PAGE = ROOT / 'docs/performance.md'  # has the table between two comments
ATTEMPTS = 3

IDLE_DAEMON = ['--daemon', 'build/bench/idle_daemon']

# Row -> the options of each phone that it runs in.
ROWS = {
    'request': [[]],
    'request-workers': [[*IDLE_DAEMON, '--prop', f'bench.workers={n}'] for n in (0, 4, 8, 12, 16, 24, 32)],
    'self-log': [['--no-daemon']],
    'file-size': [['--no-daemon', '--data-size', '1g', '--file', '/usr/bin/du=/data/local/tmp/du']],
    'oldest-run': [['--no-daemon']],
    'move': [['--no-daemon']],
    'log': [['--no-daemon', '--data-size', '2g', *[option for tool in ('cat', 'grep', 'sort', 'wc') for option in
                                                  ('--file', f'/usr/bin/{tool}=/data/local/tmp/{tool}')]]],
    'touch': [['--no-daemon', '--input']],
    'memory': [[*IDLE_DAEMON, '--prop', 'bench.workers=12']],
    'workers': [[]],
    'idle': [[]],
    'stop': [[]],
    'stop-stubborn': [['--prop', 'bench.logcat.main.ignore_term=1']],
}

# Figure -> (description, unit, least, most, counted exactly). A figure without a goal is printed without a verdict.
FIGURES = {
    'request.ratio': ('version request / echo of the same frames + 14 writes', 'x', None, 1.8, False),
    'request.whole_frames': ('  the same / echo in one read and one write + 14 writes', 'x'),
    'request.cpu_us': ('  CPU time, client and server', ' us'),
    'request.wall_us': ('  latency', ' us'),
    'request.calls': ('  system calls beside getpid and gettid', '', None, 25, True),
    'self_log.ratio': ('self-log line / bare write', 'x', None, 1.8, False),
    'self_log.spdlog': ('  / spdlog, flushed', 'x', None, 1, False),
    'self_log.syslog': ('  / syslog()', 'x', None, 1, False),
    'self_log.calls': ('  system calls', '', 1, 1, True),
    'self_log.allocations': ('  allocations in 200 lines', '', 0, 0, True),
    'self_log.instructions': ('  instructions, beside those of a bare write', ''),
    'self_log.line_us': ('  CPU time', ' us'),
    'file_size.raw': ('getFileSize, 100,000 files / raw getdents + stat', 'x', None, 1.1, False),
    'file_size.du': ('  / du -sbL', 'x', None, 0.8, False),
    'file_size.calls': ('  system calls per entry', '', None, 1.08, True),
    'oldest_run.ratio': ('findOldestLogDir, 10,000 runs / readdir + stat', 'x', None, 1.6, False),
    'move.ratio': ('move of 200 MiB in 10,000 files / the bare mv and a flush', 'x', None, 1.5, False),
    'move.calls': ('  system calls a file, beside the weighing', '', None, 4.05, True),
    'log.cat_wc': ('log, 1 GiB of six buffers, | wc -l / cat | wc', 'x', None, 1.5, False),
    'log.cat_lines': ('  / cat | wc -l', 'x'),
    'log.sort': ('  / sort -m | wc -l', 'x', None, 1, False),
    'log.peak': ('  memory', ' KiB', None, 16384, True),
    'log.view_s': ('view, 1 GiB of six buffers, CPU time', ' s'),
    'log.view_peak': ('  memory', ' KiB', None, 16384, True),
    'log.page': ('  size of the page', ' KiB', None, 2048, True),
    'log.range_ms': ('log, a minute of it', ' ms', None, 50, False),
    'log.grep': ('  / grep', 'x', None, 1, False),
    'touch.ratio': ('touch event to disk / poll + read + 4 writes', 'x', None, 1.15, False),
    'touch.calls': ('  system calls of an event', '', 6, 6, True),
    'touch.event_us': ('  CPU time', ' us'),
    'touch.bare_us': ('  CPU time of poll + read + 4 writes', ' us'),
    'memory.ratio': ('main + 12 idle workers / script with 12 loops, PSS', 'x', None, 0.6, False),
    'memory.shells': ('  the same / the script without the sleeps of its loops', 'x'),
    'memory.pss': ('  PSS of main + 12 idle workers', ' KiB'),
    'memory.worker_dirty': ('private dirty memory of a worker, the largest', ' KiB', None, 150, False),
    'memory.main_dirty': ('  of the main process', ' KiB'),
    'idle.main': ('wake-ups of the main process in 20 s', '', 19, 21, True),
    'idle.monitor': ('  of the size monitor', '', 3, 5, True),
    'stop.workers': ('workers and logcats of all types', '', 12, None, True),
    'stop.worker_ms': ('  stop, for each', ' ms', None, 5, False),
    'stop.stubborn_s': ('stop with a stubborn logcat', ' s', 3.0, 3.4, False),
}


def has_goal(name):
    return len(FIGURES[name]) == 5


def met(figure):
    least, most = FIGURES[figure['figure']][2:4]
    return (least is None or figure['value'] >= least) and (most is None or figure['value'] <= most)


def number(value, unit):
    return f'{value:.3g}{unit}' if value < 1000 else f'{value:.0f}{unit}'


def goal_text(name):
    unit, least, most = FIGURES[name][1:4]
    if least == most:
        return f'= {number(least, unit)}'
    if most is None:
        return f'>= {number(least, unit)}'
    return f'<= {number(most, unit)}' if least is None else f'{least:g} to {number(most, unit)}'


def run_row(build, row):
    """The figures and the points of plots that one run of a row prints."""
    lines = []
    for options in ROWS[row]:
        options = [option.replace('build/', f'{build}/', 1) for option in options]
        command = [build / 'phone/phone', '--timeout', '150', *options,
                   '--file', f'{build}/bench/bench={INSIDE}', '--', INSIDE, row]
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                              check=False)
        if done.returncode != 0:
            sys.exit(f'bench: row {row} failed with status {done.returncode}')
        lines += [json.loads(line) for line in done.stdout.splitlines()]
    return [one for one in lines if 'figure' in one], [one for one in lines if 'plot' in one]


def measure(build, row):
    """Runs a row until it meets its goals, or the last attempt is used up."""
    for attempt in range(1, ATTEMPTS + 1):
        start = time.monotonic()
        figures, points = run_row(build, row)
        missed = [one['figure'] for one in figures if has_goal(one['figure']) and not met(one)]
        print(f'-- {row}: {time.monotonic() - start:.1f} s'
              + (f', run {attempt} misses {", ".join(missed)}' if missed else ''), flush=True)
        if not missed or any(FIGURES[name][4] for name in missed):
            break
    for one in figures:
        name = one['figure']
        one.update({'what': FIGURES[name][0], 'unit': FIGURES[name][1], 'runs': attempt})
        if has_goal(name):
            one.update({'goal': goal_text(name), 'met': met(one)})
    return figures, points


def table(figures):
    width = max(len(one['what']) for one in figures)
    lines = [f'{"what":<{width}}  {"goal":>10}  {"figure":>9}  {"quartiles":>14}  verdict']
    for one in figures:
        spread = f'{one["low"]:.3g} .. {one["high"]:.3g}' if 'low' in one else ''
        verdict = '' if 'goal' not in one else 'met' if one['met'] else 'MISSED'
        if one['runs'] > 1 and verdict:
            verdict += f' (run {one["runs"]})'
        lines.append(f'{one["what"]:<{width}}  {one.get("goal", ""):>10}  '
                     f'{number(one["value"], one["unit"]):>9}  {spread:>14}  {verdict}'.rstrip())
    return '\n'.join(lines)


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
    figures.sort(key=lambda one: list(FIGURES).index(one['figure']))
    print(f'\n{table(figures)}')
    if record:
        write_results(figures, points, ROOT / 'bench/results.json', ROOT / 'docs/figures')
        text = PAGE.read_text()
        PAGE.write_text(re.sub(r'(?s)(<!-- table -->\n).*(?=<!-- end of table -->)',
                               lambda found: f'{found.group(1)}```\n{table(figures)}\n```\n', text))
    else:
        write_results(figures, points, build / 'bench/results.json', build / 'bench/figures')
    missed = [one['what'] for one in figures if not one.get('met', True)]
    if missed:
        sys.exit('bench: missed: ' + '; '.join(missed))


if __name__ == '__main__':
    main()
