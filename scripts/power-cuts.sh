#!/bin/sh
# Cuts the power in the middle of runs: a machine's root lies on a file that is a block device, the file is copied at a
# moment of a run, with what the device had received by then, and a machine is started from the copy. Nothing may be lost
# that a run has vouched for, and each way of going on has to end with exactly what it promises. The host is not touched.
# Needs root, loop devices, and mkfs.ext4, mkfs.xfs or mkfs.btrfs; what is missing is skipped, with its reason.
#
# power-cuts.sh [--moments NUMBER] [--seed NUMBER] [FILE-SYSTEM...]: so many cuts in each flow on each file system.
set -eu
. "$(dirname "$0")/common.sh"

moments=200
seed=1
systems=
while [ $# -gt 0 ]; do
  case $1 in
    --moments) moments=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    -*) fail "usage: power-cuts.sh [--moments NUMBER] [--seed NUMBER] [FILE-SYSTEM...]" ;;
    *) systems="$systems $1"; shift ;;
  esac
done
[ -n "$systems" ] || systems="ext4 xfs btrfs"
[ "$(id -u)" -eq 0 ] || fail "run this as root: it mounts"

scripts/build.sh release power-cuts
# Memory is faster, and keeps a device's bytes in one place.
folder=${TMPDIR:-/tmp}
[ ! -w /dev/shm ] || folder=/dev/shm

wrong=
for system in $systems; do
  status=0
  build/release/bin/power-cuts --file-system "$system" --moments "$moments" --seed "$seed" --folder "$folder" || status=$?
  case $status in
    0) ;;
    77) ;; # said why
    *) wrong="$wrong $system" ;;
  esac
done
[ -z "$wrong" ] || fail "not as promised on$wrong"
