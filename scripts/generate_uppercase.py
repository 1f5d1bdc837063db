#!/usr/bin/env python3
"""Writes platform/system/uppercase.cpp from the Unicode character database.

    scripts/generate_uppercase.py [UnicodeData.txt] > platform/system/uppercase.cpp

A pair (c, u) is taken when u is the simple upper case of c and c the simple lower case of u, both in the
basic multilingual plane and neither a surrogate.
"""

import sys

HEAD = """\
// Made by scripts/generate_uppercase.py from UnicodeData.txt; change the script, not this file.

#include <algorithm>
#include <iterator>

#include "platform/system/string.h"

namespace Platform {

namespace {

/// Every `stride`-th unit from `first` to `last` has its upper case at a distance of `delta`, modulo 65536.
struct CaseRange {
    u16 first;
    u16 last;
    u16 stride;
    u16 delta;
};

// In ascending order, without overlaps; ASCII is dealt with ahead of the table.
// clang-format off
constexpr CaseRange CASE_RANGES[] = {
"""

TAIL = """\
};
// clang-format on

}  // namespace

char16_t String::upperBeyondAscii(char16_t unit) {
    const auto* const range = std::lower_bound(std::begin(CASE_RANGES), std::end(CASE_RANGES), unit,
                                               [](const CaseRange& r, char16_t u) { return r.last < u; });
    if (range == std::end(CASE_RANGES) || unit < range->first) return unit;
    if ((unit - range->first) % range->stride != 0) return unit;
    return static_cast<char16_t>(unit + range->delta);
}

}  // namespace Platform
"""


def usable(code):
    return code <= 0xFFFF and not 0xD800 <= code <= 0xDFFF


def pairs(path):
    upper, lower = {}, {}
    with open(path, encoding="ascii") as data:
        for line in data:
            fields = line.rstrip("\n").split(";")
            code = int(fields[0], 16)
            if fields[12]:
                upper[code] = int(fields[12], 16)
            if fields[13]:
                lower[code] = int(fields[13], 16)
    for code, up in sorted(upper.items()):
        if code >= 0x80 and usable(code) and usable(up) and lower.get(up) == code:
            yield code, (up - code) & 0xFFFF


def ranges(mapped):
    """Groups the pairs greedily: equal deltas, one or two units apart. [first, last, stride, delta]"""
    current = None
    for code, delta in mapped:
        if current and delta == current[3]:
            gap = code - current[1]
            single = current[0] == current[1]
            if gap <= 2 and (single or gap == current[2]):
                current[1], current[2] = code, gap
                continue
        if current:
            yield current
        current = [code, code, 1, delta]
    if current:
        yield current


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else "/usr/share/unicode/UnicodeData.txt"
    rows = ["{0x%04X, 0x%04X, %d, 0x%04X}," % tuple(row) for row in ranges(pairs(path))]
    sys.stdout.write(HEAD)
    for start in range(0, len(rows), 3):
        sys.stdout.write("    " + " ".join(rows[start:start + 3]) + "\n")
    sys.stdout.write(TAIL)


if __name__ == "__main__":
    main()
