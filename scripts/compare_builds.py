#!/usr/bin/env python3
"""Runs hivectl as built for two machines: the same output, the same exit codes and the same files, byte for byte.

  compare_builds.py BIN OTHER_BIN

Each directory holds `hivectl` and `hivectl_makehives`; where there is `hivectl.run` (and so on) that is started instead.
Ends with "N passed, N failed".
"""
import os
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SAMPLE = os.path.join(ROOT, 'examples', 'sample.reg')
READING = (['info'], ['ls'], ['tree', '--values'], ['find', 'e'], ['sd', '--hex'], ['export'], ['export', '--binary-only'],
           ['info', '--json'], ['ls', '--json'], ['find', 'e', '--json'])
# A new hive's time stamps and the checksum over them: base block, first hbin, root key.
STAMPS = ((12, 20), (508, 512), (4096 + 20, 4096 + 28), (4096 + 32 + 8, 4096 + 32 + 16))


def program(directory, name):
    wrapped = os.path.join(directory, name + '.run')
    return os.path.abspath(wrapped if os.path.exists(wrapped) else os.path.join(directory, name))


def run(directory, work, name, *args):
    done = subprocess.run([program(directory, name), *args], cwd=work, capture_output=True)
    return done.returncode, done.stdout, done.stderr


def contents(work):
    result = {}
    for name in sorted(os.listdir(work)):
        with open(os.path.join(work, name), 'rb') as file:
            result[name] = file.read()
    return result


def big_text():
    """Keys for every form of list and values for every form of storage."""
    lines = ['Windows Registry Editor Version 5.00', '', '[\\Data\\\u00c9tat \u0142]', '']
    for key in range(3000):
        lines += ['[\\Many\\K%05d]' % (key * 7919 % 3000), '"n"=dword:%08x' % key, '']
    lines += ['[\\Data]']
    for size in (0, 1, 4, 5, 16344, 16345, 40000):
        lines.append('"%d"=hex:%s' % (size, ','.join('%02x' % (i * 7 & 255) for i in range(size))))
    return '\r\n'.join(lines + ['', '[-\\Many\\K00007]', '']).encode('utf-16')


def changing(version):
    hive = version + '.hive'
    return (['import', hive, SAMPLE], ['import', hive, 'big.reg'], ['create', hive, 'Software/New'], ['set', hive, 'Software/New', 'q', 'qword', '77'],
            ['set', hive, 'Software/New', 'm', 'multi-sz', 'one', 'tw\u00f6'], ['set', hive, 'Data', 'be', 'dword-be', '258'],
            ['rename', hive, 'Software/New', 'q', 'r\u0142'], ['delete', hive, 'Many/K00100', 'n'],
            ['delete', hive, 'Many/K00100'], ['move', hive, 'Many/K00200', 'Software/Moved'],
            ['export', hive, '-o', version + '.reg'], ['export', hive, '--binary-only', '-o', version + '.bin.reg'],
            ['info', hive, '--json'], ['sd', hive])


def main():
    first, second = sys.argv[1:3]
    counts = {True: 0, False: 0}

    def compare(label, one, other):
        counts[one == other] += 1
        if one != other:
            print('FAILED: %s differs' % label)

    with tempfile.TemporaryDirectory() as top:
        works = [os.path.join(top, name) for name in ('one', 'two')]
        for directory, work in zip((first, second), works):
            os.mkdir(work)
            run(directory, work, 'hivectl_makehives', work)
        compare('makehives', *map(contents, works))
        for hive in sorted(os.listdir(works[0])):
            for command in READING:
                args = [command[0], os.path.join(works[0], hive), *command[1:]]
                compare(' '.join(command) + ' of ' + hive,
                        *(run(directory, work, 'hivectl', *args) for directory, work in zip((first, second), works)))
        for version in ('1.3', '1.5'):
            name = version + '.hive'
            for directory, work in zip((first, second), works):
                run(directory, work, 'hivectl', 'new', name, '--format', version)
            masked = [bytearray(contents(work)[name]) for work in works]
            for hive in masked:
                for begin, end in STAMPS:
                    hive[begin:end] = bytes(end - begin)
            compare('new ' + version, *masked)
            shutil.copy(os.path.join(works[0], name), works[1])  # one time stamp for what follows
            for work in works:
                with open(os.path.join(work, 'big.reg'), 'wb') as file:
                    file.write(big_text())
            for command in changing(version):
                results = [run(directory, work, 'hivectl', *command) for directory, work in zip((first, second), works)]
                compare(' '.join(command), *results)
                if results[0][0] != 0:
                    compare('exit code of ' + ' '.join(command), results[0], 0)
                compare('the files after ' + ' '.join(command), *map(contents, works))
    print('%d passed, %d failed' % (counts[True], counts[False]))
    sys.exit(1 if counts[False] or not counts[True] else 0)


main()
