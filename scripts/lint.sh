#!/bin/sh
# Checks layout and locks, and lints every source that the release build compiles. Findings are errors.
set -eu
. "$(dirname "$0")/common.sh"

scripts/setup.sh --with-lint
failed=
find InstallationDeployer frontend general tools tests benchmarks fuzz \( -name '*.cpp' -o -name '*.h' \) -print0 |
  xargs -0 clang-format --dry-run -Werror || failed="$failed layout"

# The other compiler knows which lock guards what.
cmake --preset clang >/dev/null
cmake --build --preset clang --parallel "$jobs" --target InstallationDeployer Installer installer-tool ||
  failed="$failed threads"

# Each file is read by itself here, so that it has to include what it uses.
cmake --preset release -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
# The compile commands are gcc's, which knows warnings that clang-tidy does not.
# The sources stand in the compile commands, one "file" per entry.
sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json | sort -u |
  xargs -d '\n' -n 1 -P "$jobs" clang-tidy --quiet -p build/lint --extra-arg=-Wno-unknown-warning-option || failed="$failed lint"

[ -z "$failed" ] || fail "findings in:$failed"
say "layout, locks and lint are clean"
