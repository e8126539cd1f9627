#!/bin/sh
# Shows what of the product no test runs: builds the coverage preset with gcc, runs the tests, and prints lines and branches
# for each folder of InstallationDeployer/ and general/, then each line that no test ran, as FILE:FIRST-LAST.
#
#   scripts/coverage.sh [--tests REGEX] [--targets "A B"] [--no-run] [--output FILE]
#
# --tests: runs only the tests whose names match; --targets: builds only these. --no-run: counts what earlier runs left.
# --output: the lines that no test runs go to this file in place of the end of the output.
#
# Counted is what a process writes when it exits. An engine that runs in a private root writes it there, and it goes with
# that root: so far only what tests call themselves is counted. A process that is killed, that ends by _exit or a signal, or that runs as
# another user than root takes its counts with it; so a line that only such a process runs stands here as run by none.
# Where an exception may leave a call is no branch here: there is one behind nearly every line.
# Exit code 0 also when tests fail, which is said: they have other tests' patience with a slow build.
set -eu
caller=$PWD
. "$(dirname "$0")/common.sh"

tests=
targets=all
run=yes
output=
while [ $# -gt 0 ]; do
  case "$1" in
    --no-run) run=no; shift; continue ;;
    --tests | --targets | --output) [ $# -ge 2 ] || fail "$1 needs a value" ;;
    *) fail "unknown option: $1" ;;
  esac
  case "$1" in
    --tests) tests=$2 ;;
    --targets) targets=$2 ;;
    --output) output=$(cd "$caller" && realpath "$2") ;;
  esac
  shift 2
done

build=$project/build/coverage
if [ "$run" = yes ]; then
  scripts/setup.sh
  [ "$(id -u)" -eq 0 ] || say "coverage.sh: not run as root: the tests that run the engine will be skipped"
  cmake --preset coverage >/dev/null
  # shellcheck disable=SC2086 # several targets
  cmake --build --preset coverage --parallel "$jobs" --target $targets >&2
  find "$build" -name '*.gcda' -delete
  ctest --preset coverage --parallel "$jobs" --output-log "$build/tests.log" ${tests:+--tests-regex "$tests"} >/dev/null ||
    say "coverage.sh: some tests failed; see $build/tests.log"
fi
[ -d "$build" ] || fail "nothing was built; run it without --no-run"
exec python3 scripts/coverage.py "$project" "$build" ${output:+"$output"}
