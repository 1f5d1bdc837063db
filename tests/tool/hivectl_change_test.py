#!/usr/bin/env python3
"""Runs the commands that change hives as their users do: hivectl_change_test.py HIVECTL"""
import fcntl
import json
import os
import stat
import struct
import subprocess
import sys
import tempfile
import unittest

HIVECTL = sys.argv[1]
HEADER = 'Windows Registry Editor Version 5.00\r\n\r\n'


def text_bytes(text):
    return text.encode('utf-16-le')


def pattern(size):
    return bytes(i * 7 % 251 for i in range(size))


class ChangeTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = work.name
        self.hive = self.path('h.hive')
        self.new(self.hive)

    def path(self, name):
        return os.path.join(self.work, name)

    def new(self, path, version='1.5'):
        if os.path.exists(path):
            os.unlink(path)
        self.done('new', path, '--format', version)

    def run_tool(self, command, *args, **options):
        options = {'capture_output': True, 'timeout': 120, **options}
        return subprocess.run([HIVECTL, command, *args], **options)

    def done(self, command, *args, **options):
        """The output of a call that succeeds, says nothing on standard error and leaves no file behind."""
        result = self.run_tool(command, *args, **options)
        self.assertEqual((result.returncode, result.stderr.decode()), (0, ''), (command, *args))
        self.assert_no_temporary_file()
        return result.stdout

    def change(self, command, *args, **options):
        """A change that succeeds without a word."""
        self.assertEqual(self.done(command, self.hive, *args, **options), b'', (command, *args))

    def lines(self, command, *args):
        return self.done(command, self.hive, *args).decode().split('\n')[:-1]

    def refused(self, code, command, *args, parts=(), **options):
        """A change that fails with one line of standard error and leaves the hive byte for byte."""
        before = self.contents()
        result = self.run_tool(command, self.hive, *args, **options)
        message = result.stderr.decode()
        self.assertEqual((result.returncode, result.stdout), (code, b''), (command, *args, message))
        self.assertRegex(message, r'\Ahivectl: [^\n]*\n\Z')
        for part in parts:
            self.assertIn(part, message)
        self.assertEqual(self.contents(), before, (command, *args))
        self.assert_no_temporary_file()

    def contents(self):
        with open(self.hive, 'rb') as file:
            return file.read()

    def assert_no_temporary_file(self):
        self.assertEqual([name for name in os.listdir(self.work) if '.hive.' in name], [])

    def values(self, key='/'):
        """Names, types and data of a key's values, each read by a process of its own."""
        entries = [json.loads(line) for line in self.lines('ls', key, '--json')]
        return {entry['name']: (entry['type'], self.done('get', self.hive, key, entry['name'], '--raw'))
                for entry in entries if 'type' in entry}

    def tree(self, *args):
        return self.lines('tree', *args)[:-1]

    # ---- values

    SETS = [  # type, arguments, standard input, type as shown, bytes
        ('sz', ['ä€😀'], None, 'sz', text_bytes('ä€😀\0')),
        ('sz', [''], None, 'sz', b'\0\0'),
        ('sz', ['-'], b'A\0B', 'sz', b'A\0B'),
        ('expand-sz', ['%HOME%\\x'], None, 'expand-sz', text_bytes('%HOME%\\x\0')),
        ('multi-sz', ['one', 'two words'], None, 'multi-sz', text_bytes('one\0two words\0\0')),
        ('multi-sz', [], None, 'multi-sz', b'\0\0'),
        ('dword', ['26'], None, 'dword', struct.pack('<I', 26)),
        ('dword', ['0xFFFFFFFF'], None, 'dword', b'\xff' * 4),
        ('dword-be', ['258'], None, 'dword-be', struct.pack('>I', 258)),
        ('qword', ['18446744073709551615'], None, 'qword', b'\xff' * 8),
        ('qword', ['0x1'], None, 'qword', struct.pack('<Q', 1)),
        ('binary', ['00 fF', '10,11'], None, 'binary', bytes.fromhex('00ff1011')),
        ('binary', ['-'], pattern(300000), 'binary', pattern(300000)),
        ('none', [], None, 'none', b''),
        ('0x1234', ['010203'], None, '0x1234', b'\1\2\3'),
        ('3', ['-'], b'', 'binary', b''),
    ]

    def test_set_takes_every_type_over_values_old_and_new(self):
        for version in '1.3', '1.5':
            for extra in [], ['--in-place']:
                self.new(self.hive, version)
                self.change('create', 'Key')
                expected = {}
                for i, (kind, data, stdin, shown, raw) in enumerate(self.SETS):
                    for name in 'changing', 'v%d' % i:
                        self.change('set', 'Key', name, kind, *extra, '--', *data, input=stdin)
                        expected[name] = (shown, raw)
                self.assertEqual(self.values('Key'), expected)
        for name, raw in ('@', text_bytes('a\0')), ('', text_bytes('b\0')):
            self.change('set', '/', name, 'sz', raw.decode('utf-16-le')[0])
            self.assertEqual(self.done('get', self.hive, '/', '--raw'), raw)

    def test_set_resizes_through_every_storage_form(self):
        sizes = [0, 3, 4, 5, 16344, 16345, 100000, 16344, 5, 70000, 4, 1048572, 0, 200000, 1]
        for version in '1.3', '1.5':
            self.new(self.hive, version)
            self.change('set', '/', 'beside', 'sz', 'stays')
            for size in sizes:
                self.change('set', '/', 'Blob', 'binary', '-', input=pattern(size))
                self.assertEqual(self.values(), {'beside': ('sz', text_bytes('stays\0')),
                                                 'Blob': ('binary', pattern(size))}, (version, size))
            if version == '1.3':  # one cell covers no more
                self.refused(1, 'set', '/', 'Blob', 'binary', '-', input=pattern(1048573),
                             parts=['1048573 bytes', 'could not be written completely'])
            else:
                self.change('set', '/', 'Blob', 'binary', '-', input=pattern(3 << 20))
                self.assertEqual(self.values()['Blob'], ('binary', pattern(3 << 20)))

    def test_wrong_data_is_wrong_usage_and_changes_nothing(self):
        self.change('set', '/', 'x', 'dword', '7')
        for extra in [], ['--in-place']:
            for args in (['dword', 'nope'], ['dword', '4294967296'], ['dword', '1', '2'], ['dword'], ['sz'],
                         ['dword', ''], ['dword', '0x'], ['dword-be', '1.5'], ['qword', '18446744073709551616'],
                         ['binary', 'abc'], ['binary', 'zz'], ['str', 'a'], ['4294967296', '00'],
                         ['multi-sz', 'a', '', 'b'], ['sz', b'\xff']):
                self.refused(2, 'set', '/', 'x', *args, *extra)
            self.refused(1, 'set', 'Nobody', 'x', 'dword', '1', *extra, parts=['Nobody', 'h.hive'])

    def test_rename_of_values_anywhere_holds_for_the_next_process(self):
        for version in '1.3', '1.5':
            for count in 1, 2, 3:
                for at in range(count):
                    for new in 'new', 'NAME%d' % at, '':
                        self.new(self.hive, version)
                        expected = {}
                        for i in range(count):
                            self.change('set', '/', 'name%d' % i, 'sz', 'text %d' % i)
                            expected[new if i == at else 'name%d' % i] = ('sz', text_bytes('text %d\0' % i))
                        self.change('rename', '/', 'name%d' % at, new)
                        self.assertEqual(self.values(), expected, (version, count, at, new))
        self.refused(1, 'rename', '/', 'NAME0', 'name1', parts=['name0', 'name1'])
        self.refused(1, 'rename', '/', 'nobody', 'x', parts=['nobody'])
        self.refused(1, 'rename', '/', 'name0', 'x' * 16384, parts=['name0'])

    def test_delete_of_values_anywhere_holds_for_the_next_process(self):
        for version in '1.3', '1.5':
            for names in 'A', 'AB', 'ABC', 'ABCD':
                for gone in names:
                    self.new(self.hive, version)
                    for name in names:
                        self.change('set', '/', name, 'sz', 'text ' + name)
                    self.change('delete', '/', gone.lower())
                    expected = {name: ('sz', text_bytes('text %s\0' % name)) for name in names if name != gone}
                    self.assertEqual(self.values(), expected, (version, names, gone))
        self.refused(1, 'delete', '/', 'nobody', parts=['nobody', 'h.hive'])
        self.refused(2, 'delete', '/', 'A', '--recursive')

    # ---- keys

    def test_create_makes_missing_parents_and_is_content_with_what_is_there(self):
        for path in 'A/b\\/c/Größe', '/a/B\\/C', 'A\\D', '/':
            self.change('create', path)
        self.assertEqual(self.tree(), ['/', '  A/', '    b\\/c/', '      Größe/', '    D/'])
        self.refused(1, 'create', 'A/' + 'x' * 256, parts=['0x1006'])
        self.change('create', '/'.join('d' * 511))
        self.refused(1, 'create', '/'.join('d' * 520), parts=['512 levels'])

    def test_delete_of_keys(self):
        self.change('create', 'A/B/C')
        self.change('create', 'A/B2')
        self.change('set', 'A/B2', 'x', 'dword', '1')
        for root in '/', '', '\\':
            for extra in [], ['--recursive']:
                self.refused(1, 'delete', root, *extra, parts=['root key'])
        self.refused(1, 'delete', 'A/B', parts=['/A/B', '--recursive'])
        self.refused(1, 'delete', 'A/B/D', parts=['D'])
        self.change('delete', 'a/b/c')
        self.change('delete', 'A/B')
        self.assertEqual(self.tree(), ['/', '  A/', '    B2/'])
        self.change('delete', 'A', '--recursive')
        self.assertEqual(self.tree(), ['/'])

    def test_move_takes_all_below_along(self):
        self.change('create', 'A/B/C')
        self.change('create', 'Z')
        self.change('set', 'A/B', 'x', 'dword', '1')
        for source, target, tree in [('A/B', 'Z/N', ['  A/', '  Z/', '    N/', '      C/']),
                                     ('Z/N', 'z/n', ['  A/', '  Z/', '    n/', '      C/']),
                                     ('Z', 'A/z', ['  A/', '    z/', '      n/', '        C/']),
                                     ('A/z/n', 'A/z/n', ['  A/', '    z/', '      n/', '        C/']),
                                     ('A/z/n', 'M', ['  A/', '    z/', '  M/', '    C/'])]:
            self.change('move', source, target)
            self.assertEqual(self.tree()[1:], tree, (source, target))
        self.assertEqual(self.values('M'), {'x': ('dword', b'\1\0\0\0')})
        for code, source, target in [(1, 'M', 'M/C/D'), (1, 'M', 'M/D'), (1, 'M', 'A'), (1, '/', 'A/R'),
                                     (2, 'M', '/'), (1, 'M', 'Nobody/M'), (1, 'Nobody', 'N')]:
            self.refused(code, 'move', source, target)

    def test_new_makes_both_versions_and_never_replaces(self):
        for version, minor in ('1.3', 3), ('1.5', 5):
            path = self.path('new%d' % minor)
            self.done('new', path, '--format', version, umask=0o027)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o640)
            info = json.loads(self.done('info', path, '--json'))
            self.assertEqual([info[field] for field in ('version_minor', 'keys', 'values', 'security_records')],
                             [minor, 1, 0, 1])
            self.assertEqual((info['bins'], info['file_size']), (1, 4096 + info['hive_size']))
        self.refused(1, 'new', parts=['exists already'])
        self.refused(2, 'new', '--format', '1.4')

    def test_sd_tells_users_and_rights(self):
        self.change('create', 'A/B')
        rights = 'O:BAG:SYD:(A;CI;KA;;;BA)(A;CI;KA;;;SY)'
        self.assertRegex(self.lines('sd')[0], r'^0x[0-9a-f]+  used by 3 keys  ' + rights.replace('(', r'\(')
                         .replace(')', r'\)') + '$')
        dump = self.lines('sd', '--hex')
        self.assertEqual(dump[1][:22], '00000000  01 00 04 80 ')

    # ---- import

    TEXT = (HEADER + '[HKLM\\S]\r\n@="default"\r\n"n"=dword:0000001a\r\n"u"="ä€"\r\n"b"=hex:01,\\\r\n  02\r\n'
            '"q"=hex(b):01,00,00,00,00,00,00,00\r\n\r\n[HKLM\\S\\T]\r\n"gone"="x"\r\n"gone"=-\r\n\r\n'
            '[HKLM\\U]\r\n\r\n[-HKLM\\U]\r\n')

    def test_import_tells_what_it_did_in_every_encoding(self):
        for version in '1.3', '1.5':
            for codec, mark in [('utf-16-le', '\ufeff'), ('utf-16-le', ''), ('utf-16-be', '\ufeff'),
                                ('utf-8', '\ufeff'), ('utf-8', '')]:
                self.new(self.hive, version)
                text = (mark + self.TEXT).encode(codec)
                with open(self.path('in.reg'), 'wb') as file:
                    file.write(text)
                for source, stdin in (self.path('in.reg'), None), ('-', text):
                    summary = self.done('import', self.hive, source, '--prefix', 'HKLM', input=stdin)
                    created = '1 key' if source == '-' else '3 keys'  # the second time round
                    self.assertEqual(summary.decode(), 'created %s, deleted 1 key, set 6 values, '
                                     'deleted 1 value\n' % created, (codec, mark))
                    self.assertEqual(self.values('S'), {
                        '': ('sz', text_bytes('default\0')), 'n': ('dword', b'\x1a\0\0\0'),
                        'u': ('sz', text_bytes('ä€\0')), 'b': ('binary', b'\1\2'),
                        'q': ('qword', b'\1\0\0\0\0\0\0\0')})
                    self.assertEqual(self.tree(), ['/', '  S/', '    T/'])

    def test_failing_imports_leave_the_hive_or_what_came_before(self):
        self.done('import', self.hive, '-', '--prefix', 'HKLM', input=self.TEXT.encode())
        good = HEADER + '[\\S]\r\n"new"="1"\r\n'
        for text, parts in [(good + 'nonsense\r\n', ['line 5:']), (good + '"d"=dword:xyz\r\n', ['line 5:']),
                            (good + '\r\n[HKCU\\X]\r\n"d"=hex:0\r\n', ['line 7:']), ('[A]\r\n', ['line 1:'])]:
            self.refused(1, 'import', '-', input=text.encode(), parts=parts + ['h.hive is as it was'])
        self.refused(1, 'import', '-', '--prefix', 'HKCU', input=self.TEXT.encode(), parts=['line 3:', 'HKCU'])
        self.refused(1, 'import', self.path('none.reg'), parts=['none.reg', '0x20002'])
        for extra in ['--keep-partial'], ['--in-place']:
            result = self.run_tool('import', self.hive, '-', *extra, input=(good + 'nonsense\r\n').encode())
            self.assertEqual(result.returncode, 1)
            self.assertIn(b'line 5:', result.stderr)
            self.assertIn(b'set 1 value', result.stderr)
            self.assertEqual(self.values('S')['new'], ('sz', text_bytes('1\0')))
            self.change('delete', 'S', 'new')

    def test_exports_come_back_the_same(self):
        self.done('import', self.hive, '-', '--prefix', 'HKLM', input=self.TEXT.encode())
        self.change('set', 'S/T', 'large', 'binary', '-', input=pattern(100000))
        for options in [], ['--binary-only']:
            exported = self.done('export', self.hive, *options)
            for version in '1.3', '1.5':
                self.new(self.path('second'), version)
                for _ in range(2):
                    self.done('import', self.path('second'), '-', input=exported)
                    self.assertEqual(self.done('export', self.path('second'), *options), exported)

    # ---- the file

    def test_the_new_file_keeps_owner_mode_and_attributes(self):
        os.chmod(self.hive, 0o604)
        if os.geteuid() == 0:
            os.chown(self.hive, 12345, 23456)
        attributes = {}
        try:
            os.setxattr(self.hive, 'user.note', b'kept')
            attributes = {'user.note': b'kept'}
        except OSError:
            print('no user attributes here; left out', file=sys.stderr)
        before = os.stat(self.hive)
        link = self.path('link')
        os.symlink('h.hive', link)
        self.assertEqual(self.done('set', link, '/', 'x', 'dword', '1'), b'')
        after = os.stat(self.hive)
        self.assertTrue(os.path.islink(link))
        self.assertNotEqual(after.st_ino, before.st_ino)
        self.assertEqual((after.st_mode, after.st_uid, after.st_gid),
                         (before.st_mode, before.st_uid, before.st_gid))
        for name, value in attributes.items():
            self.assertEqual(os.getxattr(self.hive, name), value)
        self.assertEqual(sorted(os.listdir(self.work)), ['h.hive', 'link'])
        self.change('set', '/', 'x', 'dword', '2', '--in-place')
        self.assertEqual(os.stat(self.hive).st_ino, after.st_ino)
        self.assertEqual(self.values(), {'x': ('dword', b'\2\0\0\0')})

    CHANGES = [['set', '/', 'x', 'dword', '1'], ['rename', '/', 'v', 'w'], ['delete', '/', 'v'],
               ['create', 'A'], ['move', 'K', 'L'], ['import', '/dev/null']]

    def test_a_second_writer_is_refused(self):
        self.change('set', '/', 'v', 'dword', '1')
        self.change('create', 'K')
        with open(self.hive, 'rb') as other:
            fcntl.flock(other, fcntl.LOCK_EX)
            for change in self.CHANGES:
                for extra in [], ['--in-place']:
                    self.refused(1, *change, *extra, parts=['open for writing in another program'])
            self.assertIn('"v"', self.lines('ls')[0] + self.lines('ls')[1])  # readers may come in
        self.change(*self.CHANGES[0])

    def test_a_read_only_file_is_refused(self):
        self.change('set', '/', 'v', 'dword', '1')
        self.change('create', 'K')
        os.chmod(self.work, 0o777)
        os.chmod(self.hive, 0o444)
        nobody = {'user': 65534, 'group': 65534, 'extra_groups': []} if os.geteuid() == 0 else {}
        try:
            self.done('info', self.hive, **nobody)
        except PermissionError:
            self.skipTest('the program is out of reach for other users')
        for change in self.CHANGES:
            for extra in [], ['--in-place']:
                self.refused(1, *change, *extra, parts=['no permission', 'h.hive'], **nobody)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=2)
