#!/usr/bin/env bash
# Counts the instructions of looking up, exporting and importing a small tree under callgrind, which no other
# load on the machine disturbs, and fails when any takes more than LIMIT percent above what bench/guard.txt says.
# Counts are of one compiler and C library; with others there is nothing to compare with, which is told.
#
#   scripts/bench-guard.sh            compares
#   scripts/bench-guard.sh --renew    writes bench/guard.txt anew, after a change that is meant to cost or save
. "$(dirname "$0")/lib.sh"

LIMIT=${LIMIT:-3}
KEYS=1000
COUNTS=bench/guard.txt
PROGRAM=build/release/bin/hive-bench

[ -x "$PROGRAM" ] || { echo "no $PROGRAM; build it first" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# run ROW...: the hive's rows, outside callgrind.
run() {
    "$PROGRAM" --dir="$work" --keys="$KEYS" --benchmark_filter="^($1)/hive/" >"$work/log" 2>&1 || { cat "$work/log"; return 1; }
}

# instructions ROW FUNCTION: those of the row's timed part.
instructions() {
    valgrind --tool=callgrind --callgrind-out-file="$work/callgrind.$1" --collect-atstart=no \
        --toggle-collect="*HiveStore::$2(*" "$PROGRAM" --dir="$work" --keys="$KEYS" \
        --benchmark_filter="^$1/hive/" >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }
    sed -n 's/^==[0-9]*== Collected : \([0-9]*\)$/\1/p' "$work/log"
}

system="$(${CXX:-c++} -dumpfullversion) $(ldd --version | sed -n '1s/.* //p') $(uname -m)"
if [ "${1:-}" != --renew ] && [ "$(sed -n 's/^system //p' "$COUNTS")" != "$system" ]; then
    echo "left out: $COUNTS is of system '$(sed -n 's/^system //p' "$COUNTS")', this is '$system'"
    exit 0
fi

run 'build|import'  # leave the hive and its text for the rows below
good=true
renewed="system $system"
for row in lookup:lookUp export:exportText import:importText; do
    name=${row%%:*}
    count=$(instructions "$name" "${row##*:}")
    [ "${count:-0}" -gt 0 ] || { echo "$name: nothing was counted" >&2; exit 1; }
    renewed+=$'\n'"$name $count"
    [ "${1:-}" = --renew ] && continue
    before=$(sed -n "s/^$name //p" "$COUNTS")
    verdict=ok
    [ $((count * 100)) -le $((before * (100 + LIMIT))) ] || { verdict="MORE THAN $LIMIT % ABOVE"; good=false; }
    awk -v name="$name" -v count="$count" -v before="$before" -v verdict="$verdict" 'BEGIN {
        printf "%-8s %12d instructions, %12d kept, %+.2f %%: %s\n", name, count, before,
               (count - before) * 100 / before, verdict }'
done
if [ "${1:-}" = --renew ]; then
    echo "$renewed" | tee "$COUNTS"
    exit
fi
$good && exit
echo "Make it cheaper; or, when the cost is meant, run scripts/bench-guard.sh --renew and hand in $COUNTS."
exit 1
