#!/bin/sh
# Measures installs against other ways of putting the same files on disk: tar, rpm, dpkg, and cp with sha256sum.
# All ways take turns in every round, each into a root directory of its own; the medians are compared.
# Also validation and removal of what is installed, beside those of rpm, dpkg and rm (installed-files.sh), upgrades of
# an installed product and what an engine spends while it waits (installed-products.sh), and how fast an engine and its
# watchers talk to each other, beside a bare pair of sockets.
#
# run.sh [--quick] [--rounds N] [--only KIND]... [--place tmpfs|disk] [--bin FOLDER]
set -eu

usage() {
  cat <<'END'
usage: run.sh [--quick] [--rounds N] [--only KIND] [--place tmpfs|disk] [--bin FOLDER]
  --quick        2 rounds on a tenth of the files
  --rounds N     rounds of every measurement (5)
  --only KIND    only this: big, mixed, tiny (installs of such files), validation, removal (of installed files),
                 upgrade (of one component in 500, and an install that finds nothing to do),
                 ipc (the talk between processes), idle (an engine that waits for its watcher)
  --place PLACE  this kind of file system only
  --bin FOLDER   programs that are built already
Folders for the work: CORVANE_BENCHMARK_TMPFS (/dev/shm) and CORVANE_BENCHMARK_DISK (/var/tmp).
END
}

here=$(cd "$(dirname "$0")" && pwd)
rounds=5
scale=1
kinds="big mixed tiny validation removal upgrade ipc idle"
places="tmpfs disk"
bin=
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) rounds=2 scale=10 ;;
    --rounds) rounds=$2; shift ;;
    --only) kinds=$2; shift ;;
    --place) places=$2; shift ;;
    --bin) bin=$(cd "$2" && pwd); shift ;;
    --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
  shift
done

[ "$(id -u)" -eq 0 ] || { echo "run.sh: only root can give files their owners" >&2; exit 1; }
if [ -z "$bin" ]; then
  "$here/../scripts/setup.sh" --with-benchmarks
  "$here/../scripts/build.sh" release InstallationDeployer installer-tool generate-payload timed-run manifest-queries \
    remote-calls step-driver status-watcher idle-process ManifestParseBenchmark
  bin=$here/../build/release/bin
fi

product="Benchmark"
name="benchmark-payload"
work=
engine=
clean_up() {
  [ -z "$engine" ] || kill -KILL "$engine" 2>/dev/null || :
  [ -z "$work" ] || rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

# What the others unpack, and what the engine installs from; all made of the same staged folder.
make_tar() { tar -C "$work/staged" -cf "$work/payload.tar" .; }

make_rpm() {
  cat >"$work/payload.spec" <<END
Name: $name
Version: 1
Release: 1
Summary: Files for a measurement
License: none
BuildArch: noarch
AutoReqProv: no
%description
Files for a measurement.
%install
mkdir -p %{buildroot}
cp -a $work/staged/. %{buildroot}
%files
%defattr(-,root,root)
/opt/benchmark
END
  rpmbuild -bb --buildroot "$work/buildroot" \
    --define "_topdir $work/rpmbuild" --define "_rpmdir $work" --define "_rpmfilename payload.rpm" \
    --define "_binary_payload w0.ufdio" --define "_binary_filedigest_algorithm 8" \
    --define "_source_filedigest_algorithm 8" --define "_build_id_links none" \
    --define "__os_install_post %{nil}" --define "debug_package %{nil}" --define "_build_pkgcheck_set %{nil}" \
    "$work/payload.spec" >"$work/rpmbuild.log" 2>&1 || { cat "$work/rpmbuild.log" >&2; return 1; }
  rm -rf "$work/rpmbuild" "$work/buildroot"
}

make_deb() {
  mkdir -p "$work/staged/DEBIAN"
  cat >"$work/staged/DEBIAN/control" <<END
Package: $name
Version: 1
Architecture: all
Maintainer: Benchmark <benchmark@example.com>
Description: Files for a measurement
END
  dpkg-deb -Znone --build "$work/staged" "$work/payload.deb" >/dev/null
  rm -r "$work/staged/DEBIAN"
}

make_sums() { (cd "$work/staged" && find . -type f -exec sha256sum {} +) >"$work/sums"; }

# describe_component NAME VERSION STAGED-FOLDER: its part of a bundle's description.
describe_component() {
  cat <<END
    <dict>
      <key>Name</key><string>$1</string>
      <key>Version</key><string>$2</string>
      <key>StagedFolder</key><string>$3</string>
      <key>Products</key><array><string>$product</string></array>
    </dict>
END
}

# build_bundle FOLDER: the parts of its components come from standard input.
build_bundle() {
  {
    cat <<END
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
  <key>FrontEnd</key><string>FrontEnd</string>
  <key>Components</key>
  <array>
END
    cat
    cat <<END
  </array>
  <key>Options</key><dict><key>ReceiptHasPayloadContents</key><false/></dict>
</dict>
</plist>
END
  } >"$work/Description.plist"
  printf '#!/bin/sh\n' >"$work/FrontEnd"
  chmod 755 "$work/FrontEnd"
  mkdir -p "$1"
  "$bin/installer-tool" build --quiet "$work/Description.plist" --output "$1"
}

make_bundle() { describe_component Files 1 staged | build_bundle "$work"; }

# An empty root in which the engine finds its bundle and the C library, the only thing it needs.
make_root() {
  rm -rf "$work/root"
  mkdir -p "$work/root/proc" "$work/root/dev" "$work/root/bin" "$work/root/Library"
  ldd "$bin/InstallationDeployer" | grep -o '/[^ ]*' | while read -r library; do
    mkdir -p "$work/root$(dirname "$library")"
    cp -L "$library" "$work/root$library"
  done
  mkdir -p "$work/root/var/lib/rpm" "$work/root/var/lib/dpkg/updates" "$work/root/var/lib/dpkg/info" "$work/root/tmp"
  : >"$work/root/var/lib/dpkg/status"
  : >"$work/root/var/lib/dpkg/available"
}

timed() {
  result=$1
  shift
  if ! "$bin/timed-run" "$@"; then
    echo "run.sh: $result failed:" >&2
    tail -n 20 "$work/output" >&2
    exit 1
  fi
}

run_way() {
  case "$1" in
    install)
      # Other names for the same files: making them is not what is measured.
      cp -al "$work/Installer.app" "$work/root/Installer.app"
      timed install --root "$work/root" "$work/install.times" "$work/output" \
        /Installer.app/Contents/MacOS/InstallationDeployer --install --product_name "$product"
      ;;
    tar) timed tar "$work/tar.times" "$work/output" tar -C "$work/root" -xf "$work/payload.tar" ;;
    rpm)
      timed rpm "$work/rpm.times" "$work/output" rpm --root "$work/root" --nodeps --ignorearch -i "$work/payload.rpm"
      ;;
    dpkg)
      timed dpkg "$work/dpkg.times" "$work/output" dpkg --root="$work/root" --force-depends --unpack \
        "$work/payload.deb"
      ;;
    cp)
      # shellcheck disable=SC2016 # the inner shell expands these
      timed cp "$work/cp.times" "$work/output" sh -c 'cp -a "$1/." "$2" && cd "$2" && sha256sum --quiet -c "$3"' sh \
        "$work/staged" "$work/root" "$work/sums"
      ;;
  esac
}

# Every way must have put every file there, or its time means nothing.
check_root() {
  found=$(find "$work/root/opt/benchmark" -type f | wc -l)
  [ "$found" -eq "$files" ] || { echo "run.sh: $1 installed $found files of $files" >&2; exit 1; }
}

median() { awk -v column="$2" '{ print $column }' "$1" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
most() { awk -v column="$2" '$column > most { most = $column } END { print most }' "$1"; }

# target NAME REACHED MOST: one line that says whether a goal is reached.
target() {
  awk -v name="$1" -v reached="$2" -v most="$3" 'BEGIN {
    printf "  %-44s %6.2f  (at most %.2f)  %s\n", name, reached, most, reached <= most ? "reached" : "MISSED" }'
}
# at_least NAME REACHED LEAST: the same for a goal that is to be exceeded.
at_least() {
  awk -v name="$1" -v reached="$2" -v least="$3" 'BEGIN {
    printf "  %-44s %6.0f  (at least %d)  %s\n", name, reached, least, (reached >= least ? "reached" : "MISSED") }'
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }

report() {
  install=$(median "$work/install.times" 1)
  printf '\n%s on %s: %s files, %s MB, %s rounds\n' "$kind" "$place" "$files" "$megabytes" "$rounds"
  printf '  %-10s %9s %16s\n' way seconds "install is ... of"
  for way in install tar rpm dpkg cp; do
    seconds=$(median "$work/$way.times" 1)
    printf '  %-10s %9.3f %16.2f\n' "$way" "$seconds" "$(ratio "$install" "$seconds")"
  done
  memory=$(($(most "$work/install.times" 2) / 1024))
  largest=$(($(find "$work/staged" -type f -printf '%s\n' | sort -n | tail -n 1) / 1048576))
  manifests=$(median "$work/manifests.times" 1)
  [ "$place" = tmpfs ] && [ "$scale" -eq 1 ] || { printf '  peak memory %s MB, manifests %s s\n' "$memory" "$manifests"; return 0; }
  tar=$(median "$work/tar.times" 1)
  rpm=$(median "$work/rpm.times" 1)
  case "$kind" in
    big) target "install / tar" "$(ratio "$install" "$tar")" 1.10 ;;
    mixed)
      target "install / tar" "$(ratio "$install" "$tar")" 0.85
      target "install / rpm" "$(ratio "$install" "$rpm")" 0.60
      ;;
    tiny)
      target "install / tar" "$(ratio "$install" "$tar")" 0.85
      target "install / rpm" "$(ratio "$install" "$rpm")" 0.50
      ;;
  esac
  target "share of manifests in an install" "$(ratio "$manifests" "$install")" 0.15
  target "peak memory in MB" "$memory" $((largest + 300))
}

# The folder that stands for a kind of file system.
parent_of() {
  case "$1" in
    tmpfs) echo "${CORVANE_BENCHMARK_TMPFS:-/dev/shm}" ;;
    disk) echo "${CORVANE_BENCHMARK_DISK:-/var/tmp}" ;;
    *) usage >&2; exit 2 ;;
  esac
}

measure() {
  place=$1
  kind=$2
  work=$(mktemp -d "$(parent_of "$place")/corvane-benchmark.XXXXXX")
  "$bin/generate-payload" "$kind" "$scale" "$work/staged"
  files=$(find "$work/staged" -type f | wc -l)
  megabytes=$(($(du -sk "$work/staged" | cut -f1) / 1024))
  make_tar
  make_rpm
  make_deb
  make_sums
  make_bundle
  round=0
  while [ "$round" -lt "$rounds" ]; do
    for way in install tar rpm dpkg cp; do
      make_root
      # What the last one left to write, and to free, is not this one's to wait for.
      sync
      sleep 1
      run_way "$way"
      check_root "$way"
    done
    timed manifests "$work/manifests.times" "$work/output" "$bin/manifest-queries" "$work/Installer.app" "$product"
    round=$((round + 1))
  done
  report
  rm -rf "$work"
  work=
}

# The median of a fact that the rounds of remote-calls wrote down.
called() {
  grep "^$1 " "$work/calls" >"$work/fact"
  median "$work/fact" 2
}

# measure_calls PLACEMENT: both processes wherever the system puts them, or together on one processor.
measure_calls() {
  work=$(mktemp -d "${CORVANE_BENCHMARK_TMPFS:-/dev/shm}/corvane-benchmark.XXXXXX")
  round=0
  while [ "$round" -lt "$rounds" ]; do
    "$bin/remote-calls" "$1" $((100000 / scale)) $((1000 / scale)) >>"$work/calls"
    round=$((round + 1))
  done
  calls=$(called round-trips-per-second)
  bare=$(called bare-socket-round-trips-per-second)
  printf '\ntalk between two processes, %s: %s rounds\n' "$1" "$rounds"
  printf '  %-44s %8.0f a second\n' "authenticated calls" "$calls" "round trips over a bare pair of sockets" "$bare"
  printf '  %-44s %8.2f\n' "calls / bare round trips" "$(ratio "$calls" "$bare")"
  # Elsewhere the time that an idle processor takes to wake decides, for bare sockets too.
  [ "$1" = anywhere ] || at_least "authenticated calls a second" "$calls" 20000
  target "milliseconds to an engine that watches" "$(ratio "$(called notification-microseconds)" 1000)" 1
  target "milliseconds to a front end that watches" "$(ratio "$(called connection-notification-microseconds)" 1000)" 1
  rm -rf "$work"
  work=
}

. "$here/installed-files.sh"
. "$here/installed-products.sh"

payloads=
for what in $kinds; do
  case "$what" in
    ipc)
      measure_calls anywhere
      measure_calls together
      ;;
    idle) measure_idle_engine ;;
    *) payloads="$payloads $what" ;;
  esac
done
[ -n "$payloads" ] || exit 0

for where in $places; do
  for what in $payloads; do
    case "$what" in
      validation | removal) measure_installed_files "$where" "$what" ;;
      upgrade) measure_upgrade "$where" ;;
      *) measure "$where" "$what" ;;
    esac
  done
done

printf '\nparsing a component manifest\n'
"$bin/ManifestParseBenchmark"
