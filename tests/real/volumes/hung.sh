#!/usr/bin/env bash
# Volumes stop answering while the real agent runs: hung.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"
command -v bindfs > /dev/null || skip "needs bindfs"
[ -e /dev/fuse ] || skip "no file systems in user space here"

servers=()
let_go() {
  for server in "${servers[@]}"; do kill -CONT "$server" 2> /dev/null; kill -9 "$server" 2> /dev/null; done
  umount -l "$scratch"/Volumes/* "$scratch"/below/* 2> /dev/null
}

# No login manager: a shut-down is refused, after which the agent starts anew in its place.
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent CORVANA9_PATIENCE=5
mkdir -p "$HOME/Photos" "$scratch/below"
# A disk behind two servers: what asks it is in the hands of the first one, so that not even a kill
# ends it when the second stops.
serve() { # NAME OPTION...
  local name="$1"
  shift
  mkdir -p "$scratch/disks/$name" "$scratch/below/$name" "$CORVANA9_VOLUMES/$name"
  bindfs -f "$@" "$scratch/disks/$name" "$scratch/below/$name" &
  servers+=($!)
  second=$!
  until_true 5 grep -q " $scratch/below/$name " /proc/self/mountinfo
  bindfs -f "$scratch/below/$name" "$CORVANA9_VOLUMES/$name" &
  servers+=($!)
  until_true 5 grep -q " $CORVANA9_VOLUMES/$name " /proc/self/mountinfo
}
started() { "$corvana9" status --json | grep '"started"' | head -1; }
is_fresh() { local time; time="$(started)" && [ -n "$time" ] && [ "$time" != "$1" ]; }

serve From --read-rate=2000000
from="$second"
serve To --write-rate=2000000
to="$second"
mkdir -p "$scratch/disks/From/Films" "$scratch/disks/To/Backup" "$HOME/Films" "$scratch/here/Backup"
head -c 40000000 /dev/zero > "$scratch/disks/From/Films/film"
head -c 40000000 /dev/urandom > "$HOME/Films/film"
echo flower > "$HOME/Photos/flower"
"$corvana9" add FromDisk --source "$CORVANA9_VOLUMES/From/Films" --destination "$scratch/here/Backup" > /dev/null || exit 1
sleep 1.1
"$corvana9" add ToDisk --source "$HOME/Films" --destination "$CORVANA9_VOLUMES/To/Backup" > /dev/null || exit 1
sleep 1.1
"$corvana9" add Photos --source "$HOME/Photos" --destination "$scratch/here/Backup" > /dev/null || exit 1
reading="$(reference FromDisk)"
writing="$(reference ToDisk)"
photos="$(reference Photos)"

start_agent

# A run whose volume stops answering in its middle.
hang_in_the_middle() { # WHAT REFERENCE SERVER VOLUME COPYING-FOLDER
  echo "--- $1"
  copying() { [ -n "$(find "$5" -name '.film.*' 2> /dev/null)" ]; }
  "$corvana9" launch "$2" > /dev/null
  expect "it copies" until_true 30 copying "$@"
  rm -rf "$scratch/here/Backup/Photos"
  "$corvana9" launch "$photos" > /dev/null
  kill -STOP "$3"
  local start ended begun
  start="$(now)"
  expect "it is given up" until_true 60 log_says "The volume \"$4\".*does not answer"
  ended="$(now)"
  expect "the next action is carried out" until_true 60 has_file "$scratch/here/Backup/Photos/flower"
  begun="$(now)"
  echo "given up after $((ended - start)) ms, the next action was done $((begun - ended)) ms later"
  expect "within a minute" test $((begun - ended)) -lt 60000
  expect "it is no crash" test "$("$corvana9" log | grep -c crash)" -eq 0
  expect "and timed out in the history" grep -q 'timed out' <<< "$("$corvana9" history)"
  start="$(now)"
  expect "the volumes are listed" grep -q 'does not answer' <<< "$("$corvana9" volumes)"
  echo "list of volumes beside a hung one: $(($(now) - start)) ms"
  expect "within 5 s" test $(($(now) - start)) -lt 5000
  until_true 20 rests
}
hang_in_the_middle "a source that stops answering" "$reading" "$from" From "$scratch/here/Backup/Films"

echo "--- stopped by the user while it waits for a volume that does not answer"
"$corvana9" launch "$reading" > /dev/null
expect "it runs" until_true 20 executes
start="$(now)"
"$corvana9" stop > /dev/null
expect "it ends" until_true 30 rests
echo "stopped after $(($(now) - start)) ms"
expect "as the user wanted" log_says 'FromDisk" aborted (user)'

echo "--- the agent starts anew beside it"
before="$(started)"
start="$(now)"
"$corvana9" post agent ShutDownMac > /dev/null
expect "it is there again" until_true 30 is_fresh "$before"
echo "started anew after $(($(now) - start)) ms"
expect "as the same process" kill -0 "$agent"
speed_up

hang_in_the_middle "a destination that stops answering" "$writing" "$to" To "$scratch/disks/To/Backup/Films"

echo "--- a mount below a source that never answers"
mkdir "$HOME/Photos/dead"
python3 "$here/hang.py" "$HOME/Photos/dead" > "$scratch/hang.log" &
servers+=($!)
until_true 5 grep -q mounted "$scratch/hang.log"
start="$(now)"
"$corvana9" launch "$photos" > /dev/null
expect "the run ends and names it" until_true 60 log_says "Photos/dead.*does not answer"
echo "ended after $(($(now) - start)) ms"

echo "--- the agent quits beside them"
start="$(now)"
kill "$agent"
gone() { ! kill -0 "$agent" 2> /dev/null || [ "$(ps -o stat= -p "$agent" | cut -c1)" = Z ]; }
expect "it ends" until_true 20 gone
echo "ended after $(($(now) - start)) ms"

[ "$failures" -eq 0 ] || { echo "--- the agent said:"; cat "$scratch/agent.log"; "$corvana9" log; "$corvana9" report; exit 1; }
