#!/usr/bin/env python3
"""Changes values of copies of real hives and compares them, by an independent reader, with what must come out.

  samples_write.py SAMPLES_WRITE READER.py HIVE...

READER.py is a program: "READER.py dump FILE" prints every key and value, one line each, and "READER.py check FILE"
finds no structural fault. Ends with "N passed, N failed".
"""
import hashlib
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile


def pattern(count, seed):
    """The bytes of patternBytes in tests/support."""
    state, out = (seed * 2654435761 + 1) & 0xFFFFFFFF, bytearray(count)
    for i in range(count):
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        out[i] = state >> 24
    return bytes(out)


def text(digits):
    return '' if digits == '-' else bytes.fromhex(digits).decode('utf-8', 'surrogatepass')


def run(*command):
    return subprocess.run(command, capture_output=True, text=True)


def intended(before, actions):
    """The lines of the dump after the actions."""
    lines = {}
    for line in before:
        kind = line[0]
        end = len(line) if kind == 'K' else line.index(' type=')
        lines[line[:end]] = line
    for action in actions:
        verb, key, name, *rest = action.split()
        head = 'V %s %s' % (json.dumps(text(key)), json.dumps(text(name)))
        if verb == 'delete':
            del lines[head]
        else:
            kind, size, seed = map(int, rest)
            sha1 = hashlib.sha1(pattern(size, seed)).hexdigest()
            lines[head] = '%s type=%d size=%d sha1=%s' % (head, kind, size, sha1)
    return set(lines.values())


def failure(tool, reader, sample, scratch):
    copy = pathlib.Path(scratch) / pathlib.Path(sample).name
    shutil.copyfile(sample, copy)
    before = run(sys.executable, reader, 'dump', sample).stdout.splitlines()
    done = run(tool, str(copy))
    if done.returncode:
        return done.stderr.strip() or 'exit code %d' % done.returncode
    actions = done.stdout.splitlines()
    if len(actions) < 10:
        return 'only %d changes' % len(actions)
    after = set(run(sys.executable, reader, 'dump', str(copy)).stdout.splitlines())
    wrong = sorted(intended(before, actions) ^ after)
    if wrong:
        return '%d lines differ, the first: %s' % (len(wrong), wrong[0][:200])
    check = run(sys.executable, reader, 'check', str(copy))
    if check.returncode:
        return check.stdout.splitlines()[0]
    print('%s: %d changes, file from %d to %d bytes' % (
        copy.name, len(actions), pathlib.Path(sample).stat().st_size, copy.stat().st_size))
    return None


def main():
    tool, reader, *samples = sys.argv[1:]
    if not pathlib.Path(reader).exists() or not samples:
        print('skipped: no reader or no sample\n0 passed, 0 failed')
        return 0
    failed = 0
    with tempfile.TemporaryDirectory() as scratch:
        for sample in samples:
            why = failure(tool, reader, sample, scratch)
            if why:
                failed += 1
                print('FAILED %s: %s' % (pathlib.Path(sample).name, why))
    print('%d passed, %d failed' % (len(samples) - failed, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
