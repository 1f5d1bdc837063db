#!/usr/bin/env python3
"""Kills changing commands at random moments: kill_test.py HIVECTL

Whatever the moment, the hive must then be the old one byte for byte or hold exactly what an undisturbed run
leaves (of `new`: there is none, or a whole one), and the next change must take away what the killed run left
beside it. HIVE_KILLS is the least number of kills of each command (default 8), HIVE_KILL_SEED makes a run
repeatable.
"""
import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HIVECTL = sys.argv[1]
KILLS = int(os.environ.get('HIVE_KILLS', '8'))
SEED = int(os.environ.get('HIVE_KILL_SEED', time.time_ns() % 2**32))
HEADER = 'Windows Registry Editor Version 5.00\r\n\r\n'
TIMED_RUNS = 5
COPY = re.compile(r'h\.hive\.hivectl-[A-Za-z0-9]{6}')


def tool(*args):
    return subprocess.run([HIVECTL, *args], check=True, stdout=subprocess.PIPE).stdout


def read(path):
    if not os.path.exists(path):
        return None
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
    """One changing command, to be run over and over on copies of one hive (None: there is none yet)."""

    def __init__(self, work, hive, command):
        self.directory = os.path.join(work, 'copy')
        self.copy = os.path.join(self.directory, 'h.hive')
        self.hive = hive
        self.command = [HIVECTL, command[0], self.copy, *command[1:]]
        self.input = os.path.join(work, 'input') if command[-1] == '-' else os.devnull
        self.old = hive and read(hive)
        self.strays = 0
        times = [self.undisturbed() for _ in range(TIMED_RUNS)]
        self.run_time = statistics.median(times)
        self.new = self.state()
        assert self.new != self.old

    def state(self):
        """What the hive holds: its bytes, which are always the same but for the time stamp of a new hive."""
        data = read(self.copy)
        return data if self.hive or data is None else (len(data), tool('export', self.copy, '--binary-only'))

    def start(self):
        shutil.rmtree(self.directory, ignore_errors=True)
        os.mkdir(self.directory)
        if self.hive:
            shutil.copyfile(self.hive, self.copy)
        with open(self.input, 'rb') as source:
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
        state = self.state()
        assert state in (self.old, self.new), 'neither the old hive nor the new'
        outcome = 'old' if state == self.old else 'new'
        assert killed or outcome == 'new', 'the command did nothing and says it did'
        beside = [name for name in os.listdir(self.directory) if name != 'h.hive']
        assert len(beside) <= 1 and all(COPY.fullmatch(name) for name in beside), beside
        self.strays += len(beside)
        # What was killed hinders nobody: neither a lock nor its unfinished copy.
        if outcome == 'old':
            with open(self.input, 'rb') as source:
                subprocess.run(self.command, check=True, stdin=source, stdout=subprocess.DEVNULL)
            assert self.state() == self.new
        else:
            tool('create', self.copy, '/after')
        assert os.listdir(self.directory) == ['h.hive'], 'what a killed run left is still there'
        return outcome, killed


def kill_often(change, kills):
    """At least so many kills, and more until each hive was left once: old, new, and runs that had ended."""
    outcomes = {('old', True): 0, ('new', True): 0, ('new', False): 0}
    for _ in range(20 * kills):
        old, new, late = outcomes.values()
        if old + new >= kills and old and new + late:
            break
        outcomes[change.kill(random.uniform(0, change.run_time * 1.05))] += 1
    return tuple(outcomes.values())


COMMANDS = [
    ['set', '/old/Key 7', 'value 5', 'binary', '-'],
    ['rename', '/old/Key 7', 'value 5', 'a new name'],
    ['delete', '/old/Key 7', 'value 5'],
    ['delete', '/old', '--recursive'],
    ['create', '/fresh/with/parents'],
    ['move', '/old/Key 7', '/old/Key 700'],
    ['import', 'MORE'],
    ['new'],
]


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
        subprocess.run([HIVECTL, 'set', hive, '/', 'large', 'binary', '-'], check=True,
                       input=bytes(3 << 20))  # so that copying takes a while
        faults = []
        for command in COMMANDS:
            command = [text if word == 'MORE' else word for word in command]
            change = Change(work, None if command == ['new'] else hive, command)
            old, new, late = kill_often(change, KILLS)
            print('%s, %.0f ms undisturbed: %d kills, %d left the old hive, %d the new, %d a copy; %d came too late'
                  % (' '.join(command[:1] + command[2:3]), change.run_time * 1000, old + new, old, new,
                     change.strays, late), flush=True)
            if not old or not new + late:
                faults.append('%s: the kills met one hive only; they show nothing' % command[0])
    sys.exit('\n'.join(faults) or 0)


if __name__ == '__main__':
    main()
