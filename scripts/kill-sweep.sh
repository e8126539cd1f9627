#!/bin/sh
# Kills runs at every change that they make to names and attributes, not only at the sample of every test run, and goes
# each of three ways from what is left; then kills one run after the other, as chance has it. Takes an hour or more.
# Needs root.
#
# kill-sweep.sh [FLOW...]: Install, Upgrade, Downgrade, Repair, Removal, CrossGrade or RemovalOfTheNewer; all by default.
set -eu
. "$(dirname "$0")/common.sh"

[ "$(id -u)" -eq 0 ] || fail "run this as root: the engine installs as root"
filter=
for flow in "${@:-*}"; do
  filter="$filter:*EachOfThreeWays/$flow:*KilledChain*/$flow"
done
scripts/build.sh release killed_pair_tests
CORVANE_MOMENTS=all exec build/release/bin/killed_pair_tests --gtest_filter="${filter#:}"
