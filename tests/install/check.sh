#!/usr/bin/env bash
# Installs the build tree given into a folder of its own and starts what was installed by the names that a user,
# a desktop and a service manager use.
set -euo pipefail
build="$1"
scratch=$(mktemp -d "${TMPDIR:-/tmp}/corvana-install.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
fail() { echo "$*" >&2; exit 1; }

cmake --install "$build" --prefix "$scratch/a place" > /dev/null
prefix="$scratch/a place"
"$prefix/bin/corvana9" --help > /dev/null || fail "bin/corvana9 does not run"
"$prefix/bin/corvana9-scheduler" --help > /dev/null || fail "bin/corvana9-scheduler does not run"
resources="$prefix/lib/corvana9/Corvana 9.app/Contents/Resources"
"$resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute" --help > /dev/null || fail "the execute program does not run"
"$resources/Corvana 9 Shutdown.app/Contents/MacOS/Corvana 9 Shutdown" --help > /dev/null || fail "the shut-down program does not run"
"$resources/tools/wakeup" cancel 1 "$scratch" || fail "the wake-up helper does not run"
[ "$(id -u)" -ne 0 ] || ! command -v getcap > /dev/null || getcap "$resources/tools/wakeup" | grep -q cap_wake_alarm ||
  fail "the wake-up helper has no right to wake the machine"
[ -s "$prefix/lib/systemd/logind.conf.d/corvana9-shutdown-delay.conf" ] || fail "a shut-down does not wait"
[ -s "$resources/Corvana 9 Scheduler.app/Contents/Resources/en.lproj/Localizable.strings" ] || fail "the texts are missing"
[ "$(readlink "$resources/adminlauncher")" = /usr/bin/pkexec ] || fail "adminlauncher leads elsewhere"

for file in etc/xdg/autostart/corvana9-scheduler.desktop share/systemd/user/corvana9-scheduler.service; do
  command=$(sed -nE 's/^Exec(Start)?="([^"]*)".*/\2/p' "$prefix/$file")
  [ -x "$command" ] || fail "$file starts what is not there: $command"
done
! grep -rIl -- "$build" "$prefix" || fail "the files above name the build tree"
