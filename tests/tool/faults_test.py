#!/usr/bin/env python3
"""What hivectl does when the disk is full, beside other runs of itself, and when a file changes under it:
faults_test.py HIVECTL
"""
import fcntl
import os
import re
import resource
import subprocess
import sys
import tempfile
import unittest

HIVECTL = sys.argv[1]
HEADER = 'Windows Registry Editor Version 5.00\r\n\r\n'
LIMITS = int(os.environ.get('HIVE_LIMITS', '10'))  # file sizes tried for each command
NO_SPACE = r'File too large|No space left on device'


def read(path):
    with open(path, 'rb') as file:
        return file.read()


def write(path, data):
    with open(path, 'wb') as file:
        file.write(data)


def key_text(keys):
    return (HEADER + ''.join('[\\new\\Key %d]\r\n"value"="%s"\r\n' % (i, 'x' * 200) for i in range(keys))).encode()


class FaultsTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = work.name
        self.hive = self.path('h.hive')
        self.build(self.hive)

    def path(self, *names):
        return os.path.join(self.work, *names)

    def build(self, hive):
        self.tool('new', hive)
        write(self.path('old.reg'), key_text(100))
        write(self.path('more.reg'), key_text(2000))
        write(self.path('data'), bytes(i * 7 % 251 for i in range(300000)))
        self.tool('import', hive, self.path('old.reg'), '--verbose')
        with open(self.path('data'), 'rb') as data:
            self.tool('set', hive, '/', 'large', 'binary', '-', stdin=data)

    def tool(self, *args, code=0, **options):
        result = subprocess.run([HIVECTL, *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
                                **options)
        if code is not None:
            self.assertEqual(result.returncode, code, (args, result.stderr))
        return result

    def commands(self, hive, text):
        """Every command that writes: arguments, standard input, and the file it writes."""
        data = self.path('data')
        return [(['set', hive, '/', 'another', 'binary', '-'], data, hive),
                (['rename', hive, '/', 'large', 'still large'], os.devnull, hive),
                (['delete', hive, '/', 'large'], os.devnull, hive),
                (['delete', hive, '/new', '--recursive'], os.devnull, hive),
                (['create', hive, '/more/and/more'], os.devnull, hive),
                (['move', hive, '/new/Key 7', '/new/' + 'k' * 200], os.devnull, hive),
                (['import', hive, self.path('more.reg')], os.devnull, hive),
                (['export', hive, '-o', text], os.devnull, text),
                (['new', os.path.join(os.path.dirname(hive), 'n.hive')], os.devnull, None)]

    def fails_cleanly(self, command, source, target, must, **options):
        """Runs a command that may have too little room; whether it failed."""
        directory = os.path.dirname(target or command[1])
        before = target and read(target)
        names = sorted(os.listdir(directory))
        with open(source, 'rb') as stdin:
            result = self.tool(*command, code=None, stdin=stdin, **options)
        if result.returncode == 0 and not must:
            return False
        message = result.stderr.decode()
        self.assertEqual(result.returncode, 1, (command, message))
        self.assertRegex(message, r'\Ahivectl: [^\n]*\n\Z')
        self.assertRegex(message, NO_SPACE, command)
        self.assertEqual(result.stdout, b'')
        self.assertEqual(target and read(target), before, command)
        self.assertEqual(sorted(os.listdir(directory)), names, command)
        return True

    def test_a_file_that_may_not_grow(self):
        refused = 0
        text = self.path('out.reg')
        for which in range(len(self.commands('', ''))):
            if os.path.exists(self.path('n.hive')):
                os.unlink(self.path('n.hive'))
            original = read(self.hive)
            write(text, b'old')
            command, source, target = self.commands(self.hive, text)[which]
            with open(source, 'rb') as stdin:  # how large it gets
                self.tool(*command, stdin=stdin)
            size = os.path.getsize(target or command[1])
            for limit in range(0, size, size // LIMITS):
                if target:
                    write(target, b'old' if target == text else original)
                else:
                    os.unlink(command[1])
                refused += self.fails_cleanly(
                    command, source, target, must=True,
                    preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
                if not target:
                    write(command[1], b'')
            write(self.hive, original)
        print('file size limits: %d refusals' % refused)

    def test_a_small_file_system(self):
        mount = self.path('mount')
        os.mkdir(mount)
        script = 'mount -t tmpfs -o size=%dk none "$0" && exec "$@"'
        if subprocess.run(['unshare', '-m', 'sh', '-c', script % 64, mount, 'true'],
                          stderr=subprocess.DEVNULL).returncode:
            self.skipTest('no file system can be mounted')
        refused = 0
        size = os.path.getsize(self.hive) // 1024
        for room in size + 40, size + size // 2, 2 * size + 16:
            test = subprocess.run(['unshare', '-m', 'sh', '-c', script % room, mount, sys.executable, __file__,
                                   HIVECTL, '--inside', self.work], stdout=subprocess.PIPE, text=True)
            self.assertEqual(test.returncode, 0)
            refused += int(test.stdout)
        self.assertGreater(refused, 10)
        print('full file systems: %d refusals' % refused)

    def inside(self, work):
        """With the small file system in place."""
        self.work = work
        hive, text = self.path('mount', 'h.hive'), self.path('mount', 'out.reg')
        original = read(self.path('h.hive'))
        refused = 0
        for command, source, target in self.commands(hive, text):
            write(hive, original)
            write(text, b'old')
            refused += self.fails_cleanly(command, source, target, must=False)
            for name in os.listdir(self.path('mount')):
                os.unlink(self.path('mount', name))
        print(refused)

    def test_only_what_killed_runs_left_is_removed(self):
        names = ['h.hive.hivectl-Abc123', 'h.hive.hivectl-locked', 'h.hive.hivectl-abc12', 'h.hive.hivectl-abc1234',
                 'h.hive.hivectl-ab-123', 'h.hive.hivectlXAbc123', 'other.hive.hivectl-Abc123', 'h.hive.Abc123']
        for extra in [], ['--in-place']:
            for name in names:
                write(self.path(name), b'x')
            os.makedirs(self.path('h.hive.hivectl-folder'), exist_ok=True)
            if not extra:
                os.symlink(self.path('old.reg'), self.path('h.hive.hivectl-link00'))
            with open(self.path(names[1]), 'r+b') as living:
                fcntl.flock(living, fcntl.LOCK_EX)
                self.tool('create', self.hive, '/x', *extra)
            left = [name for name in sorted(os.listdir(self.work)) if name.startswith(('h.hive.', 'other'))]
            self.assertEqual(left, sorted(names[1:] + ['h.hive.hivectl-folder', 'h.hive.hivectl-link00']))
        self.tool('new', self.path('other.hive'))
        self.assertFalse(os.path.exists(self.path('other.hive.hivectl-Abc123')))

    def test_runs_at_once_do_not_take_each_other_s_copies(self):
        for turn in range(10):
            hive = self.path('turn%d' % turn, 'n.hive')
            os.mkdir(os.path.dirname(hive))
            runs = [subprocess.Popen([HIVECTL, 'new', hive], stderr=subprocess.PIPE) for _ in range(6)]
            messages = [run.communicate()[1].decode() for run in runs]
            self.assertEqual(sorted(run.returncode for run in runs), [0] + [1] * 5, messages)
            for message in filter(None, messages):
                self.assertRegex(message, r'\Ahivectl: new: [^\n]*exist[^\n]*\n\Z')
            self.assertEqual(os.listdir(os.path.dirname(hive)), ['n.hive'])
            runs = [subprocess.Popen([HIVECTL, 'create', hive, '/k%d' % i], stderr=subprocess.PIPE)
                    for i in range(6)]
            messages = [run.communicate()[1].decode() for run in runs]
            done = {'/k%d' % i for i in range(6) if runs[i].returncode == 0}
            keys = self.tool('ls', hive).stdout.decode()
            self.assertGreaterEqual(len(done), 1, messages)
            for i in range(6):
                self.assertEqual('/k%d' % i in done, 'k%d' % i in keys, (messages, keys))
            self.assertEqual(os.listdir(os.path.dirname(hive)), ['n.hive'])

    def test_a_hive_cut_short_while_open(self):
        """The import has applied the first lines when the file is truncated; the export is held up by its pipe."""
        text = key_text(500)
        for size in 0, 4096, 100000:
            hive = self.path('cut%d' % size)
            write(hive, read(self.hive))
            run = subprocess.Popen([HIVECTL, 'import', hive, '-', '--in-place'], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            run.stdin.write(text[:len(text) // 2])
            run.stdin.flush()
            self.wait_until_read(run.stdin)
            os.truncate(hive, size)
            _, message = run.communicate(text[len(text) // 2:], timeout=60)
            self.assertEqual(run.returncode, 1, message)
            self.assertRegex(message.decode(), r'\Ahivectl: import: [^\n]*\n\Z')

            write(hive, read(self.hive))
            run = subprocess.Popen([HIVECTL, 'export', hive], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            run.stdout.read(1)
            os.truncate(hive, size)
            rest, message = run.communicate(timeout=60)
            self.assertIn(run.returncode, (0, 1) if size else (1,))
            self.assertRegex(message.decode(), r'\A(hivectl: export: [^\n]*\n)?\Z')
            self.assertEqual(run.returncode, 1 if message else 0)

    @staticmethod
    def wait_until_read(pipe):
        import array
        import termios
        import time
        left = array.array('i', [1])
        while left[0]:
            time.sleep(0.01)
            fcntl.ioctl(pipe, termios.FIONREAD, left)


if __name__ == '__main__':
    if '--inside' in sys.argv:
        case = FaultsTest()
        case.inside(sys.argv[-1])
    else:
        unittest.main(argv=sys.argv[:1])
