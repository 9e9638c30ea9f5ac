#!/usr/bin/env bash
# Disks come and go while the real agent runs: volumes.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"

hang=''
devices=()
let_go() {
  [ -n "$hang" ] && kill -9 "$hang" 2> /dev/null
  umount -l "$scratch"/Volumes/* 2> /dev/null
  for device in "${devices[@]}"; do losetup -d "$device"; done
}

mkdir -p "$HOME/Documents"
make_disk() { # NAME MB
  truncate -s "$2M" "$scratch/$1.img"
  mkfs.ext4 -q -L "$1" "$scratch/$1.img"
  device="$(losetup -f --show "$scratch/$1.img")" || skip "no loop devices"
  devices+=("$device")
}
plug() { mkdir -p "$CORVANA9_VOLUMES/$2" && mount "$1" "$CORVANA9_VOLUMES/$2"; }
pull() { umount "$CORVANA9_VOLUMES/$1" && rmdir "$CORVANA9_VOLUMES/$1"; }
is_gone() { ! grep -q " $1 " /proc/self/mountinfo; }

make_disk Disk 16
disk="$device"
make_disk Other 20
other="$device"
echo dear > "$HOME/Documents/letter"
plug "$disk" Disk
mkdir "$CORVANA9_VOLUMES/Disk/Backup"
"$corvana9" add Letters --source "$HOME/Documents" --destination "$CORVANA9_VOLUMES/Disk/Backup" --on-mount ||
  exit 1
reference="$("$corvana9" tree --json | grep -o '"reference": *[0-9]*' | head -1 | grep -o '[0-9]*')"
pull Disk

echo '{"SchedulerPrefAutoUnmountVolumes": 1}' |
  "$corvana9" pack - "$HOME/Library/Application Support/Corvana 9/Corvana 9 Scheduler Settings.cva9data"
start_agent

echo "--- a folder where the disk used to be"
mkdir -p "$CORVANA9_VOLUMES/Disk/Backup"
said="$("$corvana9" why "$reference")"
expect "why names the missing disk" grep -q 'Not mounted' <<< "$said"
"$resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute" "$reference" > /dev/null 2>&1
expect "nothing is written onto the system disk" is_gone "$CORVANA9_VOLUMES/Disk"
expect "no copy in the folder" test -z "$(ls -A "$CORVANA9_VOLUMES/Disk/Backup")"
rm -r "$CORVANA9_VOLUMES/Disk"

echo "--- another disk in its place"
plug "$other" Disk
sleep 1.5
expect "another disk starts nothing" test -z "$(ls -A "$CORVANA9_VOLUMES/Disk" | grep -v lost+found)"
pull Disk

echo "--- its own disk"
until_true 15 sh -c '[ "$('"'$corvana9'"' queue | wc -l)" -ge 0 ]'
start="$(now)"
plug "$disk" Disk
expect "the copy is on the disk" until_true 20 has_file "$CORVANA9_VOLUMES/Disk/Backup/Documents/letter"
launched=$(($(now) - start))
echo "plug-in to copy: $launched ms"
expect "within 5 s of plugging in" test "$launched" -lt 5000
idle() { "$corvana9" queue | grep -q 'empty\|Nothing\|nothing'; }
until_true 20 idle

echo "--- a disk that never answers"
mkdir "$CORVANA9_VOLUMES/Dead"
if [ -e /dev/fuse ]; then
  python3 "$here/hang.py" "$CORVANA9_VOLUMES/Dead" > "$scratch/hang.log" &
  hang=$!
  expect "a hanging file system is mounted" until_true 5 grep -q mounted "$scratch/hang.log"
  sleep 0.5
  start="$(now)"
  "$corvana9" status > /dev/null
  answered=$(($(now) - start))
  echo "answer beside a hanging mount: $answered ms"
  expect "the agent answers at once" test "$answered" -lt 2000
  pull Disk
  rm -rf "$scratch/never"
  echo again > "$HOME/Documents/second"
  start="$(now)"
  plug "$disk" Disk
  expect "another disk is served beside it" until_true 20 has_file "$CORVANA9_VOLUMES/Disk/Backup/Documents/second"
  echo "plug-in to copy beside a hanging mount: $(($(now) - start)) ms"
  kill -9 "$hang"
  hang=''
  umount -l "$CORVANA9_VOLUMES/Dead" 2> /dev/null
fi
# What stays behind would be a stray folder, which holds executions up.
rmdir "$CORVANA9_VOLUMES/Dead"
until_true 20 idle

echo "--- what was mounted for actions goes when the queue is empty"
before="$("$corvana9" log | grep -c 'Letters" completed')"
plug "$other" Second
"$corvana9" pause > /dev/null
"$corvana9" launch "$reference" > /dev/null
"$corvana9" post agent UnmountVolume "{\"Path\": \"$CORVANA9_VOLUMES/Second\"}" > /dev/null
sleep 2
expect "it stays while an action waits" grep -q " $CORVANA9_VOLUMES/Second " /proc/self/mountinfo
"$corvana9" continue > /dev/null
expect "it is unmounted after the last one" until_true 30 is_gone "$CORVANA9_VOLUMES/Second"
expect "which was executed" test "$("$corvana9" log | grep -c 'Letters" completed')" -gt "$before"
expect "the other disk stays" grep -q " $CORVANA9_VOLUMES/Disk " /proc/self/mountinfo

echo "--- let go by a message"
"$corvana9" post agent UnmountVolumeImmediate "{\"Path\": \"$CORVANA9_VOLUMES/Disk\"}" > /dev/null
expect "the disk is unmounted" until_true 10 is_gone "$CORVANA9_VOLUMES/Disk"
gone_folder() { [ ! -e "$CORVANA9_VOLUMES/Disk" ]; }
expect "and leaves no folder" until_true 5 gone_folder

[ "$failures" -eq 0 ] || { echo "--- the agent said:"; cat "$scratch/agent.log"; "$corvana9" log; "$corvana9" report; exit 1; }
