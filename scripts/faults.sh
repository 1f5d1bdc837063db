#!/usr/bin/env bash
# Every fault that docs/TESTING.md tells of, injected in full; prints the figures. Takes some minutes.
. "$(dirname "$0")/lib.sh"

build release
export HIVE_FAULTS=all HIVE_KILLS=${HIVE_KILLS:-200} HIVE_LIMITS=${HIVE_LIMITS:-100}
build/release/bin/model_tests --gtest_filter='*FaultSweep*' --gtest_brief=1
build/release/bin/hive_tests --gtest_filter='*ChangedFile*' --gtest_brief=1
python3 tests/tool/kill_test.py build/release/bin/hivectl
python3 tests/tool/faults_test.py build/release/bin/hivectl
