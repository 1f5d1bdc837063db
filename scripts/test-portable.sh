#!/usr/bin/env bash
# Builds everything for a big-endian machine (s390x, under qemu) and for a 32-bit one (i686), runs the tests there, and
# compares what hivectl prints and writes there with what it does on this machine, byte for byte.
#
#   scripts/test-portable.sh [MACHINE...]
#
# Left out: the kill test, which measures this machine's timing, and the comparison with the C library's code pages,
# which the cross compilers' C libraries come without; under qemu, some twenty times slower, also the long random
# models and the mutation runs, the stack depth and scale tests, and those of hivectl that start it hundreds of times.
# Ends with "N passed, N failed".
. "$(dirname "$0")/lib.sh"
set +e

ensure_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${PORTABLE_PACKAGES[@]}" || exit 1
MACHINES=("$@")
[ ${#MACHINES[@]} -eq 0 ] && MACHINES=(s390x i686)

NOT_FOR_OTHERS='hivectl.kill|AsThePublishedTablesSay'
SLOW_UNDER_QEMU='FaultSweep|^Model|^mutate_|BoundedStack|hivectl[.](change|faults)'

passed=0
failed=0

# add_counts PATTERN LOG: adds what the last line of that form says of passed and failed cases; none is a failure.
add_counts() {
    local good bad
    read -r good bad < <(sed -n "$1" "$2" | tail -1)
    [ -z "$good" ] && { good=0; bad=1; }
    passed=$((passed + good))
    failed=$((failed + bad))
}

log=$(mktemp)
trap 'rm -f "$log"' EXIT
build release hivectl hivectl_makehives >/dev/null || { echo "the build for this machine failed" >&2; exit 1; }
for machine in "${MACHINES[@]}"; do
    begin=$SECONDS
    echo "--- $machine: build"
    build "$machine" >"$log" 2>&1 || { grep -E 'error|FAILED' "$log" | head -50; failed=$((failed + 1)); continue; }
    echo "--- $machine: tests ($((SECONDS - begin)) s)"
    left_out=$NOT_FOR_OTHERS
    [ "$machine" = s390x ] && left_out+="|$SLOW_UNDER_QEMU"
    echo "left out: $left_out"
    HIVE_STRESS_SECONDS=1 ctest --preset "$machine" -j "$JOBS" -E "$left_out" 2>&1 | tee "$log" |
        grep -vE '^ *(Start|[0-9]+/[0-9]+ .* Passed)'
    add_counts 's/^.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\)$/\2 \1/p' "$log"
    echo "--- $machine: same output, same files ($((SECONDS - begin)) s)"
    python3 scripts/compare_builds.py build/release/bin "build/$machine/bin" 2>&1 | tee "$log"
    add_counts 's/^\([0-9]*\) passed, \([0-9]*\) failed$/\1 \2/p' "$log"
    echo "--- $machine: $((SECONDS - begin)) s"
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
