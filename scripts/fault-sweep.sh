#!/bin/sh
# Lets every system call of runs over small products fail once, with each error that it really gives, and looks at what
# comes of it and at every way on: the same command, the other version, the removal. Builds the release preset first.
#
#   scripts/fault-sweep.sh [--flows A,B] [--calls A,B] [--jobs N] [--minutes M] [--sample I/K] [--output FILE]
#   scripts/fault-sweep.sh --one "upgrade engine rename 7 EIO"
#   scripts/fault-sweep.sh --calls allocation
#
# The last lets allocations of memory fail in place of calls. Where one was asked for is shown as offsets into the
# program, for addr2line.
#
# Prints a table: for each flow how many faults there were, and after how many of them something was wrong. What was
# wrong after which fault stands in the file, one line each, beginning with the text that --one takes to repeat it. All
# of it are tens of thousands of faults and take about an hour on two idle processors.
# Exit code 1: something was wrong; 125: no calls can be made to fail here, with the reason.
set -eu
caller=$PWD
. "$(dirname "$0")/common.sh"

[ "$(id -u)" -eq 0 ] || fail "only root can run engines in a private root"
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$jobs" --target fault-sweep >&2
sweep=$project/build/release/bin/fault-sweep
cd "$caller"
# Runs wait more than they compute: two for each processor.
exec "$sweep" --jobs "$((jobs * 2))" "$@"
