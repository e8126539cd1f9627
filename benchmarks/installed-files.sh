# For run.sh, which reads this file: what is done to files that are installed already.
# Validation of 100,000 files beside rpm's, removal of 40,000 files beside dpkg's and rm's.

# The single steps of the engine, run without the rest of an install.
place_step() {
  cp "$bin/step-driver" "$work/root/step-driver"
  cp -al "$work/Installer.app" "$work/root/Installer.app"
}
timed_step() { timed "$1" --root "$work/root" "$work/$1.times" "$work/output" "/step-driver" "$1" /Installer.app "$product" Files; }

begin_installed_files() {
  work=$(mktemp -d "$(parent_of "$1")/corvane-benchmark.XXXXXX")
  "$bin/generate-payload" "$2" "$scale" "$work/staged"
  files=$(find "$work/staged" -type f | wc -l)
  make_bundle
}

# report_installed_files WAY OTHER...: medians, and what the way takes of each other one.
report_installed_files() {
  printf '\n%s on %s: %s files, %s rounds\n' "$kind" "$place" "$files" "$rounds"
  own=$(median "$work/$1.times" 1)
  way=$1
  printf '  %-10s %9.3f s, %s MB\n' "$way" "$own" $(($(most "$work/$way.times" 2) / 1024))
  shift
  for other in "$@"; do
    seconds=$(median "$work/$other.times" 1)
    printf '  %-10s %9.3f s, %s is %.2f of it\n' "$other" "$seconds" "$way" "$(ratio "$own" "$seconds")"
  done
}
# target_of WAY OTHER MOST: goals are set for memory and the full number of files.
target_of() {
  [ "$place" = tmpfs ] && [ "$scale" -eq 1 ] || return 0
  target "$1 / $2" "$(ratio "$(median "$work/$1.times" 1)" "$(median "$work/$2.times" 1)")" "$3"
}

measure_validation() {
  begin_installed_files "$place" many
  make_rpm
  make_root
  rpm --root "$work/root" --nodeps --ignorearch -i "$work/payload.rpm"
  check_root rpm
  place_step
  round=0
  while [ "$round" -lt "$rounds" ]; do
    timed_step validate
    grep -q '^plan=()$' "$work/output" || { echo "run.sh: the installed files are not valid" >&2; exit 1; }
    timed rpm "$work/rpm.times" "$work/output" rpm --root "$work/root" -V --nodeps --nofiledigest "$name"
    round=$((round + 1))
  done
  report_installed_files validate rpm
  target_of validate rpm 0.70
}

# The same files in the same place for every way; dpkg has to have put them there itself.
install_for() {
  make_root
  case "$1" in
    dpkg) dpkg --root="$work/root" --force-depends --unpack "$work/payload.deb" >"$work/output" 2>&1 ;;
    *) cp -a "$work/staged/." "$work/root" ;;
  esac
  check_root "$1"
}

run_removal() {
  case "$1" in
    remove) timed_step remove ;;
    dpkg) timed dpkg "$work/dpkg.times" "$work/output" dpkg --root="$work/root" --force-depends --remove "$name" ;;
    rm) timed rm "$work/rm.times" "$work/output" rm -rf "$work/root/opt/benchmark" ;;
  esac
  [ ! -e "$work/root/opt/benchmark" ] || { echo "run.sh: $1 left files behind" >&2; exit 1; }
}

measure_removal() {
  begin_installed_files "$place" tiny
  make_deb
  round=0
  while [ "$round" -lt "$rounds" ]; do
    for way in remove dpkg rm; do
      install_for "$way"
      place_step
      # What making the tree left to write is not the removal's to wait for.
      sync
      sleep 1
      run_removal "$way"
    done
    round=$((round + 1))
  done
  report_installed_files remove dpkg rm
  target_of remove dpkg 0.60
  target_of remove rm 1.50
}

measure_installed_files() {
  place=$1
  kind=$2
  "measure_$kind"
  rm -rf "$work"
  work=
}
