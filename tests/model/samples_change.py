#!/usr/bin/env python3
"""Changes copies of real hives all over and compares them, by an independent reader, with what must come out.

  samples_change.py HIVECTL READER.py HIVE...

READER.py is a program: "READER.py dump FILE" prints every key and value, one line each, and "READER.py check FILE"
fails on a fault. New keys, new, changed and removed values and removed branches come by one import of registry text;
then branches move. Ends with "N passed, N failed".
"""
import hashlib
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

SIZES = [1, 5, 100, 4096, 16344, 16345, 70000, 300000]
PLAIN = re.compile(r'[A-Za-z0-9 _.{}()-]+(/[A-Za-z0-9 _.{}()-]+)*')


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, encoding='utf-8', errors='surrogatepass')


def dump(reader, hive):
    """Path -> the lines of that key, by what stands behind the path: the name of a value, '' for the key."""
    tree = {}
    for line in run(sys.executable, reader, 'dump', hive).stdout.splitlines():
        path, end = json.JSONDecoder().raw_decode(line, 2)
        name, at = json.JSONDecoder().raw_decode(line, end + 1) if line[0] == 'V' else ('', end)
        tree.setdefault(path, {})[line[0] + name] = line[at:]
    return tree


class Changes:
    def __init__(self, tree):
        self.tree, self.random = tree, random.Random(1)
        self.text, self.moves = ['Windows Registry Editor Version 5.00\n'], []

    def some(self):
        """A path at random; small branches only, or a few changes would take everything."""
        while True:
            path = self.random.choice([p for p in self.tree if PLAIN.fullmatch(p)])
            if len(self.below(path)) < 50:
                return path

    def below(self, path):
        return [p for p in self.tree if p == path or p.startswith(path + '/')]

    def section(self, path, deletion=''):
        self.text.append('\n[%s%s]\n' % (deletion, path.replace('/', '\\')))

    def set(self, path, name, kind, size):
        data = self.random.randbytes(size)
        digits = ',\\\n  '.join(data[i:i + 1000].hex(',') for i in range(0, size, 1000))
        self.text.append('"%s"=hex(%x):%s\n' % (name, kind, digits))
        self.tree[path]['V' + name] = ' type=%d size=%d sha1=%s' % (kind, size, hashlib.sha1(data).hexdigest())

    def create(self, i):
        path = '%s/%s new key %d' % (os.path.dirname(self.some()), chr(65 + i * 7 % 26), i)
        path = path.lstrip('/')
        self.tree[path] = {'K': ''}
        self.section(path)
        self.set(path, 'grown by a test', 3, SIZES[i % 7 if i % 50 else 7])

    def change(self):
        path = self.some()
        self.section(path)
        names = [n[1:] for n in self.tree[path] if n[0] == 'V' and PLAIN.fullmatch(n[1:]) and '/' not in n]
        for name in names[:6]:
            if self.random.random() < 0.4:
                self.text.append('"%s"=-\n' % name)
                del self.tree[path]['V' + name]
            else:
                kind, size = map(int, re.match(r' type=(\d+) size=(\d+)', self.tree[path]['V' + name]).groups())
                self.set(path, name, kind, size + self.random.randrange(1, 40))

    def delete(self):
        path = self.some()
        self.section(path, '-')
        for old in self.below(path):
            del self.tree[old]

    def move(self, i):
        source, target = self.some(), os.path.dirname(self.some())
        if target == source or target.startswith(source + '/'):
            return
        target = ('%s/M moved %d' % (target, i)).lstrip('/')
        for old in self.below(source):
            self.tree[target + old[len(source):]] = self.tree.pop(old)
        self.moves.append((source, target))


def failure(tool, reader, sample, scratch):
    copy, text = os.path.join(scratch, 'copy'), os.path.join(scratch, 'text')
    shutil.copyfile(sample, copy)
    os.chmod(copy, 0o600)
    changes = Changes(dump(reader, sample))
    for i in range(300):
        changes.create(i)
        changes.change()
        if i % 3 == 0:
            changes.delete()
    for i in range(60):
        changes.move(i)
    with open(text, 'w', encoding='utf-8') as file:
        file.writelines(changes.text)
    for command in [('import', copy, text)] + [('move', copy, *paths) for paths in changes.moves]:
        done = run(tool, *command)
        if done.returncode:
            return done.stderr.strip() or 'exit code %d' % done.returncode
    check = run(sys.executable, reader, 'check', copy)
    if check.returncode:
        return check.stdout
    found = dump(reader, copy)
    wrong = sorted(p for p in changes.tree.keys() | found.keys() if changes.tree.get(p) != found.get(p))
    return '\n'.join('%s: %s, not %s' % (p, found.get(p), changes.tree.get(p)) for p in wrong[:5])


def main(tool, reader, *samples):
    failed = 0
    for sample in samples:
        with tempfile.TemporaryDirectory() as scratch:
            reason = failure(tool, reader, sample, scratch)
        print('FAILED' if reason else 'ok', os.path.basename(sample), reason)
        failed += bool(reason)
    print('%d passed, %d failed' % (len(samples) - failed, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
