#!/bin/sh
# Builds everything plain and with the address and undefined-behaviour sanitizers, and runs every test of both builds.
set -eu
. "$(dirname "$0")/common.sh"

scripts/setup.sh
if [ "$(id -u)" -ne 0 ]; then
  say "test.sh: not run as root: the tests that run the engine will be skipped"
fi

failed=
for preset in release asan-ubsan; do
  say "== $preset =="
  cmake --preset "$preset"
  cmake --build --preset "$preset" --parallel "$jobs" || failed="$failed build:$preset"
  # What was built is tested even when something else was not.
  [ "$preset" = asan-ubsan ] && [ -n "$failed" ] && say "failed so far:$failed"
  ctest --preset "$preset" --parallel "$jobs" --no-tests=error || failed="$failed test:$preset"
done
[ -z "$failed" ]
