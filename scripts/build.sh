#!/bin/sh
# Builds the engine and the packagers' tool: build.sh [preset [target...]]
set -eu
. "$(dirname "$0")/common.sh"

preset=${1:-release}
[ $# -eq 0 ] || shift
[ $# -ne 0 ] || set -- InstallationDeployer Installer installer-tool

scripts/setup.sh
cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$jobs" --target "$@"
say "built in build/$preset/bin: $*"
