#!/usr/bin/env bash
# Builds the benchmark on a Debian machine, with the stores the hive is compared with, runs it and prints one
# table. `scripts/bench.sh --help` lists what can be chosen; docs/PERFORMANCE.md tells how to read the table.
. "$(dirname "$0")/lib.sh"

ensure_packages "${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}" python3
build release hive-bench
exec python3 scripts/bench.py build/release/bin/hive-bench "$@"
