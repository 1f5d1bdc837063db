#!/usr/bin/env python3
"""Runs hivectl as its users do: hivectl_test.py HIVECTL MAKEHIVES"""
import json
import os
import pty
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest

HIVECTL, MAKEHIVES = sys.argv[1:3]


def text_bytes(text):
    return text.encode('utf-16-le', 'surrogatepass')


class HivectlTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.hives = tempfile.TemporaryDirectory()
        subprocess.run([MAKEHIVES, cls.hives.name], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.hives.cleanup()

    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = work.name

    def hive(self, name):
        return os.path.join(self.hives.name, name + '.hive')

    def run_tool(self, command, hive, *args, **options):
        target = [] if hive is None else [self.hive(hive)]
        options = {'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE, 'timeout': 60, **options}
        return subprocess.run([HIVECTL, command, *target, *args], **options)

    def done(self, *args, **options):
        """The output of a call that succeeds and says nothing on standard error."""
        result = self.run_tool(*args, **options)
        self.assertEqual((result.returncode, result.stderr.decode()), (0, ''), args)
        return result.stdout

    def lines(self, *args):
        return self.done(*args).decode().split('\n')[:-1]

    def fails(self, code, *args, parts=(), **options):
        """A call that fails with one line on standard error that holds all parts."""
        result = self.run_tool(*args, **options)
        message = result.stderr.decode()
        self.assertEqual(result.returncode, code, (args, message))
        self.assertEqual(message.count('\n'), 1, message)
        self.assertTrue(message.startswith('hivectl: '), message)
        for part in parts:
            self.assertIn(part, message)
        return message

    # ---- values

    VALUES = [  # name, type, readable, JSON, bytes
        ('@', 'sz', 'the default', 'the default', text_bytes('the default\0')),
        ('', 'sz', 'the default', 'the default', text_bytes('the default\0')),
        ('tEXT', 'sz', 'C:\\Temp\\ä€', 'C:\\Temp\\ä€', text_bytes('C:\\Temp\\ä€\0')),
        ('Expand', 'expand-sz', '%HOME%\\x', '%HOME%\\x', text_bytes('%HOME%\\x\0')),
        ('Num', 'dword', '26 (0x1a)', 26, struct.pack('<I', 26)),
        ('NumBe', 'dword-be', '258 (0x102)', 258, struct.pack('>I', 258)),
        ('List', 'multi-sz', 'one\ntwo', ['one', 'two'], text_bytes('one\0two\0\0')),
        ('Quad', 'qword', '18446744073709551615 (0xffffffffffffffff)', 2**64 - 1, b'\xff' * 8),
        ('Empty', 'none', '', '', b''),
        ('Strange', '0x1234', '010203', '010203', b'\1\2\3'),
    ]

    def test_get_shows_every_type_readable_as_json_and_raw(self):
        for hive in 'v13', 'v15':
            for name, kind, readable, value, raw in self.VALUES:
                for extra in [], ['--unsafe']:
                    with self.subTest(hive=hive, name=name, extra=extra):
                        key = 'Software/Vendor'
                        self.assertEqual(self.done('get', hive, key, name, *extra).decode(), readable + '\n')
                        self.assertEqual(self.done('get', hive, key, name, '--raw', *extra), raw)
                        entry = json.loads(self.done('get', hive, key, name, '--json', *extra))
                        self.assertEqual((entry['type'], entry['value'], entry['size']),
                                         (kind, value, len(raw)))

    def test_get_reads_data_in_fragments_and_dumps_it(self):
        raw = self.done('get', 'big', '/', 'big', '--raw')
        self.assertEqual(len(raw), 300000)
        self.assertEqual(self.done('get', 'big', '/', 'big').decode(), raw.hex() + '\n')
        dump = self.lines('get', 'big', '/', 'big', '--hex')
        self.assertEqual(dump[-1][:58].replace(' ', ''), '000493d0' + raw[-16:].hex())

    def test_get_refuses_data_that_is_not_of_its_type(self):
        for name, code in ('Odd', '0x1013'), ('ShortNum', '0x1015'):
            for form in [], ['--json']:
                self.fails(1, 'get', 'v15', 'Software/Vendor', name, *form, parts=[name, code, '--hex'])
        self.assertEqual(self.done('get', 'v15', 'Software/Vendor', 'ShortNum', '--raw'), b'\1\2')

    # ---- keys and paths

    def test_paths_are_taken_in_both_notations(self):
        for path in ('Software/Vendor', '/software//VENDOR/', 'Software\\Vendor', '\\Software\\Vendor'):
            self.assertEqual(self.done('get', 'v13', path, 'Num'), b'26 (0x1a)\n', path)
        for path in ('a\\/b', '/a\\/b/'):
            self.assertEqual(self.lines('ls', 'v15', path), ['info/'])
        for path in ('a\\/b/info', '/', ''):
            self.done('ls', 'v15', path)
        # A key may be called like a command, an option or a list.
        self.fails(1, 'ls', 'v15', '--', '--help', parts=['no such key: "--help"'])
        for name in 'info', '[a,b]', '{x}':
            self.fails(1, 'ls', 'v15', name, parts=['no such key: "%s"' % name])

    def test_every_printed_path_can_be_pasted_back(self):
        found = self.lines('find', 'hostile', 'key')
        printed = [line.split(None, 1)[1] for line in found if line.startswith('key')]
        self.assertEqual(len(printed), 18)
        for path in printed:
            expected = [] if path.endswith('/below key') else ['below key/']
            self.assertEqual(self.lines('ls', 'hostile', path), expected, path)
        for name in [line[:-1] for line in self.lines('ls', 'hostile') if line.endswith('/')]:
            self.assertEqual(self.lines('ls', 'hostile', '/' + name), ['below key/'], name)

    def test_ls_and_tree_show_keys_and_values(self):
        listed = self.lines('ls', 'v15', 'Software/Vendor')
        self.assertEqual([line.split()[0] for line in listed][:3], ['@', '"Text"', '"Expand"'])
        rows = {line.split()[0]: line.split(None, 3)[1:] for line in listed}
        data = self.done('get', 'v15', 'Software/Vendor', 'Bin').decode()
        self.assertEqual(rows['"Bin"'], ['binary', '20', data[:32] + '...'])
        self.assertEqual(rows['"List"'], ['multi-sz', '18', '"one", "two"'])
        self.assertEqual(rows['"Odd"'], ['sz', '1', '41'])
        self.assertEqual(self.lines('ls', 'v15'), ['a\\/b/', 'Größe/', 'Software/', 'Zoo/'])
        tree = ['/', '  a\\/b/', '  Größe/', '  Software/', '  Zoo/', '4 keys']
        self.assertEqual(self.lines('tree', 'v13', '--depth', '1'), tree)
        self.assertEqual(self.lines('tree', 'v13', '/Größe', '--values'),
                         ['/Größe', '  "über" = dword 1 (0x1)', '0 keys, 1 value'])
        entries = [json.loads(line) for line in self.lines('ls', 'v15', '--json')]
        self.assertEqual([entry['path'] for entry in entries], ['/a\\/b', '/Größe', '/Software', '/Zoo'])
        entries = [json.loads(line) for line in self.lines('ls', 'v15', 'Software/Vendor', '--json')]
        entries = {entry['name']: entry for entry in entries}
        self.assertEqual(entries['ShortNum']['hex'], '0102')
        self.assertEqual(entries['Quad']['value'], 2**64 - 1)

    def test_find_looks_into_names_and_texts_in_any_case(self):
        vendor = 'value  /Software/Vendor  '
        for text, expected in [('VENDOR', ['key    /Software/Vendor']),
                               ('ÜBER', ['value  /Größe  "über" = dword 1 (0x1)']),
                               ('temp\\Ä', [vendor + '"Text" = sz "C:\\Temp\\ä€"']),
                               ('%home', [vendor + '"Expand" = expand-sz "%HOME%\\x"']),
                               ('TWO', [vendor + '"List" = multi-sz "one", "two"'])]:
            self.assertEqual(self.lines('find', 'v15', text), expected)
        self.assertEqual(self.lines('find', 'v15', 'i', 'a\\/b'), ['key    /a\\/b/info'])
        entry = json.loads(self.done('find', 'v15', 'two', '--json'))
        self.assertEqual((entry['path'], entry['name'], entry['in_data'], entry['value']),
                         ('/Software/Vendor', 'List', True, ['one', 'two']))
        self.fails(1, 'find', 'v15', 'nowhere', parts=['"nowhere"', 'v15.hive'])

    def test_info_counts(self):
        for hive, minor in ('v13', 3), ('v15', 5):
            for extra in [], ['--unsafe']:
                info = json.loads(self.done('info', hive, '--json', *extra))
                counts = [info[field] for field in ('version_minor', 'keys', 'values', 'security_records')]
                self.assertEqual(counts, [minor, 7, 13, 1])
                self.assertEqual(info['file_size'], os.path.getsize(self.hive(hive)))
                cells = info['used_bytes'] + info['free_bytes']
                self.assertEqual(cells + 32 * info['bins'], info['hive_size'])
                readable = dict(line.split(None, 1) for line in self.lines('info', hive, *extra))
                self.assertEqual((readable['Keys'], readable['Version']), ('7', '1.%d' % minor))

    def test_codepage_decides_over_names(self):
        self.assertIn('Gr', self.lines('ls', 'v15', '--codepage', 'cp1252')[1])
        self.assertEqual(self.lines('get', 'v15', 'Größe', 'über', '--codepage', 'cp1250'), ['1 (0x1)'])
        result = self.run_tool('ls', 'v15', '--codepage', 'ascii')
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.decode().splitlines(), ['a\\/b/', 'Software/', 'Zoo/'])
        self.assertIn('--codepage', result.stderr.decode())
        for key in 'a\\/b', 'Software', 'Zoo':  # found although a name beside it cannot be read
            self.done('ls', 'v15', key, '--codepage', 'ascii')

    # ---- hostile and damaged hives

    def test_nothing_from_a_hive_drives_the_terminal(self):
        escape = 'esc\x1b]0;title\a'
        for args in (['info'], ['ls'], ['tree', '--values'], ['find', 'key'], ['get', '/', escape],
                     ['get', '/', 'list'], ['get', '/', 'bad\nnumber\x1b'], ['get', '/', 'none\x1b\u009b'],
                     ['ls', 'none\x1b'], ['export', '-o', self.work + '/out'], ['ls', '--nö\x1b']):
            result = self.run_tool(args[0], 'hostile', *args[1:])
            for stream in result.stdout, result.stderr:
                self.assertNotRegex(stream.decode(), '[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]', args)
        listed = self.done('ls', 'hostile').decode()
        for shown in ('\\x1b[2Jkey/\n', 'line\\x0abreak\\x0dkey/\n', '\\x7f\\x9b1mkey/\n', '\\u202eturned',
                      'back\\x5cslash', 'sl\\/ash', '😀 key', 'Ā\\ud800key', '"\\x1b[31mred\\x0aline"'):
            self.assertIn(shown, listed)
        self.assertEqual(self.done('get', 'hostile', '/', escape, '--raw'),
                         text_bytes('\x1b[31mred\nline\0'))
        entries = [json.loads(line) for line in self.lines('ls', 'hostile', '--json')]
        self.assertIn('\x1b[31mred\nline', [entry.get('value') for entry in entries])
        self.assertIn('Ā\ufffdkey', [entry['name'] for entry in entries])

    def test_damage_is_told_line_by_line_and_the_rest_goes_on(self):
        record = 'its record is damaged'
        lists = ['badlist', '0x2007', 'badvalues', '0x2008', record]
        for args, complaints, parts, shown in [
                (['info'], 4, lists, 'at least 5'), (['tree'], 2, ['badlist', record], 'below/'),
                (['tree', '--values'], 6, lists + ['"lost data"', '"huge"'], '"lost data" = binary (unread'),
                (['ls'], 4, ['"lost data"', '"huge"', '0x200c', record], 'good/'),
                (['ls', '--json'], 4, ['"lost data"', '"huge"'], '"path":"/good"'),
                (['find', 'below'], 5, lists, '/good/below')]:
            result = self.run_tool(args[0], 'damaged', *args[1:])
            message = result.stderr.decode()
            self.assertEqual((result.returncode, message.count('\n')), (1, complaints), (args, message))
            for part in parts:
                self.assertIn(part, message)
            self.assertIn(shown, result.stdout.decode())
        self.fails(1, 'get', 'damaged', '/', 'huge', '--raw', parts=['"huge"', '0x200c'])
        self.fails(1, 'ls', 'damaged', 'badlist/a', parts=['cannot search the subkeys of /badlist', '0x2007'])

    def test_walks_of_circular_hives_end(self):
        for args in ['info'], ['tree'], ['find', 'loop']:
            result = self.run_tool(args[0], 'circular', *args[1:])
            self.assertEqual(result.returncode, 1)
            self.assertIn('more keys and values than the file has room for', result.stderr.decode())
            self.assertLess(max(map(len, result.stderr.decode().splitlines())), 1000)
        self.assertIn('at least', self.run_tool('info', 'circular').stdout.decode())

    # ---- export

    EXPORT = ('\ufeffWindows Registry Editor Version 5.00\r\n\r\n'
              '[%s]\r\n"\u00fcber"=%s\r\n\r\n')

    def test_export_writes_the_exact_text_wherever_it_goes(self):
        path = os.path.join(self.work, 'out.reg')
        for hive in 'v13', 'v15':
            for args, section, value in [([], '\\Größe', 'dword:00000001'),
                                         (['--prefix', 'HKLM/a\\/b'], 'HKLM\\a/b\\Größe', 'dword:00000001'),
                                         (['--binary-only'], '\\Größe', 'hex(4):01,00,00,00')]:
                expected = text_bytes(self.EXPORT % (section, value))
                self.assertEqual(self.done('export', hive, 'Größe', *args), expected)
                for target in ([path], ['/dev/stdout'], ['-']):
                    written = self.done('export', hive, 'Größe', '-o', *target, *args)
                    if target == [path]:
                        with open(path, 'rb') as file:
                            written = file.read()
                    self.assertEqual(written, expected)
        tail = expected[2:].split(text_bytes('\r\n\r\n'), 1)[1]
        self.assertEqual(self.done('export', hive, 'Größe', '--append', *args), tail)
        self.done('export', hive, 'Größe', '-o', path, '--append', *args)
        with open(path, 'rb') as file:
            self.assertEqual(file.read(), expected + tail)
        self.assertEqual(os.listdir(self.work), ['out.reg'])

    def test_export_keeps_the_mode_and_follows_links(self):
        path, link = os.path.join(self.work, 'out'), os.path.join(self.work, 'link')
        self.done('export', 'v15', '-o', path, 'Zoo', umask=0o027)
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o640)
        os.chmod(path, 0o604)
        os.symlink('out', link)
        before = os.stat(path)
        self.done('export', 'v15', '-o', link, 'Größe')
        after = os.stat(path)
        self.assertTrue(os.path.islink(link))
        self.assertEqual(stat.S_IMODE(after.st_mode), 0o604)
        self.assertNotEqual(before.st_ino, after.st_ino)

    def test_failed_export_leaves_the_old_file(self):
        path = os.path.join(self.work, 'out')
        with open(path, 'w') as file:
            file.write('old')
        for args in [], ['--append']:
            self.fails(1, 'export', 'damaged', '-o', path, *args, parts=['stopped', 'lost data', path])
        with open(path) as file:
            self.assertEqual(file.read(), 'old')
        self.assertEqual(os.listdir(self.work), ['out'])
        self.fails(1, 'export', 'v15', '-o', os.path.join(self.work, 'none/out'), parts=['0x20002'])
        self.fails(1, 'export', 'v15', '-o', self.work, parts=['0x20015'])
        copy = os.path.join(self.work, 'copy')
        with open(self.hive('v15'), 'rb') as source, open(copy, 'wb') as target:
            target.write(source.read())
        self.fails(2, 'export', None, copy, '-o', copy, parts=['the hive itself'])
        with open(copy, 'rb') as file, open(self.hive('v15'), 'rb') as original:
            self.assertEqual(file.read(), original.read())

    def test_values_without_a_readable_form_are_warned_of(self):
        result = self.run_tool('export', 'v15', 'Software')
        self.assertEqual(result.returncode, 0)
        for line, name in zip(result.stderr.decode().splitlines(), ['Odd', 'ShortNum'], strict=True):
            self.assertRegex(line, 'warning: .*Vendor/%s; written in binary form' % name)
        self.assertIn(text_bytes('"Odd"=hex(1):41\r\n'), result.stdout)
        result = self.run_tool('export', 'hostile')
        self.assertEqual((result.returncode, result.stderr.count(b'\n')), (0, 1), result.stderr)

    def test_salvage_goes_on_past_damage_and_tells_it(self):
        """Hive, exit code, what stands in the text, what in the lines on standard error; the last line counts."""
        cases = [('v15', 0, ['"Odd"=hex(1):41', '[\\\\Software\\Vendor]'], ['wrote 7 keys and 13 values, nothing was lost']),
                 ('damaged', 1, ['"good"=dword:00000001', '"huge"=hex(1):', '[\\\\good\\below]', '[\\\\badlist]', '"x"=hex:01'],
                  ['lost: /, value "lost data", record 0x', 'doubtful: /, value "huge", record 0x', 'lost: /badlist, record 0x',
                   'doubtful: /badkey', 'lost: /badvalues', '4 lost, 2 doubtful']),
                 ('circular', 1, ['[\\\\loop]'], ['subkey is written already, as /loop', 'wrote 2 keys and 0 values, 2 lost, 0 doubtful']),
                 ('version', 0, ['[\\]'], ['note: /, record 0x0: base block: version 1.7', 'wrote 1 key']),
                 ('checksum', 0, ['[\\]'], ['wrong checksum', 'wrote 1 key']),
                 ('hostile', 0, [], ['wrote 19 keys'])]
        path = os.path.join(self.work, 'out')
        for hive, code, kept, told in cases:
            with self.subTest(hive=hive):
                result = self.run_tool('export', hive, '--salvage')
                self.assertEqual(self.run_tool('export', hive, '--salvage', '-o', path).returncode, code)
                with open(path, 'rb') as file:
                    self.assertEqual(file.read(), result.stdout)
                lines = result.stderr.decode()
                self.assertEqual(result.returncode, code, lines)
                for piece in kept:
                    self.assertIn(text_bytes('\r\n' + piece), result.stdout, piece)
                for piece in told:
                    self.assertIn(piece, lines)
                self.assertNotRegex(lines, '[\x00-\x09\x0b-\x1f\x7f-\x9f]')
        for hive in 'v13', 'v15', 'hostile':
            for args in [], ['--binary-only', '--prefix', 'HKLM/x']:
                self.assertEqual(self.run_tool('export', hive, '--salvage', *args).stdout,
                                 self.run_tool('export', hive, *args).stdout)
        for hive, args, part in [('short', [], 'no root key'), ('foreign', ['-o', path], 'no root key'),
                                 ('damaged', ['none'], 'found no key "none"')]:
            result = self.run_tool('export', hive, *args, '--salvage')
            self.assertEqual((result.returncode, result.stdout), (1, b''))
            self.assertIn(part, result.stderr.decode().splitlines()[-1])
        result = self.run_tool('export', 'damaged', 'GOOD/below', '--salvage')
        self.assertEqual(result.stderr, b'hivectl: export: wrote 1 key and 0 values, nothing was lost\n')
        self.assertTrue(result.stdout.endswith(text_bytes('\r\n[\\below]\r\n\r\n')))
        self.fails(2, 'export', 'v15', '--salvage', '--unsafe')

    def slow_export(self):
        """Exports into a pipe nobody reads at first, standard error being a terminal."""
        pipe = os.path.join(self.work, 'pipe')
        os.mkfifo(pipe)
        master, slave = pty.openpty()
        process = subprocess.Popen([HIVECTL, 'export', self.hive('big'), '-o', pipe], stderr=slave)
        with open(pipe, 'rb') as reader:
            time.sleep(0.8)
            size = len(reader.read())
        self.assertEqual(process.wait(timeout=60), 0)
        os.close(slave)
        shown = b''
        try:
            while True:
                shown += os.read(master, 65536)
        except OSError:  # all is read, and the other end is closed
            pass
        os.close(master)
        return size, shown.decode()

    def test_long_exports_show_progress_on_a_terminal(self):
        size, shown = self.slow_export()
        self.assertGreater(size, 300000 * 6)
        self.assertRegex(shown, r'^(\rexported \d+\.\d MiB)+\r\x1b\[K$')

    def test_interrupted_export_removes_its_temporary_file(self):
        out = os.path.join(self.work, 'out')
        with open(out, 'w') as file:
            file.write('old')
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        with self.assertRaises(BlockingIOError):  # a full pipe keeps the export waiting at its first warning
            while True:
                os.write(writer, b'x')
        process = subprocess.Popen([HIVECTL, 'export', self.hive('v15'), '-o', out], stderr=writer)
        for _ in range(1000):
            if len(os.listdir(self.work)) == 2:
                break
            time.sleep(0.01)
        self.assertEqual(len(os.listdir(self.work)), 2)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=60), -signal.SIGTERM)
        self.assertEqual(os.listdir(self.work), ['out'])
        with open(out) as file:
            self.assertEqual(file.read(), 'old')
        os.close(reader)
        os.close(writer)

    # ---- failures around the hive

    def test_unusable_files_are_named_with_the_reason(self):
        for hive, parts in [('none', ['no such file', '0x20002']), ('version', ['version', '0x29']),
                            ('checksum', ['checksum', '0x29']), ('cut', ['not a hive', 'cut', '0x2001']),
                            ('short', ['not a hive', 'shorter']), ('foreign', ['not a hive', '0x2001'])]:
            for command in ['info'], ['ls'], ['export', '-o', os.path.join(self.work, 'out')]:
                self.fails(1, command[0], hive, *command[1:], parts=[hive + '.hive', *parts])
        self.fails(1, 'ls', None, self.work, parts=['0x20015'])
        self.assertEqual(os.listdir(self.work), [])
        for args, parts in [(['ls', 'Software/x'], ['"Software/x"', 'v15.hive', '/Software has no subkey']),
                            (['get', 'Zoo', 'x'], ['no such value', '"x"', '/Zoo', 'v15.hive']),
                            (['get', 'Zoo'], ['no default value', '/Zoo'])]:
            self.fails(1, args[0], 'v15', *args[1:], parts=parts)

    def test_wrong_usage_exits_with_2_and_help_with_0(self):
        for args in ([], ['frobnicate'], ['ls'], ['ls', 'a', 'b', 'c'], ['get', 'a'], ['ls', '--frob', 'a'],
                     ['find', 'a', ''], ['ls', '--codepage', 'ebcdic', 'a'],
                     ['get', '--raw', '--hex', 'a', 'b'], ['tree', '--depth', '-1', 'a']):
            result = subprocess.run([HIVECTL, *args], capture_output=True)
            self.assertEqual((result.returncode, result.stdout), (2, b''), args)
            self.assertEqual(result.stderr.count(b'\n'), 1, args)
        for command in 'info', 'ls', 'tree', 'get', 'find', 'export':
            self.assertIn('Example:\n  hivectl %s ' % command, self.done(command, None, '--help').decode())
            self.assertIn('  %s ' % command, self.done('--help', None).decode())
        self.assertRegex(self.done('--version', None).decode(), r'^hivectl \d+\.\d+\.\d+\n$')

    def test_output_that_cannot_be_written_is_noticed(self):
        commands = [['info'], ['ls'], ['tree'], ['get', 'Software/Vendor', 'Text'], ['find', 'vendor'],
                    ['export', 'Zoo']]
        for command in commands:
            with open('/dev/full', 'wb') as full:
                self.fails(1, command[0], 'v15', *command[1:], stdout=full, parts=['output', '0x2001c'])
            self.fails(1, command[0], 'v15', *command[1:], preexec_fn=lambda: os.close(1), parts=['0x20009'])
            reader, writer = os.pipe()
            os.close(reader)
            result = self.run_tool(command[0], 'v15', *command[1:], stdout=writer)
            os.close(writer)
            self.assertEqual((result.returncode, result.stderr), (1, b''), command)
        self.fails(1, 'export', 'v15', 'Zoo', '-o', '/dev/full', parts=['0x2001c', 'incomplete'])
        with open('/dev/full', 'wb') as full:
            self.assertIn(b'standard output', self.run_tool('ls', 'damaged', stdout=full).stderr)

    def test_log_lines_go_to_standard_error_when_asked_for(self):
        for extra, expected in ([], False), (['-v'], True), (['-vv'], True):
            result = self.run_tool('find', 'damaged', 'below', *extra)
            self.assertEqual(b'3 hive' in result.stderr.lower(), expected, result.stderr)
            self.assertEqual(result.stdout, b'key    /good/below\n')


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=2)
