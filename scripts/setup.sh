#!/bin/sh
# Installs what building and testing need on Debian 12. Does nothing, quickly, when all of it is there.
set -eu

usage() {
  echo "usage: setup.sh [--with-lint] [--with-benchmarks] [--with-fuzz]"
}

# Python is for the front end that a test writes from docs/protocol.md alone.
packages="g++ cmake ninja-build libpugixml-dev libcli11-dev libgtest-dev libbenchmark-dev libssl-dev python3"
for option in "$@"; do
  case "$option" in
    --with-lint) packages="$packages clang clang-format clang-tidy" ;;
    --with-benchmarks) packages="$packages rpm dpkg-dev time" ;;
    --with-fuzz) packages="$packages clang libclang-rt-14-dev" ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
done

is_installed() {
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

if ! command -v dpkg-query >/dev/null; then
  echo "setup.sh: this is no Debian system; what must be there: $packages" >&2
  exit 0
fi

missing=
for package in $packages; do
  is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup.sh: not installed:$missing. Run this as root, or install them." >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update
# shellcheck disable=SC2086 # one word per package
apt-get install -y --no-install-recommends $missing
