#!/usr/bin/env python3
"""Runs the model tests and checks the files they leave with an independent checker and with hivectl.

  check_with.py MODEL_TESTS CHECKER.py HIVECTL

CHECKER.py is a program: "CHECKER.py check FILE" prints faults and notes and fails on a fault. Files named *-sound.hive
must give neither (an unreached cell is a note); files named *-trace.hive must give a fault. "HIVECTL check FILE" must
agree. Ends with "N passed, N failed".
"""
import pathlib
import os
import subprocess
import sys
import tempfile


def main():
    tests, checker, hivectl = sys.argv[1:]
    if not pathlib.Path(checker).exists():
        print('skipped: no checker\n0 passed, 0 failed')
        return 0
    passed = failed = 0
    with tempfile.TemporaryDirectory() as scratch:
        subprocess.run([tests, '--gtest_brief=1', '--gtest_filter=*Model*'], check=True,
                       env=dict(os.environ, HIVE_MODEL_FILES=scratch))
        files = sorted(pathlib.Path(scratch).glob('*.hive'))
        for file in files:
            result = subprocess.run([sys.executable, checker, 'check', str(file)], capture_output=True, text=True)
            lines = result.stdout.splitlines()
            faults = [line for line in lines if line.startswith(('FAULT', 'note'))]
            ours = subprocess.run([hivectl, 'check', '--all', str(file)], capture_output=True, text=True)
            found = [line for line in ours.stdout.splitlines() if line.startswith(('fault', 'note'))]
            is_trace = file.name.endswith('-trace.hive')
            good = lines and bool(faults) == is_trace and bool(found) == is_trace and ours.returncode == int(is_trace)
            passed, failed = passed + bool(good), failed + (not good)
            print('%s %s: %s' % ('ok' if good else 'FAILED', file.name, lines[-1] if lines else result.stderr))
            if not good:
                print('\n'.join(faults[:5] + found[:5]))
    if not files:
        print('FAILED: the tests left no file')
        failed += 1
    print('%d passed, %d failed' % (passed, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
