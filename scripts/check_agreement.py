#!/usr/bin/env python3
"""Compares what "hivectl check" says of hives with what an independent reader says: clean or not clean.

  check_agreement.py HIVECTL READER.py COUNT HIVE|DIRECTORY...

READER.py is a Python module with a class Hive(path, codepage) that has load() and the list faults; a reader that gives
up or takes too long has found a fault too. Looked at are the hives and COUNT damaged copies of them, which are the same
each time. Ends with "N passed, N failed"; differences that are known, because the
reader overlooks something, are counted apart.
"""
import collections
import importlib.util
import os
import pathlib
import random
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time

READER_SECONDS = 3  # of processor time: some rings take it longer than anybody can wait
SMALL = 200000  # bytes; larger hives take the reader long, so few copies are made of them
# What the reader does not look at, by how the finding reads. It follows back links from the second security record on
# only; takes no notice when a security record is something else as well; does not look into the last fragment of a
# value; and allows keys at twice the depth.
OVERLOOKED = ('back link', 'of data in a cell of', 'its security record at', 'levels below the root')


def load_reader(path):
    sys.dont_write_bytecode = True
    spec = importlib.util.spec_from_file_location('reader', path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class TooLong(Exception):
    pass


def stop(*_):
    raise TooLong


def reader_finds_clean(reader, path):
    """True, or why not."""
    signal.setitimer(signal.ITIMER_PROF, READER_SECONDS)
    try:
        hive = reader.Hive(path, 1)
        hive.load()
        return True if not hive.faults else hive.faults[0]
    except (Exception, SystemExit) as error:  # whatever it stumbles over is a fault
        return '%s: %s' % (type(error).__name__, error)
    finally:
        signal.setitimer(signal.ITIMER_PROF, 0)


# ---- damage

def used_cells(hive):
    cells, at, area = [], 4096, min(len(hive), 4096 + struct.unpack_from('<I', hive, 40)[0])
    while at + 32 <= area and hive[at:at + 4] == b'hbin':
        cell, at = at + 32, at + struct.unpack_from('<I', hive, at + 8)[0]
        while cell < at:
            size = struct.unpack_from('<i', hive, cell)[0]
            if size < 0:
                cells.append((cell, -size))
            cell += abs(size)
    return cells


def field(rng, cell, size):
    """A place in a cell that matters: the size, the fixed part, the name, an entry of a list."""
    return cell + rng.choice((0, rng.randrange(min(size, 12)), rng.randrange(min(size, 28)), rng.randrange(min(size, 96)),
                              rng.randrange(0, min(size, 256), 4)))


def damage(rng, hive, cells):
    hive = bytearray(hive)
    repair = rng.random() < 0.8
    for _ in range(rng.choice((1, 1, 1, 2, 3, 8))):
        cell, size = rng.choice(cells)
        at = field(rng, cell, size)
        other, other_size = rng.choice(cells)
        kind = rng.randrange(12)
        if kind == 0:                                          # a bit, anywhere that matters
            hive[at] ^= 1 << rng.randrange(8)
        elif kind == 1:
            hive[at] = rng.choice((0, 1, 255, rng.randrange(256)))
        elif kind == 2:                                        # a number becomes an extreme one, or a little different
            at -= at % 4
            old = struct.unpack_from('<I', hive, at)[0]
            new = rng.choice((0, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, old + 1, old - 1, old + 8, old - 8, old * 2))
            struct.pack_into('<I', hive, at, new & 0xFFFFFFFF)
        elif kind in (3, 4):                                   # a reference leads elsewhere
            struct.pack_into('<I', hive, at - at % 4, other - 4096)
        elif kind == 5:                                        # two cells exchange fields
            at2 = other + min(at - cell, other_size - 4)
            count = rng.choice((1, 2, 4, 8))
            hive[at:at + count], hive[at2:at2 + count] = hive[at2:at2 + count], hive[at:at + count]
        elif kind == 6:                                        # a cell is freed, or says another length
            length = rng.choice((size, -size + 8, -size - 8, -size // 2 // 8 * 8, rng.randrange(-200, 200)))
            struct.pack_into('<i', hive, cell, length)
        elif kind == 7:                                        # a count
            struct.pack_into('<H', hive, cell + 6, rng.choice((0, 1, 2, 3, 65535, rng.randrange(100))))
        elif kind == 8:                                        # a kind of record
            hive[cell + 4:cell + 6] = rng.choice((b'nk', b'vk', b'lf', b'lh', b'li', b'ri', b'db', b'sk'))
        elif kind == 9:                                        # an hbin's head
            hbin = 4096 + (at - 4096) // 4096 * 4096
            struct.pack_into('<I', hive, hbin + rng.choice((0, 4, 8, 28)), rng.choice((0, 4096, 8192, 4104, 12)))
        elif kind == 10:                                       # the base block
            struct.pack_into('<I', hive, 4 * rng.randrange(128), rng.choice((0, 1, 4096, rng.getrandbits(32))))
        elif rng.random() < 0.3:                               # the end
            del hive[rng.randrange(len(hive)):]
            break
    if repair and len(hive) >= 512:
        total = 0
        for (word,) in struct.iter_unpack('<I', hive[:508]):
            total ^= word
        struct.pack_into('<I', hive, 508, total)
    return bytes(hive)


# ---- comparison

class Comparison:
    def __init__(self, tool, reader, scratch):
        self.tool, self.reader, self.scratch = tool, reader, scratch
        self.results = collections.Counter()
        self.slowest = (0, '')

    def run(self, title, path):
        start = time.monotonic()
        done = subprocess.run([self.tool, 'check', '--all', path], capture_output=True, text=True, errors='replace',
                              check=False, timeout=60)
        self.slowest = max(self.slowest, (time.monotonic() - start, title))
        found = [line for line in done.stdout.splitlines() if line.startswith('fault')]
        theirs = reader_finds_clean(self.reader, path)
        ours = done.returncode == 0
        if done.returncode not in (0, 1) or (not ours and not found and 'is not a hive' not in done.stderr):
            outcome = 'failed'
        elif ours == (theirs is True):
            outcome = 'both clean' if ours else 'both not clean'
        elif not ours and all(any(text in line for text in OVERLOOKED) for line in found):
            outcome = 'overlooked by the reader'
        else:
            outcome = 'failed'
        self.results[outcome] += 1
        if outcome == 'overlooked by the reader':
            print('%s: %s' % (title, '; '.join(found)), flush=True)
        if outcome == 'failed':
            kept = os.path.join(tempfile.gettempdir(), 'check-differs-%d.hive' % self.results['failed'])
            shutil.copy(path, kept)
            print('FAIL %s: exit code %d, reader: %s; kept as %s' % (title, done.returncode, theirs, kept))
            print('\n'.join((found or done.stdout.splitlines())[:3] + done.stderr.splitlines()[-3:]), flush=True)
        return outcome


def hives_of(arguments):
    for path in map(pathlib.Path, arguments):
        yield from map(str, sorted(path.iterdir()) if path.is_dir() else [path])


def main():
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    tool, reader, count = sys.argv[1:4]
    signal.signal(signal.SIGPROF, stop)
    with tempfile.TemporaryDirectory() as scratch:
        comparison = Comparison(tool, load_reader(reader), scratch)
        intact = []
        for path in hives_of(sys.argv[4:]):
            hive = pathlib.Path(path).read_bytes()
            if comparison.run(os.path.basename(path), path) == 'both clean':
                intact.append((os.path.basename(path), hive, used_cells(hive)))
        small = [source for source in intact if len(source[1]) < SMALL]
        rng = random.Random(1)
        mutant = os.path.join(scratch, 'mutant')
        for number in range(int(count)):
            name, hive, cells = rng.choice(intact if number % 200 == 0 else small)
            pathlib.Path(mutant).write_bytes(damage(rng, hive, cells))
            comparison.run('mutant %d of %s' % (number, name), mutant)
    results = comparison.results
    for outcome, number in sorted(results.items()):
        print('%d %s' % (number, outcome))
    print('slowest check: %.0f ms, %s' % (1000 * comparison.slowest[0], comparison.slowest[1]))
    print('%d passed, %d failed' % (sum(results.values()) - results['failed'], results['failed']))
    sys.exit(1 if results['failed'] else 0)


if __name__ == '__main__':
    main()
