#!/usr/bin/env python3
"""samples_keys.py PROGRAM CHECKER HIVE...: changes a copy of each hive with PROGRAM (samples_keys) and lets
CHECKER (a hive reader with the commands check and dump) say whether the copy is sound and holds exactly what
the changes make of the original's keys and values. Last line: "N passed, N failed"."""
import json
import os
import shutil
import subprocess
import sys
import tempfile


def dump(checker, hive):
    """Path (as dumped) -> the lines of that key, without the path."""
    tree = {}
    text = subprocess.run([sys.executable, checker, 'dump', hive], check=True, capture_output=True, text=True).stdout
    for line in text.splitlines():
        path, end = json.JSONDecoder().raw_decode(line, 2)
        tree.setdefault(path, []).append(line[:2] + line[end:])
    return {path: sorted(lines) for path, lines in tree.items()}


def replay(tree, changes):
    """Applies the list of changes to a dumped tree."""
    under = lambda path, top: path == top or path.startswith(top + '/')
    names = {path.upper(): path for path in tree}
    for kind, path, *to in (line.rstrip('\n').split('\t') for line in changes):
        path = names.get(path.upper(), path)
        if kind == 'create':
            tree[path] = ['K ']
            names[path.upper()] = path
            continue
        for old in [p for p in tree if under(p, path)]:
            lines = tree.pop(old)
            del names[old.upper()]
            if kind == 'move':
                new = to[0] + old[len(path):]
                tree[new] = lines
                names[new.upper()] = new
    return tree


def run(program, checker, hive, directory):
    copy, changes = os.path.join(directory, 'copy'), os.path.join(directory, 'changes')
    shutil.copyfile(hive, copy)
    os.chmod(copy, 0o600)
    subprocess.run([program, copy, changes], check=True)
    check = subprocess.run([sys.executable, checker, 'check', copy], capture_output=True, text=True)
    print(check.stdout.splitlines()[-1])
    with open(changes, encoding='utf-8') as lines:
        lines = list(lines)
    wanted, found = replay(dump(checker, hive), lines), dump(checker, copy)
    wrong = sorted(p for p in wanted.keys() | found.keys() if wanted.get(p) != found.get(p))
    for path in wrong[:10]:
        print('  ', path, wanted.get(path), found.get(path))
    return check.returncode == 0 and not wrong and len(lines) == 700


def main(program, checker, *hives):
    passed = 0
    for hive in hives:
        with tempfile.TemporaryDirectory() as directory:
            good = run(program, checker, hive, directory)
        print(os.path.basename(hive), 'ok' if good else 'FAILED')
        passed += good
    print('%d passed, %d failed' % (passed, len(hives) - passed))
    sys.exit(passed != len(hives))


main(*sys.argv[1:])
