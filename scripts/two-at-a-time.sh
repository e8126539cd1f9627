#!/bin/sh
# Runs engines on one product at the same time, in private root directories: each pair of install, upgrade, downgrade and
# removal, all four together, and three of which one is killed, each round a few milliseconds apart in another way. After
# each round everything has to be that of the receipt.
# two-at-a-time.sh [rounds of each pair (100) [rounds of more (20) [preset (release)]]]
set -eu
. "$(dirname "$0")/common.sh"

[ "$(id -u)" -eq 0 ] || fail "only root can make a private root directory"
CORVANE_ROUNDS_OF_TWO=${1:-100}
CORVANE_ROUNDS_OF_MORE=${2:-20}
export CORVANE_ROUNDS_OF_TWO CORVANE_ROUNDS_OF_MORE
preset=${3:-release}

scripts/build.sh "$preset" two_at_a_time_tests
say "== $CORVANE_ROUNDS_OF_TWO rounds of each pair, $CORVANE_ROUNDS_OF_MORE rounds of more =="
"build/$preset/bin/two_at_a_time_tests" --gtest_brief=1
