#!/bin/bash
# Builds the engine, makes an Installer.app of the example product, installs it in a private root directory and shows what
# happened; then leads the products of examples/Life through their whole life in another one: install, upgrade, repair,
# second product, cross-grade, refusal, nested engine, removal. The host is not touched. Fails when anything is not as
# expected.
#
# demo.sh [--copies]: with --copies as on a machine that allows no mounts.
set -euo pipefail
. "$(dirname "$0")/common.sh"

[ "$(id -u)" -eq 0 ] || fail "run this as root: the engine installs as root, and so does the demo"

product="Corvane Endpoint"
bin=$project/build/release/bin
receipt="/Library/Application Support/Corvane/$product"

heading() {
  printf '\n== %s ==\n' "$*"
}

heading "Build"
scripts/build.sh release InstallationDeployer Installer installer-tool private-root

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

heading "Make the bundle"
examples/stage.sh "$work/staged"
"$bin/installer-tool" build "$work/staged/Description.plist" --output "$work"
"$bin/installer-tool" show "$work/Installer.app"

heading "Install \"$product\" in a private root directory"
# What an administrator puts on the machine beforehand; the product takes it from there.
printf 'organisation=Example Organisation\n' >"$work/enrolment.conf"
status=0
"$bin/private-root" "$@" \
  --copy "$work/Installer.app=/Volumes/Corvane/Installer.app" \
  --copy "$work/enrolment.conf=/Users/Shared/Corvane/enrolment.conf" \
  --console-user 501 --process loginwindow=501 --record /usr/bin/touch \
  --heading "Installed: mode, owner, group, size, path" \
  --list /Applications --list /Library/Corvane --list /Library/Extensions \
  --list /Library/LaunchDaemons --list /Library/LaunchAgents \
  --heading "Left by the program that runs once" --show /Library/Corvane/Endpoint/var/registration \
  --heading "Commands launched" --calls \
  --heading "Receipt" --list "/Library/Application Support" \
  --heading "Exit code" --exit-code \
  -- /Volumes/Corvane/Installer.app/Contents/MacOS/InstallationDeployer --install --product_name "$product" \
  >"$work/shown" 2>"$work/log" || status=$?

heading "Log of the engine (the lines for operators; the debug lines are left out)"
# Lines that begin with a tab go on with the message before.
awk '!/^\t/ { wanted = !/<Debug>/ } wanted' "$work/log"
cat "$work/shown"

heading "Check"
missing=0
# expect TEXT: the text is a whole line of what was shown.
expect() {
  if ! grep -qxF -- "$1" "$work/shown"; then
    printf 'not found: %s\n' "$1"
    missing=$((missing + 1))
  fi
}
# expect_item MODE USER GROUP PATH[ -> TARGET]: an item with these attributes was listed.
expect_item() {
  if ! awk -v mode="$1" -v user="$2" -v group="$3" -v path="$4" '
      $1 == mode && $2 == user && $3 == group {
        line = $0
        sub(/^[^ ]+ +[0-9]+ +[0-9]+ +[0-9]+  /, "", line)
        if (line == path) found = 1
      }
      END { exit !found }' "$work/shown"; then
    printf 'not installed with %s %s:%s: %s\n' "$@"
    missing=$((missing + 1))
  fi
}

expect_item -rw-r--r-- 0 0 /Library/LaunchDaemons/com.corvane.endpoint.core.plist
expect_item -rw-r--r-- 0 0 /Library/LaunchDaemons/com.corvane.endpoint.threatdefense.plist
expect_item -rw-r--r-- 0 0 /Library/LaunchAgents/com.corvane.endpoint.agent.plist
expect_item -rwxr-xr-x 0 0 /Library/Corvane/Endpoint/bin/corvane-core
expect_item -rw-rw-r-- 0 80 /Library/Corvane/Endpoint/etc/endpoint.conf
expect_item -rw-r----- 0 80 /Library/Corvane/Endpoint/etc/enrolment.conf
expect_item drwxr-x--- 0 80 /Library/Corvane/Endpoint/var
expect_item lrwxrwxrwx 0 0 "/Library/Corvane/Endpoint/status -> bin/corvane-status"
expect_item -rwxr-x--- 0 0 /Library/Corvane/ThreatDefense/bin/corvane-watch
expect_item drwx------ 0 0 /Library/Corvane/ThreatDefense/rules
expect_item drwxrwxr-x 0 80 "/Applications/Corvane Endpoint.app"
expect_item -rw-r--r-- 0 0 /Library/Extensions/CorvaneGuard.kext/Contents/Info.plist

expect "arguments=--reason first installation"
expect "uid=0"
expect "directory=/Library/Corvane/Endpoint/bin"
expect "enrolment=Example Organisation"

where="(uid 0, euid 0, in /)"
expect "/usr/bin/touch /Library/Extensions   $where"
expect "/bin/launchctl load -w /Library/LaunchDaemons/com.corvane.endpoint.core.plist   $where"
expect "/bin/launchctl load -w /Library/LaunchDaemons/com.corvane.endpoint.threatdefense.plist   $where"
if grep -q '^private-root: no process loginwindow' "$work/log"; then
  say "not shown here: the launch agent, because this machine gives the private root no processes of its own"
  expected_calls=3
else
  window=$(sed -n 's/^private-root: loginwindow of user 501 is process \([0-9]*\)$/\1/p' "$work/log")
  expect "/bin/launchctl bsexec $window sudo -u '#501' /bin/launchctl load -w /Library/LaunchAgents/com.corvane.endpoint.agent.plist   $where"
  expected_calls=4
fi
calls=$(grep -cF "   $where" "$work/shown" || true)
[ "$calls" -eq "$expected_calls" ] || { say "commands launched: $calls, expected: $expected_calls"; missing=$((missing + 1)); }

expect_item drwxr-xr-x 0 80 "$receipt/Installer.app"
expect_item -rwxr-xr-x 0 80 "$receipt/Installer.app/Contents/MacOS/InstallationDeployer"
expect_item -rwxr-xr-x 0 80 "$receipt/Installer.app/Contents/MacOS/Installer"
expect_item -rw-r--r-- 0 80 "$receipt/Installer.app/Contents/Install/Manifests/Index.plist"
expect_item -rw-r--r-- 0 80 "$receipt/Installer.app/Contents/Install/Manifests/CoreServices.plist"

if [ "$status" -ne 0 ]; then
  tail -n 20 "$work/log" >&2
  fail "the installation ended with exit code $status"
fi
[ "$missing" -eq 0 ] || fail "$missing things are not as expected"
say "Everything is as expected. The private root directory is gone."

heading "The whole life of products, in a private root directory of its own"
examples/Life/stage.sh "$work/life"
copies=()
for bundle in Guard-1.0 Guard-1.1 Extras; do
  mkdir "$work/$bundle"
  "$bin/installer-tool" build "$work/life/$bundle.plist" --output "$work/$bundle" --quiet
  copies+=(--copy "$work/$bundle/Installer.app=/Volumes/$bundle/Installer.app")
done
"$bin/private-root" "$@" "${copies[@]}" \
  --copy "$work/life/Staged/MailClassic=/demo/MailClassic" --copy "$project/scripts/demo-life.sh=/demo/life.sh" \
  -- /bin/sh /demo/life.sh || fail "the life of the products was not as expected"
say "The private root directory is gone."
