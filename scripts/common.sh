# Shared by the scripts beside it; sourced, not run.

project=$(cd "$(dirname "$0")/.." && pwd)

# The commands of the project are run from its top folder, wherever the caller is.
cd "$project"

jobs=$(nproc 2>/dev/null || echo 2)

say() {
  printf '%s\n' "$*"
}

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}
