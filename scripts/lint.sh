#!/bin/sh
# Checks the layout of every source and the locks of the programs, and lints: all that the release build compiles, or with
# --changed what was changed. Findings are errors.
#
#   lint.sh [--changed [BASE]] [--minutes N]
#
# --changed: what differs from the commit BASE, uncommitted and new files included. Without BASE that is where this branch left
#            origin/main; on origin/main itself, and where there is none, the commit ten before the last.
# --minutes: begins with no further file after so many minutes and says which ones were left out. What was changed last is
#            looked at first.
set -eu
. "$(dirname "$0")/common.sh"

changed=no
base=
minutes=
while [ $# -gt 0 ]; do
  case "$1" in
    --changed) changed=yes; case "${2:---}" in --*) ;; *) base=$2; shift ;; esac ;;
    --minutes) [ $# -ge 2 ] || fail "--minutes needs a number"; minutes=$2; shift ;;
    *) fail "unknown option: $1" ;;
  esac
  shift
done

if [ -n "$base" ] && ! git rev-parse -q --verify "$base^{commit}" >/dev/null; then
  fail "there is no commit $base"
fi

# Where to begin when nobody says: nothing in a folder that is no checkout.
usual_base() {
  git rev-parse --git-dir >/dev/null 2>&1 || return 0
  head=$(git rev-parse HEAD)
  fork=$(git merge-base origin/main HEAD 2>/dev/null || echo "$head")
  if [ "$fork" != "$head" ]; then
    echo "$fork"
  else
    git rev-list --first-parent --max-count=11 HEAD | tail -n 1
  fi
}

# The changed files, those changed last first.
changed_files() {
  {
    git ls-files --others --exclude-standard
    git diff --name-only --diff-filter=d HEAD
    git log --format= --name-only "$base..HEAD"
  } | awk '!seen[$0]++'
}

# What clang-tidy is to read for the files on standard input: a source for itself, a header for the source of its name.
sources_for() {
  sed -n 's/\.h$/.cpp/; /\.cpp$/p' | awk '!seen[$0]++' | while read -r source; do
    grep -qF "\"file\": \"$project/$source\"" build/lint/compile_commands.json && printf '%s\n' "$source"
  done
  true
}

scripts/setup.sh --with-lint
failed=
looked_at="layout, locks and lint"
find InstallationDeployer frontend general tools tests benchmarks fuzz \( -name '*.cpp' -o -name '*.h' \) -print0 |
  xargs -0 clang-format --dry-run -Werror || failed="$failed layout"

# The other compiler knows which lock guards what.
cmake --preset clang >/dev/null
cmake --build --preset clang --parallel "$jobs" --target InstallationDeployer Installer installer-tool ||
  failed="$failed threads"

# Each file is read by itself here, so that it has to include what it uses.
cmake --preset release -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
if [ "$changed" = no ]; then
  # The sources stand in the compile commands, one "file" per entry.
  sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json | sort -u >build/lint/sources
else
  [ -n "$base" ] || base=$(usual_base)
  if [ -n "$base" ]; then
    changed_files | sources_for >build/lint/sources
    say "linting $(wc -l <build/lint/sources) sources changed since $(git rev-parse --short "$base")"
  else
    : >build/lint/sources
    looked_at="layout and locks"
    say "this is no checkout: nothing is linted"
  fi
fi

rm -f build/lint/left-out
deadline=0
[ -z "$minutes" ] || deadline=$(($(date +%s) + minutes * 60))
# The compile commands are gcc's, which knows warnings that clang-tidy does not.
# shellcheck disable=SC2016 # for the shell of each file
xargs -r -d '\n' -n 1 -P "$jobs" sh -c '
  if [ "$0" -ne 0 ] && [ "$(date +%s)" -ge "$0" ]; then
    echo "$1" >>build/lint/left-out
    exit 0
  fi
  clang-tidy --quiet -p build/lint --extra-arg=-Wno-unknown-warning-option "$1"
' "$deadline" <build/lint/sources || failed="$failed lint"

[ -z "$failed" ] || fail "findings in:$failed"
if [ -e build/lint/left-out ]; then
  say "layout and locks are clean, and so is what there was time to lint; left out:"
  cat build/lint/left-out
else
  say "$looked_at are clean"
fi
