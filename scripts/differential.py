#!/usr/bin/env python3
"""Compares what hivectl exports from real hives with what an independent reader makes of them, byte for byte.

  differential.py HIVECTL READER.py HIVE...

READER.py is a Python module with a class Hive(path, codepage) whose load() gives the root key, and a function
export(hive, key, prefix, binary_only, append) that gives (failure, bytes). Ends with "N passed, N failed".
"""
import importlib.util
import os
import pathlib
import subprocess
import sys
import tempfile

PREFIX = 'HKEY_LOCAL_MACHINE/SOFTWARE'


def load_reader(path):
    sys.dont_write_bytecode = True
    spec = importlib.util.spec_from_file_location('reader', path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def busiest_key(root):
    """A key some levels down with many values and subkeys, and its path in library notation."""
    best, queue = (0, root, ''), [(root, '')]
    while queue:
        key, path = queue.pop()
        for child in key.children:
            below = path + '/' + child.name.replace('/', '\\/')
            best = max(best, (len(child.values) + 3 * len(child.children), child, below), key=lambda x: x[0])
            queue.append((child, below))
    return best[1], best[2][1:]


def first_difference(left, right):
    for at, (a, b) in enumerate(zip(left, right)):
        if a != b:
            return at
    return min(len(left), len(right))


class Comparison:
    def __init__(self, tool, scratch):
        self.tool, self.scratch, self.passed, self.failed = tool, scratch, 0, 0

    def run(self, title, commands, wanted):
        out = os.path.join(self.scratch, 'out.reg')
        if os.path.exists(out):
            os.remove(out)
        why = ''
        for command in commands:
            done = subprocess.run([self.tool] + [out if word == 'OUT' else word for word in command],
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
            if done.returncode:
                why = 'exit code %d: %s' % (done.returncode, done.stderr.decode('utf-8', 'replace').strip())
            if 'OUT' not in command:
                pathlib.Path(out).write_bytes(done.stdout)
        got = pathlib.Path(out).read_bytes() if os.path.exists(out) else b''
        if not why and got != wanted:
            why = 'differs from byte %d on (%d bytes, should be %d)' % (
                first_difference(got, wanted), len(got), len(wanted))
        print('%s %s%s' % ('FAIL' if why else 'ok  ', title, ': ' + why if why else ''), flush=True)
        self.passed, self.failed = self.passed + (not why), self.failed + bool(why)


def compare(comparison, reader, path):
    hive = reader.Hive(path, 1)
    root = hive.load()
    name = os.path.basename(path)
    subkey, subpath = busiest_key(root)

    def text(key=root, prefix='', binary_only=False, append=False):
        failure, raw = reader.export(hive, key, prefix, binary_only, append)
        if failure:
            raise SystemExit('%s: the reader failed: %s' % (path, failure))
        return raw

    to_file = ['export', path, '-o', 'OUT']
    plain, binary = text(), text(binary_only=True)
    comparison.run(name, [to_file], plain)
    comparison.run(name + ' to the standard output', [['export', path]], plain)
    comparison.run(name + ' --unsafe', [to_file + ['--unsafe']], plain)
    comparison.run(name + ' --binary-only', [to_file + ['--binary-only']], binary)
    comparison.run(name + ' --binary-only --unsafe', [to_file + ['--binary-only', '--unsafe']], binary)
    comparison.run(name + ' --prefix', [to_file + ['--prefix', PREFIX]], text(prefix=PREFIX))
    comparison.run(name + ' of ' + subpath, [['export', path, subpath, '-o', 'OUT']], text(key=subkey))
    comparison.run(name + ' of ' + subpath + ' --prefix --unsafe',
                   [['export', path, subpath, '-o', 'OUT', '--prefix', PREFIX, '--unsafe']],
                   text(key=subkey, prefix=PREFIX))
    comparison.run(name + ' twice', [to_file, to_file], plain)
    comparison.run(name + ' twice, --append', [to_file, to_file + ['--append']], plain + text(append=True))


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory() as scratch:
        comparison = Comparison(sys.argv[1], scratch)
        for path in sys.argv[3:]:
            compare(comparison, load_reader(sys.argv[2]), path)
    print('%d passed, %d failed' % (comparison.passed, comparison.failed))
    sys.exit(1 if comparison.failed else 0)


if __name__ == '__main__':
    main()
