#!/usr/bin/env bash
# Builds the release preset and runs all tests.
. "$(dirname "$0")/lib.sh"

ensure_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
build release
ctest --preset release -j "$JOBS"
