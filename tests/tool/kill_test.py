#!/usr/bin/env python3
"""Kills changing commands at random moments: kill_test.py HIVECTL

Whatever the moment, the hive must then be the old one byte for byte or hold exactly what an undisturbed run
leaves. HIVE_KILLS is the least number of kills (default 30), HIVE_KILL_SEED makes a run repeatable.
"""
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HIVECTL = sys.argv[1]
KILLS = int(os.environ.get('HIVE_KILLS', '30'))
SEED = int(os.environ.get('HIVE_KILL_SEED', time.time_ns() % 2**32))
HEADER = 'Windows Registry Editor Version 5.00\r\n\r\n'
TIMED_RUNS = 5


def tool(*args):
    return subprocess.run([HIVECTL, *args], check=True, stdout=subprocess.PIPE).stdout


def read(path):
    with open(path, 'rb') as file:
        return file.read()


def write(path, data):
    with open(path, 'wb') as file:
        file.write(data)


def import_text(keys, values, stem):
    lines = []
    for key in range(keys):
        lines.append('[\\%s\\Key %d]\r\n' % (stem, key))
        lines += ['"value %d"="%s %d %d"\r\n' % (i, stem, key, i) for i in range(values)]
    return (HEADER + ''.join(lines)).encode()


class Change:
    """One changing command, to be run over and over on copies of one hive."""

    def __init__(self, work, hive, command):
        self.copy = os.path.join(work, 'copy', 'h.hive')
        self.hive = hive
        self.command = [HIVECTL, command[0], self.copy, *command[1:]]
        self.input = command[-1] == '-' and os.path.join(work, 'input')
        self.old = read(hive)
        self.old_text = tool('export', hive, '--binary-only')
        times = [self.undisturbed() for _ in range(TIMED_RUNS)]
        self.run_time = statistics.median(times)
        self.new_text = tool('export', self.copy, '--binary-only')
        assert self.new_text != self.old_text

    def start(self):
        directory = os.path.dirname(self.copy)
        shutil.rmtree(directory, ignore_errors=True)
        os.mkdir(directory)
        shutil.copyfile(self.hive, self.copy)
        with open(self.input or os.devnull, 'rb') as source:
            return subprocess.Popen(self.command, stdin=source, stdout=subprocess.DEVNULL)

    def undisturbed(self):
        begin = time.monotonic()
        assert self.start().wait() == 0
        return time.monotonic() - begin

    def kill(self, delay):
        """Which hive was left, "old" or "new", and whether the command was killed at all."""
        process = self.start()
        time.sleep(delay)
        process.kill()
        killed = process.wait() != 0
        if read(self.copy) == self.old:
            outcome = 'old'
            assert killed, 'the command did nothing and says it did'
        else:
            assert tool('export', self.copy, '--binary-only') == self.new_text, 'neither the old hive nor the new'
            outcome = 'new'
        # What was killed hinders nobody: neither a lock nor its unfinished copy.
        with open(self.input or os.devnull, 'rb') as source:
            subprocess.run(self.command, check=True, stdin=source, stdout=subprocess.DEVNULL)
        assert tool('export', self.copy, '--binary-only') == self.new_text
        return outcome, killed


def kill_often(change, kills):
    """At least so many kills, and more until each hive was left once: old, new, and runs that had ended."""
    outcomes = {('old', True): 0, ('new', True): 0, ('new', False): 0}
    for _ in range(20 * kills):
        old, new, late = outcomes.values()
        if old + new >= kills and old and new:
            break
        outcomes[change.kill(random.uniform(0, change.run_time))] += 1
    return tuple(outcomes.values())


def main():
    random.seed(SEED)
    print('seed', SEED)
    with tempfile.TemporaryDirectory() as work:
        hive, text = os.path.join(work, 'h.hive'), os.path.join(work, 'more.reg')
        tool('new', hive)
        write(text, import_text(100, 10, 'old'))
        tool('import', hive, text)
        write(text, import_text(500, 10, 'new'))
        write(os.path.join(work, 'input'), bytes(i * 7 % 251 for i in range(1 << 20)))
        faults = []
        for command in ['set', '/old/Key 7', 'value 5', 'binary', '-'], ['import', text]:
            change = Change(work, hive, command)
            old, new, late = kill_often(change, KILLS // 2)
            print('%s, %.0f ms undisturbed: %d kills, %d left the old hive, %d the new; %d came too late'
                  % (command[0], change.run_time * 1000, old + new, old, new, late), flush=True)
            if not old or not new:
                faults.append('%s: the kills met one hive only; they show nothing' % command[0])
    sys.exit('\n'.join(faults) or 0)


if __name__ == '__main__':
    main()
