#!/usr/bin/env python3
"""bench.py HIVE-BENCH [options]: runs each row of the benchmark in processes of its own and prints one table.

The stores take turns, run by run, so that what else goes on on the machine meets them all. A cell is the best of
its runs, wall time and CPU time each.
"""
import argparse
import json
import os
import pathlib
import platform
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
STORES = ('hive', 'sqlite', 'lmdb')
ROWS = ('build', 'lookup', 'walk', 'change', 'export', 'import')
TEXT_ROWS = ('export', 'import')
TITLES = {'build': '1 build, flush, sync', 'lookup': '2 open, look up', 'walk': '3 walk all', 'change': '4 change',
          'export': '5 export text', 'import': '5 import text', 'open': '6 open, read one'}


def arguments():
    parser = argparse.ArgumentParser(description='Runs hive-bench and prints one table.')
    parser.add_argument('program', type=pathlib.Path)
    parser.add_argument('--keys', default='100000,1000000', help='sizes of the tree (default: %(default)s)')
    parser.add_argument('--big', type=int, default=1 << 30, help='bytes of the file of row 6, 0 to leave it out')
    parser.add_argument('--rows', default=','.join(ROWS), help='rows 1 to 5 to run (default: %(default)s)')
    parser.add_argument('--stores', default=','.join(STORES), help='stores to run (default: %(default)s)')
    parser.add_argument('--runs', type=int, default=3, help='runs of each cell (default: %(default)s)')
    parser.add_argument('--dir', type=pathlib.Path, default=ROOT / 'build' / 'bench',
                        help='where files are made and removed afterwards (default: %(default)s)')
    parser.add_argument('--json', type=pathlib.Path, help='a file for the figures')
    return parser.parse_args()


class Bench:
    """The program and the best of what its runs told, by row, store and size."""

    def __init__(self, options):
        self.options = options
        self.best = {}

    def run(self, row, store, size, count=True):
        which = f'--big={size}' if row == 'open' else f'--keys={size}'
        done = subprocess.run([self.options.program, f'--dir={self.options.dir}', which,
                               f'--benchmark_filter=^{row}/{store}/{size}/', '--benchmark_format=json'],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        try:
            told = json.loads(done.stdout)['benchmarks'][0]
        except (ValueError, LookupError):
            return  # this program was built without the store, or the store has no such row
        if done.returncode or 'error_message' in told:
            sys.exit(f'{row}/{store}/{size} failed: {told.get("error_message", done.stderr)}')
        told['wall'], told['cpu'] = told['real_time'] / 1000, told['cpu_time'] / 1000
        if count:
            self.keep((row, store, size), told)

    def keep(self, name, told):
        old = self.best.setdefault(name, told)
        for figure in ('wall', 'cpu', 'peakKiB'):
            if figure in told:
                old[figure] = min(old[figure], told[figure])

    def convert(self, size):
        """The time iconv takes for the text of that size's tree, both ways."""
        text = self.options.dir / f'tree-{size}.reg'
        narrow, wide = text.with_suffix('.utf8'), text.with_suffix('.utf16')
        for row, source, target, codes in (('import', text, narrow, ('UTF-16LE', 'UTF-8')),
                                           ('export', narrow, wide, ('UTF-8', 'UTF-16LE'))):
            with open(target, 'wb') as out:
                begin, before = time.monotonic(), os.times()
                subprocess.run(['iconv', '-f', codes[0], '-t', codes[1], source], stdout=out, check=True)
                wall, after = time.monotonic() - begin, os.times()
            cpu = after.children_user + after.children_system - before.children_user - before.children_system
            self.keep((row, 'iconv', size), {'wall': wall, 'cpu': cpu})
        if wide.read_bytes() != text.read_bytes():
            sys.exit('iconv changes the text')
        narrow.unlink()
        wide.unlink()

    def run_all(self):
        options = self.options
        stores = options.stores.split(',')
        rows = options.rows.split(',')
        for size in [int(size) for size in options.keys.split(',') if size]:
            for row in rows:
                for _ in range(options.runs):
                    for store in stores:
                        note(f'{row} {store} {size}')
                        self.run(row, store, size)
            if 'import' in rows:
                for _ in range(options.runs):
                    self.convert(size)
            shutil.rmtree(options.dir)
            options.dir.mkdir()
        for store in stores if options.big else ():
            note(f'open {store} {options.big}')
            self.run('open', store, options.big, count=False)  # makes the file
            for _ in range(options.runs):
                self.run('open', store, options.big)


def note(text):
    if sys.stderr.isatty():
        print('\r\033[K' + text, end='', file=sys.stderr, flush=True)


def seconds(figures):
    if not figures:
        return '-'
    return ' / '.join('%.3g s' % value if value >= 0.1 else '%.3g ms' % (value * 1000)
                      for value in (figures['wall'], figures['cpu']))


def ratio(theirs, ours):
    if not theirs or not ours:
        return '-'
    return ' / '.join('%.2f' % (theirs[figure] / ours[figure]) for figure in ('wall', 'cpu'))


def mebibytes(figures):
    return '%.1f' % (figures['fileBytes'] / (1 << 20)) if figures else '-'


def print_table(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    lines.insert(1, ['-' * width for width in widths])
    for line in lines:
        print('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(line, widths)) + ' |')
    print()


def print_results(bench):
    best = bench.best
    sizes = sorted({size for row, _, size in best if row != 'open'})
    lines = [['row', 'keys', 'hive', 'SQLite', 'LMDB', 'SQLite : hive', 'LMDB : hive', 'MiB hive, SQLite, LMDB']]
    for size in [*sizes, *sorted({size for row, _, size in best if row == 'open'})]:
        for row in TITLES:
            cells = [best.get((row, store, size)) for store in STORES]
            if not any(cells):
                continue
            lines.append([TITLES[row], '-' if row == 'open' else f'{size:,}', *map(seconds, cells),
                          ratio(cells[1], cells[0]), ratio(cells[2], cells[0]), ', '.join(map(mebibytes, cells))])
    print('Times are wall / CPU; ratios above 1 say that the hive is faster.\n')
    print_table(lines)
    print_text_speed(best, sizes)
    print_growth(best, sizes)
    for (row, store, size), figures in sorted(best.items()):
        if row == 'open':
            print(f'row 6, {size / (1 << 30):.2f} GiB wanted, {store}: peak memory {figures["peakKiB"] / 1024:.1f} MiB')


def print_text_speed(best, sizes):
    lines = [['text', 'keys', 'MB', 'hive MB/s', 'SQLite MB/s', 'iconv MB/s', 'hive : iconv']]
    for size in sizes:
        for row in TEXT_ROWS:
            ours = best.get((row, 'hive', size))
            if not ours:
                continue
            text = ours['operations'] / 1e6
            others = [best.get((row, store, size)) for store in ('hive', 'sqlite', 'iconv')]
            speeds = [' / '.join('%.0f' % (text / cell[figure]) for figure in ('wall', 'cpu')) if cell else '-'
                      for cell in others]
            lines.append([row, f'{size:,}', '%.1f' % text, *speeds, ratio(others[2], ours)])
    if len(lines) > 1:
        print_table(lines)


def print_growth(best, sizes):
    if len(sizes) < 2:
        return
    small, large = sizes[0], sizes[-1]
    lines = [[f'growth per operation, {small:,} to {large:,} keys', *STORES]]
    for row in TITLES:
        cells = []
        for store in STORES:
            ends = [best.get((row, store, size)) for size in (small, large)]
            cells.append('-' if not all(ends) else ' / '.join(
                '%.2f' % ((ends[1][figure] / ends[1]['operations']) / (ends[0][figure] / ends[0]['operations']))
                for figure in ('wall', 'cpu')))
        if any(cell != '-' for cell in cells):
            lines.append([TITLES[row], *cells])
    print_table(lines)


def main():
    options = arguments()
    shutil.rmtree(options.dir, ignore_errors=True)
    options.dir.mkdir(parents=True)
    bench = Bench(options)
    try:
        bench.run_all()
    finally:
        shutil.rmtree(options.dir, ignore_errors=True)
        note('')
    print(f'{platform.machine()}, {os.cpu_count()} processors, load {os.getloadavg()[0]:.1f}, '
          f'best of {options.runs} runs')
    print_results(bench)
    if options.json:
        options.json.write_text(json.dumps([{'row': row, 'store': store, 'size': size, **figures}
                                            for (row, store, size), figures in bench.best.items()], indent=1))


if __name__ == '__main__':
    main()
