#!/usr/bin/env bash
# fuzz.sh TARGET SECONDS: runs one fuzz target (hive, program, regtext, strings) that was built with the fuzz preset,
# from the seeds and what earlier runs found in build/fuzz/corpus. Fails with the input kept as build/fuzz/TARGET-*
# when a property does not hold, the library breaks a rule of the sanitizers, or an input takes over 10 s or 2 GiB.
. "$(dirname "$0")/lib.sh"

target=$1
options=(-max_len=4096)
# A hive has so many features that weighing them costs more than it gives.
[ "$target" = hive ] && options=(-max_len=65536 -entropic=0)
corpus=build/fuzz/corpus/$target
seeds=$(mktemp -d)
trap 'rm -rf "$seeds"' EXIT
mkdir -p "$corpus"
build/fuzz/bin/write_seeds "$seeds"
cp fuzz/regressions/"$target"/* "$seeds/$target" 2>/dev/null || true  # a target may have none
# Shorter stacks and a smaller quarantine than usual: half as fast again.
export ASAN_OPTIONS=malloc_context_size=4:quarantine_size_mb=16
build/fuzz/bin/fuzz_"$target" -max_total_time="$2" -timeout=10 -rss_limit_mb=2048 "${options[@]}" \
    -dict=fuzz/text.dict -print_final_stats=1 -artifact_prefix="build/fuzz/$target-" "$corpus" "$seeds/$target"
