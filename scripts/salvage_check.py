#!/usr/bin/env python3
"""Damages hives in many ways and checks that `hivectl export --salvage` writes all that an independent reader finds.

  salvage_check.py HIVECTL READER.py [--count N] [--first N] [--largest BYTES] HIVE...

READER.py is a Python module with a class Hive(path, codepage) whose load() gives the root key. Every hive is first
exported as it is, which must give the bytes of the plain export; then N damaged copies are. Copy number i is the same in
every run (--first starts at another number). HIVE may be a directory of hives; those above --largest bytes are left out
(default 1 MiB: the reader is slow). Ends with "N passed, N failed".
"""
import argparse
import importlib.util
import os
import pathlib
import random
import re
import struct
import subprocess
import sys
import tempfile

LATIN1, ASCII = 1, 0
CODEPAGES = {LATIN1: 'latin1', ASCII: 'ascii'}


def load_reader(path):
    sys.dont_write_bytecode = True
    spec = importlib.util.spec_from_file_location('reader', path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)

    class FirstSight(module.Hive):
        """Reads each key once, where it is met first: lists that go round would have it read without end."""

        def key(self, offset, parent_offset, depth=0):
            seen = self.__dict__.setdefault('seen', set())
            if offset in seen:
                return None
            seen.add(offset)
            return super().key(offset, parent_offset, depth)

    return FirstSight


# ---- damage

class Damage:
    """Chooses the changes to one hive. What is changed must matter: mostly heads of records, lists, heads of hbins."""

    def __init__(self, reader, path):
        self.data = pathlib.Path(path).read_bytes()
        hive = reader(path, LATIN1)
        hive.load()
        self.cells = sorted(offset for offset, size in hive.cells.items() if size < 0)
        self.records = [o for o in self.cells if self.data[4100 + o:4102 + o] in
                        (b'nk', b'vk', b'lf', b'lh', b'li', b'ri', b'db')]
        self.hbins = [at for at, _ in hive.hbins]

    def copy(self, number):
        rng = random.Random(number)
        data = bytearray(self.data)
        kind = rng.choice(('byte', 'byte', 'byte', 'bytes', 'size', 'list', 'page', 'sector', 'cut', 'base', 'hbin', 'swap'))
        getattr(self, kind)(rng, data)
        return kind, bytes(data)

    def place(self, rng):
        return 4096 + rng.choice(self.records if rng.random() < 0.7 else self.cells) + rng.randrange(32)

    def byte(self, rng, data):
        at = min(self.place(rng), len(data) - 1)
        data[at] = rng.choice((0, 1, 255, 127, 128, data[at] ^ 1 << rng.randrange(8), rng.randrange(256)))

    def bytes(self, rng, data):
        for _ in range(rng.randrange(2, 30)):
            self.byte(rng, data)

    def size(self, rng, data):
        at = 4096 + rng.choice(self.cells)
        old = struct.unpack_from('<i', data, at)[0]
        struct.pack_into('<i', data, at, rng.choice((0, -old, old - 8, min(old + 8, -8), old + 1, -8, -2 ** 31, 2 ** 31 - 1)))

    def list(self, rng, data):
        lists = [o for o in self.records if data[4100 + o:4102 + o] in (b'lf', b'lh', b'li', b'ri')]
        at = 4096 + rng.choice(lists or self.records)
        if rng.random() < 0.5:
            struct.pack_into('<H', data, at + 6, rng.choice((0, 1, 2, 3, 400, 65535)))
        else:
            struct.pack_into('<I', data, at + 8, rng.choice(self.records))

    def page(self, rng, data):
        at = 4096 * rng.randrange(len(data) // 4096)
        data[at:at + 4096] = bytes(4096)

    def sector(self, rng, data):
        at = 512 * rng.randrange(len(data) // 512)
        data[at:at + 512] = rng.randbytes(512) if rng.random() < 0.5 else bytes(512)

    def cut(self, rng, data):
        del data[rng.randrange(4200, len(data)) // rng.choice((1, 4096)):]
        if len(data) < 4096:
            del data[:]
            data += self.data[:4096 * rng.randrange(1, len(self.data) // 4096)]

    def base(self, rng, data):
        at = rng.choice((508, 20, 24, 36, 40, 0)) + rng.randrange(4)
        data[at] = rng.randrange(256)

    def hbin(self, rng, data):
        data[4096 + rng.choice(self.hbins) + rng.randrange(12)] = rng.randrange(256)

    def swap(self, rng, data):
        a, b = (4096 + rng.choice(self.records) for _ in range(2))
        data[a + 8:a + 40], data[b + 8:b + 40] = data[b + 8:b + 40], data[a + 8:a + 40]


# ---- what must be in the text

def stored_name(thing):
    """The name as it must stand in the text; None for a placeholder of what could not be read."""
    if thing.name is not None:
        return thing.name
    raw = getattr(thing, 'name_raw', b'')
    return raw.decode('latin-1') if raw else None


def binary(kind, data):
    pairs = ['%02x' % byte for byte in data]
    lines = [','.join(pairs[i:i + 25]) for i in range(0, len(pairs), 25)]
    return 'hex(%x):' % kind + ',\\\r\n  '.join(lines)


def wanted(root):
    """(record, section, [entry, is it whole]) of all keys the reader can read."""
    stack = [(root, '\\')]
    while stack:
        key, section = stack.pop()
        entries = []
        for value in key.values:
            name = stored_name(value)
            data = value.data()
            if name is None or (value.size and not data) or len(set(value.extents)) < len(value.extents):
                continue
            label = '"%s"=' % name if name else '@='
            whole = len(data) == value.size
            if not whole and len(value.extents) > 1:
                data = b''  # the reader joins what is left of the pieces; the text keeps them in their places
            entries.append((label + binary(value.type, data), whole))
        yield key.offset, section, entries
        for child in reversed(key.children):
            name = stored_name(child)
            if name is not None:
                stack.append((child, section + '\\' + name))


class Text:
    """The exported text, cut into sections."""

    def __init__(self, raw):
        self.text = raw.decode('utf-16-le', 'surrogatepass')
        self.sections = {}
        for part in ('\r\n\r\n' + self.text).split('\r\n\r\n[')[1:]:
            name, _, body = part.partition(']\r\n')
            self.sections[name] = self.sections.get(name, '') + '\r\n' + body + '\r\n'

    def missing(self, section, entries):
        body = self.sections.get(section)
        if body is None:
            if '[%s]\r\n' % section not in self.text:
                return 'no section [%s]' % section
            body = self.text  # a name with line breaks cuts sections apart
        for entry, whole in entries:
            if '\r\n' + entry + ('\r\n' if whole else '') not in body and '\n' not in entry.partition('=')[0]:
                return 'in [%s] not %s' % (section, entry[:200])
        return None


class Check:
    def __init__(self, tool, reader, scratch):
        self.tool, self.reader, self.passed, self.failed = tool, reader, 0, 0
        self.hive, self.out = os.path.join(scratch, 'hive'), os.path.join(scratch, 'out.reg')
        self.found = {'lost': 0, 'doubtful': 0, 'note': 0, 'unreadable to the reader': 0}

    def report(self, title, why):
        if why:
            print('FAIL %s: %s' % (title, why), flush=True)
        self.passed, self.failed = self.passed + (not why), self.failed + bool(why)

    def export(self, path, *args):
        pathlib.Path(self.out).unlink(missing_ok=True)
        done = subprocess.run([self.tool, 'export', path, '-o', self.out, *args], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, check=False, timeout=120)
        raw = pathlib.Path(self.out).read_bytes() if os.path.exists(self.out) else None
        return done.returncode, raw, done.stderr.decode('utf-8', 'replace').splitlines()

    def intact(self, path):
        for form in [], ['--binary-only']:
            plain, salvaged = self.export(path, *form), self.export(path, '--salvage', *form)
            why = '' if plain[0] else salvaged[0] and 'exit code %d: %s' % (salvaged[0], salvaged[2])
            if not plain[0] and plain[1] != salvaged[1]:
                why = 'differs from the plain export'
            self.report('%s as it is %s' % (path, form), why)

    def told(self, code, lines):
        """Whether the lines, the count and the exit code agree."""
        count = re.fullmatch(r'hivectl: export: wrote \d+ keys? and \d+ values?, (?:(\d+) lost, (\d+) doubtful|nothing was lost)',
                             lines[-1] if lines else '')
        kinds = [line.split(': ')[2] for line in lines[:-1]]
        for kind in kinds:
            self.found[kind] += 1
        if not count or any(kind not in ('lost', 'doubtful', 'note') for kind in kinds):
            return 'says %s' % lines[-3:]
        if (kinds.count('lost'), kinds.count('doubtful')) != (int(count[1] or 0), int(count[2] or 0)):
            return 'counts wrongly'
        return '' if code == bool(count[1]) else 'exit code %d' % code

    def damaged(self, number, kind, data, intact_keys):
        pathlib.Path(self.hive).write_bytes(data)
        codepage = ASCII if number % 5 == 0 else LATIN1
        try:
            hive = self.reader(self.hive, codepage)
            root = hive.load()
        except (SystemExit, struct.error):
            root = None
        code, raw, lines = self.export(self.hive, '--salvage', '--binary-only', '--codepage', CODEPAGES[codepage])
        if raw is None:
            self.found['unreadable to the reader'] += root is None
            return '' if root is None and code == 1 and 'nothing was written' in lines[-1] else 'exit code %d: %s' % (code, lines)
        why = self.told(code, lines)
        text = Text(raw)
        # Fields swapped between two keys can make either whole and the other childless: nothing in the file tells that.
        if not why and code == 0 and kind != 'swap' and codepage == LATIN1 and text.text.count('\r\n\r\n[') < intact_keys:
            why = 'keys are gone and nobody told'
        # Damage may make a subkey the root. The reader goes on from there, the tool from the root above it.
        taken = re.search(r'taken is the key at (0x[0-9a-f]+)', '\n'.join(lines))
        if taken and root:
            hive = self.reader(self.hive, codepage)
            hive.root = int(taken[1], 16)
            root = hive.load()
        if root is None:
            self.found['unreadable to the reader'] += 1
            return why
        # A key that damage makes reachable twice may have been met elsewhere first.
        elsewhere = {int(m[1], 16) for m in (re.search(r'record (0x[0-9a-f]+): subkey is written already', line) for line in lines) if m}
        moved = None
        for offset, section, entries in wanted(root):
            missing = text.missing(section, entries)
            if missing and (offset in elsewhere or moved and section.startswith(moved + '\\')):
                moved = moved or section
                continue
            if missing and not why:
                why = '%s (record 0x%x)' % (missing, offset)
        return why


def hives(paths, largest):
    for path in paths:
        inside = [path] if os.path.isfile(path) else [os.path.join(path, name) for name in sorted(os.listdir(path))]
        yield from (one for one in inside if os.path.isfile(one) and 4096 < os.path.getsize(one) <= largest)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('tool')
    parser.add_argument('reader')
    parser.add_argument('--count', type=int, default=200)
    parser.add_argument('--first', type=int, default=0)
    parser.add_argument('--largest', type=int, default=1 << 20)
    parser.add_argument('hives', nargs='+')
    args = parser.parse_args()
    reader = load_reader(args.reader)
    with tempfile.TemporaryDirectory() as scratch:
        check, subjects = Check(args.tool, reader, scratch), []
        for path in hives(args.hives, args.largest):
            check.intact(path)
            try:
                damage = Damage(reader, path)
            except (SystemExit, struct.error):
                continue  # damaged from the start beyond what the reader takes
            if damage.records:
                plain = check.export(path, '--salvage')
                subjects.append((path, damage, plain[1].decode('utf-16-le', 'surrogatepass').count('\r\n\r\n[')))
        for number in range(args.first, args.first + args.count):
            path, damage, keys = subjects[number % len(subjects)]
            kind, data = damage.copy(number)
            check.report('copy %d (%s of %s)' % (number, kind, os.path.basename(path)), check.damaged(number, kind, data, keys))
    print(', '.join('%s: %d' % found for found in check.found.items()))
    print('%d passed, %d failed' % (check.passed, check.failed))
    sys.exit(1 if check.failed or not subjects else 0)


if __name__ == '__main__':
    main()
