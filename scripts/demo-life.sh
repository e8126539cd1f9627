#!/bin/sh
# The whole life of the example products of examples/Life, for scripts/demo.sh: runs inside the private root directory,
# as root, with the three bundles below /Volumes. Every step says what it does and compares the tree with the one before;
# the exit code is 1 when anything is not as expected. Never run it on a machine of your own: it installs.
set -u
LC_ALL=C
export LC_ALL

receipts="/Library/Application Support/Corvane"
work=/tmp/demo-life
mkdir -p "$work"
wrong=0
number=0

step() {
  number=$((number + 1))
  printf '\n-- %d. %s --\n' "$number" "$*"
}
good() {
  printf '   ok: %s\n' "$*"
}
bad() {
  printf '   NOT AS EXPECTED: %s\n' "$*"
  wrong=$((wrong + 1))
}
# require WORDS COMMAND...: the command must succeed.
require() {
  words=$1
  shift
  if "$@"; then good "$words"; else bad "$words"; fi
}

# tree: one line per item of the machine, with type, mode, owner, group, checksum and target, sorted by path. What the
# system itself keeps for a while is not of the machine's tree: processes, devices, /tmp and /run.
tree() {
  find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /run -o -path /usr -o -path /Volumes \
    -o -path /demo \) -prune -o -printf '%p|%y %m %U:%G %l\n' >"$work/items"
  find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /run -o -path /usr -o -path /Volumes \
    -o -path /demo \) -prune -o -type f -exec sha256sum {} + | sed 's/^\([0-9a-f]*\)  \(.*\)$/\2|content \1/' >"$work/contents"
  sort "$work/items" "$work/contents"
}
# changes BEFORE AFTER: the paths that are in one tree only or differ.
changes() {
  diff "$1" "$2" | sed -n 's/^[<>] \(.*\)|[^|]*$/\1/p' | sort -u
}
# expect_changes WORDS: since the last look at the tree, the paths on standard input changed and nothing else did.
# Receipts are looked at by expect_receipts; the front end's log grows with every run.
expect_changes() {
  sort >"$work/expected"
  tree >"$work/after"
  changes "$work/tree" "$work/after" | grep -v -e "^$receipts" -e '^/var/log/com.corvane.installer.log$' >"$work/changed"
  if diff "$work/expected" "$work/changed" >"$work/difference"; then
    good "$1 (compared: $(wc -l <"$work/changed") paths differ, of $(cut -d'|' -f1 "$work/after" | sort -u | wc -l))"
  else
    bad "$1; expected (<) and found (>):"
    sed 's/^/      /' "$work/difference"
  fi
  mv "$work/after" "$work/tree"
}
expect_receipts() {
  printf '%s\n' "$@" | sort >"$work/expected"
  ls "$receipts" | sort >"$work/found"
  require "receipts: $(tr '\n' ',' <"$work/found" | sed 's/,$//; s/,/, /g')" cmp -s "$work/expected" "$work/found"
}
expect_content() {
  require "$1 holds \"$2\"" grep -qxF -- "$2" "$1"
}
# run EXIT-CODE COMMAND...: runs the front end, which shows the run, and checks the exit code.
run() {
  expected=$1
  shift
  "$@" >"$work/shown" 2>&1
  code=$?
  sed 's/^/   | /' "$work/shown"
  require "exit code $code" [ "$code" -eq "$expected" ]
}
front_end() {
  printf '%s/%s' "/Volumes/$1" Installer.app/Contents/MacOS/Installer
}
engines() {
  for process in /proc/[0-9]*; do
    grep -qa 'MacOS/[I]nstall' "$process/cmdline" 2>/dev/null && echo "${process#/proc/}"
  done
}

mkdir -p /Library/LaunchDaemons '/Library/Application Support' /Library/Caches /Users/Shared
echo 'licence of the first year' >/Users/Shared/licence
tree >"$work/first"
cp "$work/first" "$work/tree"
require 'the tree of the machine can be read' grep -q '^/etc/passwd|content [0-9a-f]' "$work/first"

step 'Install Guard 1.0, watched by the front end'
run 0 "$(front_end Guard-1.0)" --product Guard
expect_changes 'every file of 1.0 is there and nothing else changed' <<'PATHS'
/Library/Guard
/Library/Guard/bin
/Library/Guard/bin/guard
/Library/Guard/etc
/Library/Guard/etc/guard.conf
/Library/Guard/etc/licence
/Library/Guard/legacy
/Library/Guard/legacy/converter
/Library/Guard/tools
/Library/Guard/tools/inspect
/Library/LaunchDaemons/com.corvane.guard.plist
PATHS
expect_receipts Guard

step 'Upgrade to 1.1, after the user edited the settings and the administrator renewed the licence'
echo 'level = of the user' >/Library/Guard/etc/guard.conf
echo 'licence of the second year' >/Users/Shared/licence
tree >"$work/tree"
inspect=$(stat -c %i /Library/Guard/tools/inspect)
run 0 "$(front_end Guard-1.1)" --product Guard
expect_changes 'Core changed, Extra is new, Legacy is gone, nothing else changed' <<'PATHS'
/Library/Guard/bin/guard
/Library/Guard/bin/guard-report
/Library/Guard/etc/licence
/Library/Guard/extra
/Library/Guard/extra/scan
/Library/Guard/legacy
/Library/Guard/legacy/converter
PATHS
expect_content /Library/Guard/bin/guard '# guard 1.1'
expect_content /Library/Guard/etc/licence 'licence of the second year'
expect_content /Library/Guard/etc/guard.conf 'level = of the user'
require 'the component that is the same in both was not even written again' \
  [ "$inspect" = "$(stat -c %i /Library/Guard/tools/inspect)" ]

step 'Damage the installation, and repair it by installing again'
rm /Library/Guard/tools/inspect
chown 501:20 /Library/Guard/bin/guard
chmod 0600 /Library/Guard/bin/guard
run 0 "$(front_end Guard-1.1)" --product Guard
expect_changes 'the tree is the one before the damage' </dev/null

step 'Install a second product that shares the component Core'
run 0 "$(front_end Guard-1.1)" --product 'Guard Server'
# A first installation of a product writes its settings anew; an upgrade would have kept them.
expect_changes 'the second product is there; of the shared component only the settings are new' <<'PATHS'
/Library/Guard Server
/Library/Guard Server/serve
/Library/Guard/etc/guard.conf
PATHS
expect_receipts Guard 'Guard Server'

step 'Replace an older product without a receipt, treated as an update'
cp -Rp /demo/MailClassic/. /
echo 'filter = of the user' >'/Library/Guard Mail/mail.conf'
echo 'reject much' >'/Library/Guard Mail/rules/default.rule'
echo 'reject all but friends' >'/Library/Guard Mail/rules/mine.rule'
echo 'what the older product had noted' >'/Library/Guard Mail/rules/notes'
tree >"$work/tree"
run 0 "$(front_end Guard-1.1)" --product 'Guard Mail'
expect_changes 'the older program and its notes are gone, the new program is there, settings and rules are as they were' <<'PATHS'
/Library/Guard Mail/classic-filter
/Library/Guard Mail/filter
/Library/Guard Mail/rules/notes
PATHS
expect_content '/Library/Guard Mail/mail.conf' 'filter = of the user'
expect_content '/Library/Guard Mail/rules/default.rule' 'reject much'
expect_content '/Library/Guard Mail/rules/mine.rule' 'reject all but friends'
expect_receipts Guard 'Guard Mail' 'Guard Server'

step 'Be refused: Guard Lite may not be installed beside Guard'
run 3 "$(front_end Guard-1.1)" --product 'Guard Lite'
expect_changes 'nothing changed' </dev/null
expect_receipts Guard 'Guard Mail' 'Guard Server'

step 'Install Guard Suite, which leaves a phase to the engine of another bundle'
# Only the other engine runs a program, and the front end knows the outer engine alone. The program is held until the front
# end has shown that it runs, or has had ten seconds.
touch "$work/hold"
(
  tries=100
  until grep -q 'Running executables' "$work/shown" || [ "$tries" -eq 0 ]; do
    tries=$((tries - 1))
    sleep 0.1
  done
  rm -f "$work/hold"
) &
run 0 "$(front_end Guard-1.1)" --product 'Guard Suite'
wait
expect_changes 'both products are there' <<'PATHS'
/Library/Guard Extras
/Library/Guard Extras/extras
/Library/Guard Suite
/Library/Guard Suite/suite
PATHS
expect_receipts Guard 'Guard Extras' 'Guard Mail' 'Guard Server' 'Guard Suite'
require "the other engine's states were shown" grep -q 'Running executables' "$work/shown"

step 'Remove everything, each product by its receipt'
for product in 'Guard Suite' 'Guard Extras' 'Guard Mail' 'Guard Server' Guard; do
  run 0 "$receipts/$product/Installer.app/Contents/MacOS/Installer" --remove --product "$product"
done
require 'no receipt is left' [ ! -e "$receipts" ]

step 'Compare with the machine before the first installation'
cp "$work/first" "$work/tree"
expect_changes 'the tree is the first one but for the licence and the rule that the user made' <<'PATHS'
/Library/Guard Mail
/Library/Guard Mail/rules
/Library/Guard Mail/rules/mine.rule
/Users/Shared/licence
PATHS
# No manifest of an installed product lists it, so nobody may remove it, nor the folders that hold it.
expect_content '/Library/Guard Mail/rules/mine.rule' 'reject all but friends'
if [ -r /proc/self/cmdline ]; then
  require 'no process of the engine or its front end is left' [ -z "$(engines)" ]
else
  printf '   not shown here: that no process is left, because this root has no /proc\n'
fi
require 'no socket is left' [ -z "$(find /var/run/com.corvane.installer/ -type s 2>/dev/null)" ]

rm -rf "$work"
echo
[ "$wrong" -eq 0 ] || { printf '%d things are not as expected.\n' "$wrong"; exit 1; }
echo 'The whole life is as expected.'
