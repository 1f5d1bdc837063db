#!/usr/bin/env python3
"""Exports hives, imports the text into new hives of both versions and compares the trees.

  roundtrip.py HIVECTL READER.py HIVE...

READER.py is an independent program: "READER.py check FILE" fails on a fault, "READER.py diff A B" prints what differs.
Importing the same text once more must change nothing. Ends with "N passed, N failed".
"""
import os
import subprocess
import sys
import tempfile


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, errors='replace')
    return done.returncode, done.stdout + done.stderr


def round_trip(hivectl, reader, source, version, scratch):
    """None when all went well, else what did not."""
    hive, text = os.path.join(scratch, 'copy.hive'), os.path.join(scratch, 'text.reg')
    for path in (hive, text):
        if os.path.exists(path):
            os.remove(path)
    for command in (['export', source, '--binary-only', '-o', text], ['new', hive, '--format', version],
                    ['import', hive, text]):
        code, output = run(hivectl, *command)
        if code:
            return '%s: %s' % (command[0], output.strip())
    code, output = run(sys.executable, reader, 'diff', source, hive)
    if code or output:
        return 'the trees differ:\n' + output[:1000]
    code, output = run(sys.executable, reader, 'check', '-q', hive)
    if code:
        return 'faults:\n' + output[:1000]
    with open(hive, 'rb') as file:
        before = file.read()
    code, output = run(hivectl, 'import', hive, text)
    with open(hive, 'rb') as file:
        if code or file.read() != before:
            return 'the second import: ' + (output.strip() if code else 'changed the hive')
    return None


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    hivectl, reader, sources = sys.argv[1], sys.argv[2], sys.argv[3:]
    passed = failed = 0
    with tempfile.TemporaryDirectory() as scratch:
        for source in sources:
            for version in ('1.3', '1.5'):
                why = round_trip(hivectl, reader, source, version, scratch)
                print('%s %s into %s%s' % ('FAIL' if why else 'ok  ', os.path.basename(source), version,
                                           ': ' + why if why else ''), flush=True)
                passed, failed = passed + (not why), failed + bool(why)
    print('%d passed, %d failed' % (passed, failed))
    sys.exit(1 if failed else 0)


if __name__ == '__main__':
    main()
