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
  ctest --preset "$preset" --parallel "$jobs" --no-tests=error --output-log "build/$preset/tests.log" "$@" ||
    failed="$failed test:$preset"
}

# failed_tests: of the log of a preset's tests on standard input, each that failed with the last lines of what it said.
failed_tests() {
  awk '
    function tell(   i) {
      for (i = (lines > 40 ? lines - 40 : 0); i < lines; i++) print said[i]
      lines = 0
    }
    /^ *[0-9]+\/[0-9]+ Test +#[0-9]+: / { tell(); telling = /\*\*\*/ && !/\*\*\*Skipped/; if (telling) print; next }
    /^ +Start +[0-9]+: / { tell(); telling = 0 }
    /^[0-9]+% tests passed/ { tell(); telling = 0 }
    telling { said[lines++] = $0 }
    END { tell() }'
}

check release all
check asan-ubsan all
check tsan threaded_tests --label-regex '^threads$'
say "== layout, locks and lint =="
scripts/lint.sh --changed --minutes 4 || failed="$failed lint"
[ -n "$failed" ] || exit 0

# What failed an hour ago is told again here, where whoever sees the end of a log finds it.
for preset in release asan-ubsan tsan; do
  [ -e "build/$preset/tests.log" ] || continue
  say "== failed tests of $preset =="
  failed_tests <"build/$preset/tests.log"
done
say "failed:$failed"
exit 1
