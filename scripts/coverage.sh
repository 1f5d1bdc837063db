#!/usr/bin/env bash
# Line and branch coverage of the library by what ctest runs, without the tests of time and size, which repeat at
# length what the others do, and without those that counters disturb: a file size limit and a kill hit the counters'
# files too, and unoptimised objects have calls that others have not. Arguments go to gcovr:
# --html-details report.html, --txt-metric branch, ...
# COVERAGE_TESTS=regex runs the tests of that name alone.
. "$(dirname "$0")/lib.sh"

ensure_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" gcovr
build coverage
# Some tests run hivectl as another user, who leaves counts as well.
umask 0
chmod -R a+rwX build/coverage
find build/coverage -name '*.gcda' -delete
status=0
ctest --preset coverage -j "$JOBS" -E '[Ss]cale|BigHive|^hivectl[.](faults|kill)|^allocations' ${COVERAGE_TESTS:+-R "$COVERAGE_TESTS"} || status=$?

for room in hive regfile check; do
    [ -d "$room" ] || continue
    echo "--- $room/"
    gcovr --root . --filter "$room/" --exclude-throw-branches --exclude-unreachable-branches --print-summary \
        "$@" build/coverage/hive
done
exit "$status"
