#!/usr/bin/env python3
"""Fails when an include points upward: platform <- hive <- regfile <- check <- tool, or reaches past what is public.

tests, fuzz, bench and examples may include anything; nobody else may include them.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MAY_INCLUDE = {
    'platform': ('platform/',),
    'hive': ('platform/', 'hive/'),
    'regfile': ('platform/', 'hive/', 'regfile/'),
    'check': ('platform/', 'hive/', 'regfile/', 'check/'),
    'tool': ('platform/', 'tool/', 'hive/hivefile.h', 'hive/errorcodes.h', 'hive/base.h',
             'hive/security/securitydescriptor.h', 'regfile/util.h', 'regfile/valueedit.h', 'regfile/regfileutil.h',
             'regfile/salvage/salvage.h', 'regfile/walkbudget.h', 'check/hivecheck.h'),
}
ROOMS = tuple(room + '/' for room in (*MAY_INCLUDE, 'tests', 'fuzz', 'bench', 'examples'))

# What programs outside may include must not lead them to what is hidden.
PUBLIC = MAY_INCLUDE['tool'][2:]


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
        if match:
            yield number, match.group(1)


def main():
    faults, seen = [], 0
    for room, allowed in MAY_INCLUDE.items():
        for path in sorted((ROOT / room).rglob('*')):
            if path.suffix not in ('.h', '.cpp'):
                continue
            name = str(path.relative_to(ROOT))
            for number, target in includes(path):
                seen += 1
                if not target.startswith(allowed):
                    faults.append('%s:%d: must not include %s' % (name, number, target))
                elif not target.startswith(ROOMS) or not (ROOT / target).is_file():
                    faults.append('%s:%d: %s is not named from the root' % (name, number, target))
                elif name in PUBLIC and not target.startswith('platform/') and target not in PUBLIC:
                    faults.append('%s:%d: public, but includes the hidden %s' % (name, number, target))
    for fault in faults:
        print(fault)
    if seen < 100:  # a rule that looked at nothing holds always
        faults.append('')
        print('found only %d includes' % seen)
    sys.exit(1 if faults else 0)


if __name__ == '__main__':
    main()
