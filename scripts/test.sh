#!/bin/sh
# Builds everything plain and with the address and undefined-behaviour sanitizers, and runs every test of both builds; then
# what has several threads or processes with the thread sanitizer; then checks layout and locks and lints what was changed,
# as far as four minutes go.
set -eu
. "$(dirname "$0")/common.sh"

scripts/setup.sh
if [ "$(id -u)" -ne 0 ]; then
  say "test.sh: not run as root: the tests that run the engine will be skipped"
fi

failed=
# check PRESET TARGET [TEST-OPTION...]: builds the target and runs the tests.
check() {
  preset=$1
  target=$2
  shift 2
  say "== $preset =="
  cmake --preset "$preset"
  cmake --build --preset "$preset" --parallel "$jobs" --target "$target" || failed="$failed build:$preset"
  # What was built is tested even when something else was not.
  [ -z "$failed" ] || say "failed so far:$failed"
  ctest --preset "$preset" --parallel "$jobs" --no-tests=error "$@" || failed="$failed test:$preset"
}

check release all
check asan-ubsan all
check tsan threaded_tests --label-regex '^threads$'
say "== layout, locks and lint =="
scripts/lint.sh --changed --minutes 4 || failed="$failed lint"
[ -z "$failed" ]
