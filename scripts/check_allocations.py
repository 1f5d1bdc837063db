#!/usr/bin/env python3
"""Fails when the library can throw for want of memory: check_allocations.py OBJECT...

Without memory an operation fails, or the process ends in an orderly way (platform/system/heap.h); no exception
leaves the library. So nothing in it may use the operator new that throws, nor the growth of the standard
library's strings. Exempt are what catches what those throw: String's conversions to such strings, and rooms that
use them throughout and catch at their entry points.
"""
import re
import subprocess
import sys

THROWING = re.compile(r'\b(_Zn[wa][jmy](?!\S*nothrow)\S*|_ZNSt7__cxx1112basic_string\S*?'
                      r'(?:_M_create|_M_mutate|_M_append|_M_replace|_M_assign|_M_construct|reserve|resize)\S*)$')
EXEMPT = re.compile(r'/system/string\.cpp\.o$|/regfile/salvage/|/check/')

faults = []
for path in sys.argv[1:]:
    lines = subprocess.run(['nm', '-u', path], check=True, capture_output=True, text=True).stdout.splitlines()
    used = sorted({match[1] for match in map(THROWING.search, lines) if match})
    if used and not EXEMPT.search(path):
        faults.append('%s: %s' % (path, ', '.join(used)))
if len(sys.argv) < 2:
    faults.append('no objects given')
print('\n'.join(faults) or '%d objects never throw for want of memory' % (len(sys.argv) - 1))
sys.exit(1 if faults else 0)
