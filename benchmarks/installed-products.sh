# For run.sh, which reads this file: what is done to a product that is installed already, by the whole engine and with
# the receipt. An install that finds nothing to do, an upgrade of one component in 500, and an engine that waits.

components=500
changed=250
receipt="/Library/Application Support/Corvane/$product/Installer.app"
idle_seconds=5

# 100,000 empty files, the same number for each component; those of the one that will change have content.
stage_components() {
  "$bin/generate-payload" many "$scale" "$work/staged"
  set -- "$work"/staged/opt/benchmark/group-*/folder-*
  share=$(($# / components))
  component=0
  while [ "$component" -lt "$components" ]; do
    home=$work/components/$component/opt/benchmark/component-$component
    mkdir -p "$home"
    taken=0
    while [ "$taken" -lt "$share" ]; do
      mv "$1" "$home"
      shift
      taken=$((taken + 1))
    done
    component=$((component + 1))
  done
  rm -r "$work/staged" "$work/components/$changed"
  "$bin/generate-payload" tiny $((200 * scale)) "$work/components/$changed"
  files=$(find "$work/components" -type f | wc -l)
  changed_files=$(find "$work/components/$changed" -type f | wc -l)
}

# describe_components VERSION-OF-THE-CHANGED
describe_components() {
  component=0
  while [ "$component" -lt "$components" ]; do
    version=1
    [ "$component" -ne "$changed" ] || version=$1
    describe_component "Component-$component" "$version" "components/$component"
    component=$((component + 1))
  done
}

# The product in two versions, and the changed component by itself.
make_versions() {
  describe_components 1 | build_bundle "$work/versions/1"
  find "$work/components/$changed" -type f | while read -r file; do echo changed >>"$file"; done
  describe_components 2 | build_bundle "$work/versions/2"
  describe_component "Component-$changed" 2 "components/$changed" | build_bundle "$work/versions/fresh"
}

# timed_install WAY VERSION MESSAGE: an install must say this, or its time means nothing.
timed_install() {
  # What was written before is not this one's to wait for.
  sync
  timed "$1" --root "$work/root" "$work/$1.times" "$work/output" \
    "/versions/$2/Installer.app/Contents/MacOS/InstallationDeployer" --install --product_name "$product"
  grep -q "$3" "$work/output" || { echo "run.sh: $1 did not say: $3" >&2; exit 1; }
}

timed_fresh_install() {
  mv "$work/root" "$work/root-of-product"
  make_root
  cp -al "$work/versions" "$work/root/versions"
  timed_install fresh fresh "Fresh install of the \"$product\" product"
  rm -rf "$work/root"
  mv "$work/root-of-product" "$work/root"
}

# timed_receipt VERSION: the receipt that is there is replaced with an equal one.
timed_receipt() {
  sync
  timed receipt --root "$work/root" "$work/receipt.times" "$work/output" /step-driver write-receipt \
    "/versions/$1/Installer.app" "$product" --has-receipt "Component-$changed"
  grep -q '^success=1' "$work/output" || { echo "run.sh: the receipt could not be written" >&2; exit 1; }
}

report_upgrade() {
  validation=$(median "$work/validate.times" 1)
  nothing=$(median "$work/nothing.times" 1)
  fresh=$(median "$work/fresh.times" 1)
  receipt_written=$(median "$work/receipt.times" 1)
  upgrade=$(median "$work/upgrade.times" 1)
  printf '\nupgrade on %s: %s files in %s components, %s of them in the changed one, %s rounds\n' \
    "$place" "$files" "$components" "$changed_files" "$rounds"
  printf '  %-44s %8.3f s\n' "validation" "$validation" "install with nothing to do" "$nothing" \
    "fresh install of the changed component" "$fresh" \
    "replacement of the receipt" "$receipt_written" "upgrade" "$upgrade"
  sum=$(awk -v a="$nothing" -v b="$fresh" 'BEGIN { print a + b }')
  added=$(awk -v a="$nothing" -v b="$validation" 'BEGIN { print a - b }')
  whole=$(awk -v a="$sum" -v b="$receipt_written" 'BEGIN { print a + b }')
  printf '  %-44s %8.2f\n' "upgrade / (nothing to do + fresh install)" "$(ratio "$upgrade" "$sum")" \
    "upgrade / (these + replacement of the receipt)" "$(ratio "$upgrade" "$whole")"
  [ "$place" = tmpfs ] && [ "$scale" -eq 1 ] || return 0
  target "upgrade / what it consists of" "$(ratio "$upgrade" "$whole")" 1.10
  target "seconds that nothing to do adds" "$added" 1
}

measure_upgrade() {
  place=$1
  work=$(mktemp -d "$(parent_of "$1")/corvane-benchmark.XXXXXX")
  stage_components
  make_versions
  make_root
  cp "$bin/step-driver" "$work/root/step-driver"
  cp -al "$work/versions" "$work/root/versions"
  timed_install first 1 "Fresh install of the \"$product\" product"
  # shellcheck disable=SC2046 # names without spaces
  set -- $(awk -v count="$components" 'BEGIN { for (i = 0; i < count; ++i) print "Component-" i }')
  installed=1
  round=0
  while [ "$round" -lt "$rounds" ]; do
    sync
    timed validate --root "$work/root" "$work/validate.times" "$work/output" \
      /step-driver validate "$receipt" "$product" "$@"
    grep -q '^plan=()$' "$work/output" || { echo "run.sh: the installed files are not valid" >&2; exit 1; }
    timed_install nothing "$installed" 'Empty plan. Nothing to install'
    # The other version, whichever is there: versions are compared for equality only.
    installed=$((3 - installed))
    timed_install upgrade "$installed" "Adding changed component Component-$changed to upgrade plan"
    timed_fresh_install
    timed_receipt "$installed"
    round=$((round + 1))
  done
  report_upgrade
  rm -rf "$work"
  work=
}

# wait_for TEXT FILE PROCESS: until the process has written it.
wait_for() {
  until grep -q "$1" "$2"; do
    kill -0 "$3" 2>/dev/null || { echo "run.sh: a process ended before it said: $1" >&2; exit 1; }
    sleep 0.1
  done
}

# The engine has done its work, and is followed by a watcher that does not yet say that it saw the end.
measure_idle_engine() {
  work=$(mktemp -d "${CORVANE_BENCHMARK_TMPFS:-/dev/shm}/corvane-benchmark.XXXXXX")
  "$bin/generate-payload" tiny 1000 "$work/staged"
  make_bundle
  make_root
  cp -al "$work/Installer.app" "$work/root/Installer.app"
  cp "$bin/status-watcher" "$work/root/status-watcher"
  : >"$work/output"
  : >"$work/watcher"
  chroot "$work/root" /Installer.app/Contents/MacOS/InstallationDeployer --ui --install --product_name "$product" \
    >"$work/output" 2>&1 &
  engine=$!
  wait_for 'self.runLoopShouldKeepRunning = 1' "$work/output" "$engine"
  chroot "$work/root" /status-watcher "$engine" observe await-end >"$work/watcher" 2>&1 &
  watcher=$!
  wait_for observing "$work/watcher" "$watcher"
  round=0
  while [ "$round" -lt "$rounds" ]; do
    "$bin/idle-process" "$engine" "$idle_seconds" >>"$work/calls"
    round=$((round + 1))
  done
  chroot "$work/root" /status-watcher "$engine" shutdown >"$work/shutdown" 2>&1
  wait "$engine" "$watcher"
  engine=
  printf '\nan engine that waits for its watcher: %s seconds, %s rounds\n' "$idle_seconds" "$rounds"
  # A window holds one turn more than its length when it opens just before one.
  target "wake-ups a second" "$(called wake-ups-per-second)" "$(ratio $((2 * idle_seconds + 1)) "$idle_seconds")"
  target "milliseconds of processor time a second" "$(called processor-milliseconds-per-second)" 1
  rm -rf "$work"
  work=
}
