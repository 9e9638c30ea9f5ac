#!/usr/bin/env bash
# Folders that are encrypted, joined or shown from elsewhere, as destinations: passthrough.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"

let_go() { umount -l "$scratch"/home/place/* "$scratch"/Volumes/* 2> /dev/null; }

mkdir -p "$HOME/Documents" "$HOME/place"
echo secret > "$HOME/Documents/letter"
execute="$resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute"
is_empty() { [ -z "$(find "$1" -type f)" ]; }
last_log() { "$corvana9" log | tail -1; }

# Each mounts what belongs to the folder STORE at PLACE; 1: it is not there.
mount_gocryptfs() { # STORE PLACE
  command -v gocryptfs > /dev/null || return 1
  [ -e "$1/gocryptfs.conf" ] || gocryptfs -q -init -extpass 'echo word' "$1" || return 1
  gocryptfs -q -nosyslog -extpass 'echo word' "$1" "$2"
}
mount_mergerfs() {
  command -v mergerfs > /dev/null || return 1
  # It names itself by what differs in its branches.
  mkdir -p "$1/${1##*/}" "$1/two" && mergerfs "$1/${1##*/}:$1/two" "$2"
}
mount_overlay() {
  mkdir -p "$1/lower" "$1/upper" "$1/work" &&
    mount -t overlay "overlay-${1##*/}" -o "lowerdir=$1/lower,upperdir=$1/upper,workdir=$1/work" "$2"
}
mount_bindfs() { command -v bindfs > /dev/null && bindfs "$1" "$2"; }

try() { # KIND PLACE
  local kind="$1" place="$2" reference
  echo "--- $kind at $place"
  mkdir -p "$scratch/store-$kind" "$scratch/other-$kind" "$place"
  "mount_$kind" "$scratch/store-$kind" "$place" || { echo "left out: $kind cannot be mounted here"; return; }
  mkdir -p "$place/Backup"
  reference="$("$corvana9" add "In $kind" --source "$HOME/Documents" --destination "$place/Backup" | grep -o '[0-9]*' | head -1)"
  "$execute" "$reference" > /dev/null 2>&1
  expect "it is copied" test -f "$place/Backup/Documents/letter"

  umount "$place"
  mkdir -p "$place/Backup"
  "$execute" "$reference" > /dev/null 2>&1
  expect "not mounted, nothing is written onto the disk below" is_empty "$place"
  expect "and that is said" grep -qi 'cancelled (volume' <<< "$(last_log)"
  rm -r "$place/Backup"

  if "mount_$kind" "$scratch/other-$kind" "$place"; then
    mkdir -p "$place/Backup"
    "$execute" "$reference" > /dev/null 2>&1
    expect "another one in its place gets nothing" is_empty "$place/Backup"
    umount "$place"
  fi

  "mount_$kind" "$scratch/store-$kind" "$place"
  echo "$kind again" > "$HOME/Documents/letter"
  "$execute" "$reference" > /dev/null 2>&1
  expect "mounted again, it is copied" grep -q again "$place/Backup/Documents/letter"
  umount "$place"
  rmdir "$place"
  sleep 1.1
}

for kind in gocryptfs mergerfs overlay bindfs; do
  try "$kind" "$HOME/place/$kind"
  try "$kind" "$CORVANA9_VOLUMES/$kind"
done

if command -v mergerfs > /dev/null; then
  echo "--- two joined folders that name themselves alike"
  place="$HOME/place/joined"
  mkdir -p "$place" "$scratch"/{first,second}/{one,two}
  join() { mergerfs "$scratch/$1/one:$scratch/$1/two" "$place"; }
  join first
  mkdir "$place/Backup"
  reference="$("$corvana9" add Joined --source "$HOME/Documents" --destination "$place/Backup" --mode synchronise | grep -o '[0-9]*' | head -1)"
  "$execute" "$reference" > /dev/null 2>&1
  expect "it is copied" test -f "$place/Backup/Documents/letter"
  umount "$place"
  join second
  mkdir "$place/Backup"
  "$execute" "$reference" > /dev/null 2>&1
  expect "without its copies the other one gets nothing" is_empty "$place/Backup"
  mkdir "$place/Backup/Documents"
  echo precious > "$place/Backup/Documents/other"
  "$execute" "$reference" > /dev/null 2>&1
  expect "and a folder of the same name in it stays as it was" test "$(ls "$place/Backup/Documents")" = other
  umount "$place"
  join first
  echo changed > "$HOME/Documents/letter"
  "$execute" "$reference" > /dev/null 2>&1
  expect "its own is filled again" grep -q changed "$place/Backup/Documents/letter"
  umount "$place"
fi

[ "$failures" -eq 0 ] || { "$corvana9" log; exit 1; }
