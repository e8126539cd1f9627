#!/bin/sh
# Lays out every source as .clang-format says.
set -eu
. "$(dirname "$0")/common.sh"

scripts/setup.sh --with-lint
find InstallationDeployer frontend general tools tests benchmarks fuzz \( -name '*.cpp' -o -name '*.h' \) -print0 |
  xargs -0 clang-format -i
