#!/usr/bin/env python3
"""check_docs.py FIRST_EXAMPLE: fails unless the documents tell the truth where that can be checked.

README.md's C++ block must be examples/first.cpp letter by letter, and the hive that docs/FORMAT.md shows in hex must
be one that the library reads as the text says.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def hive_of_format_text():
    block = re.search(r'```hive\n(.*?)```', (ROOT / 'docs' / 'FORMAT.md').read_text(), re.S).group(1)
    hive = bytearray(8192)
    for line in block.splitlines():
        offset, words = re.match(r'([0-9a-f]{8}): ((?:[0-9a-f]{4} ){8})', line).groups()
        hive[int(offset, 16):int(offset, 16) + 16] = bytes.fromhex(words)
    return hive


def main():
    faults = []
    shown = re.findall(r'```cpp\n(.*?)```', (ROOT / 'README.md').read_text(), re.S)
    if (ROOT / 'examples' / 'first.cpp').read_text() not in shown:
        faults.append('README.md does not show examples/first.cpp as it is')
    with tempfile.NamedTemporaryFile() as file:
        file.write(hive_of_format_text())
        file.flush()
        for name, answer in (('', 'Hi\n'), ('Red', 'failed with error 0x1011\n')):  # no string, but there
            done = subprocess.run([sys.argv[1], file.name, 'INK', name], stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, check=False)
            if done.stdout != answer:
                faults.append('the hive of docs/FORMAT.md answers %r to %r' % (done.stdout, name))
    sys.exit('\n'.join(faults) or 0)


if __name__ == '__main__':
    main()
