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
"$prefix/bin/corvana9-app" --help > /dev/null || fail "bin/corvana9-app does not run"
resources="$prefix/lib/corvana9/Corvana 9.app/Contents/Resources"
[ -x "$resources/Corvana 9 Launcher.app/Contents/MacOS/Corvana 9 Launcher" ] || fail "the launcher does not lead to the application"
[ -s "$resources/Corvana 9.cva9resource" ] || fail "the application's data file is missing"
"$resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute" --help > /dev/null || fail "the execute program does not run"
"$resources/Corvana 9 Shutdown.app/Contents/MacOS/Corvana 9 Shutdown" --help > /dev/null || fail "the shut-down program does not run"
"$resources/tools/wakeup" cancel 1 "$scratch" || fail "the wake-up helper does not run"
[ "$(id -u)" -ne 0 ] || ! command -v getcap > /dev/null || getcap "$resources/tools/wakeup" | grep -q cap_wake_alarm ||
  fail "the wake-up helper has no right to wake the machine"
[ -s "$prefix/lib/systemd/logind.conf.d/corvana9-shutdown-delay.conf" ] || fail "a shut-down does not wait"
[ -s "$resources/Corvana 9 Scheduler.app/Contents/Resources/en.lproj/Localizable.strings" ] || fail "the texts are missing"
[ "$(readlink "$resources/adminlauncher")" = /usr/bin/pkexec ] || fail "adminlauncher leads elsewhere"

# hardened FILE: it lies where it is put, its tables are read-only from the start, its stack holds no code.
hardened() {
  local headers dynamic
  headers=$(readelf -hlW "$1") dynamic=$(readelf -dW "$1")
  grep -q 'Type: *DYN' <<< "$headers" || fail "$1 cannot be moved in memory"
  grep -q 'GNU_RELRO' <<< "$headers" && grep -qE 'BIND_NOW|Flags:.*NOW' <<< "$dynamic" || fail "$1 keeps its tables writable"
  grep -qE 'GNU_STACK .* RW +0' <<< "$headers" || fail "$1 has an executable stack"
}
programs=0
while IFS= read -r -d '' file; do
  [ "$(head -c 4 "$file" | tail -c 3)" = ELF ] || continue
  hardened "$file"
  programs=$((programs + 1))
done < <(find "$prefix" -type f \( -perm /100 -o -name '*.so' \) -print0)
[ "$programs" -ge 8 ] || fail "only $programs programs and modules were found"
if grep -q '^CMAKE_BUILD_TYPE:[A-Z]*=Release' "$build/CMakeCache.txt"; then
  for file in "$prefix/bin/corvana9" "$resources/tools/wakeup"; do
    symbols=$(readelf -W --dyn-syms "$file")
    grep -q '__stack_chk_fail' <<< "$symbols" || fail "$file does not guard its stack"
    grep -qE '__(sn|f)printf_chk' <<< "$symbols" || fail "$file writes without looking at the room there is"
  done
fi

launcher="$prefix/share/applications/com.zan.corvana9.desktop"
metadata="$prefix/share/metainfo/com.zan.corvana9.metainfo.xml"
[ -s "$prefix/share/icons/hicolor/scalable/apps/$(sed -n 's/^Icon=//p' "$launcher").svg" ] || fail "the launcher has no icon"
! command -v desktop-file-validate > /dev/null || desktop-file-validate "$launcher" || fail "the launcher is not valid"
! command -v appstreamcli > /dev/null || appstreamcli validate --no-net "$metadata" > /dev/null ||
  fail "the metadata is not valid: $(appstreamcli validate --no-net "$metadata")"

for file in etc/xdg/autostart/corvana9-scheduler.desktop share/applications/com.zan.corvana9.desktop share/systemd/user/corvana9-scheduler.service; do
  command=$(sed -nE 's/^Exec(Start)?="([^"]*)".*/\2/p' "$prefix/$file")
  [ -x "$command" ] || fail "$file starts what is not there: $command"
done
! grep -rIl -- "$build" "$prefix" || fail "the files above name the build tree"
