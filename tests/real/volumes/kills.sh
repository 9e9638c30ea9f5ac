#!/usr/bin/env bash
# Agent, execute program and rsync are killed in each phase of a run onto a real disk: kills.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"

device=''
let_go() {
  rm -f "$scratch/hold"
  umount -l /usr/bin/rsync /usr/bin/sync "$scratch"/Volumes/* 2> /dev/null
  [ -n "$device" ] && losetup -d "$device"
}
truncate -s 64M "$scratch/disk.img"
mkfs.ext4 -q -L Disk "$scratch/disk.img"
device="$(losetup -f --show "$scratch/disk.img")" || skip "no loop devices"
disk="$CORVANA9_VOLUMES/Disk"
mkdir -p "$disk" && mount "$device" "$disk" || skip "the disk cannot be mounted"
mkdir -p "$HOME/Documents" "$disk/Backup"

# In the name space the programs that a run starts are these, which hold on in the phase that is named.
put_before() { # PROGRAM SCRIPT
  cp "/usr/bin/$1" "$scratch/$1"
  printf '#!/bin/sh\nhold() { [ "$(cat %s/phase)" != "$1" ] || { echo $$ > %s/held; while [ -e %s/hold ]; do sleep 0.02; done; }; }\n%s\n' \
    "$scratch" "$scratch" "$scratch" "$2" > "$scratch/$1.sh"
  chmod 755 "$scratch/$1.sh" && mount --bind "$scratch/$1.sh" "/usr/bin/$1"
}
put_before rsync "case \"\$*\" in *--dry-run*) hold look; exec $scratch/rsync \"\$@\";; esac
[ \"\$(cat $scratch/phase)\" != copy ] || { echo \$\$ > $scratch/held; set -- --bwlimit=300 \"\$@\"; exec $scratch/rsync \"\$@\"; }
$scratch/rsync \"\$@\"; result=\$?; hold delete; exit \$result"
# Then all is copied and nothing recorded: whoever wants to record waits for a lock that another holds.
locks="$HOME/Library/Application Support/.Corvana 9/Locks"
put_before sync "hold sync; $scratch/sync \"\$@\"; result=\$?
phase=\"\$(cat $scratch/phase)\"
case \"\$phase\" in *.cva9data)
  setsid flock \"$locks/\$phase.lock\" sh -c 'echo 0 > $scratch/held; while [ -e $scratch/hold ]; do sleep 0.02; done' \
    < /dev/null > /dev/null 2>&1 &
  while [ ! -e $scratch/held ]; do sleep 0.01; done;;
esac
exit \$result"
echo none > "$scratch/phase"

# Other tests have programs of the same name beside these. The first one keeps the run of the second, whatever their numbers.
keeper() { pgrep --ns $$ --nslist mnt -o -f "Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute $reference"; }
executes() { keeper > /dev/null; }
rests() { ! executes && "$corvana9" status --json | tr -d ' \n' | grep -q '"executing":false.*"queueCount":0'; }
differences() { diff -r --exclude=.corvana9-copy --exclude=.corvana9-partial "$HOME/Documents" "$disk/Backup/Documents" 2>&1; }
same() { differences > /dev/null; }
all_there() { same || { differences | head -3; false; }; }
runs() { grep -c '" completed;' "$HOME/Library/Logs/Corvana 9 Actions.log"; }
ran_since() { [ "$(runs)" -gt "$1" ]; }
kept() { grep -rqsF -- "$1" "$disk/Backup"; } # A folder of versions may get its name meanwhile.

"$corvana9" add Letters --source "$HOME/Documents" --destination "$disk/Backup" --mode synchronise > /dev/null || exit 1
reference="$("$corvana9" tree --json | grep -o '"reference": *[0-9]*' | head -1 | grep -o '[0-9]*')"
for number in 1 2 3 4 5 6 7 8 9; do echo "letter $number" > "$HOME/Documents/$number"; done
start_agent
"$corvana9" launch "$reference" > /dev/null
expect "the first run" until_true 30 same
until_true 30 rests

# How a run ended that was killed. A kill while it waits for a lock may find it all but over, and another word is true.
endings() {
  case "$phase" in
    *.cva9data) "$corvana9" log --count 5000 | grep -c 'Action "Letters"' ;;
    *) "$corvana9" log --count 5000 | grep -c 'Action "Letters" aborted (crash)' ;;
  esac
}
ended_since() { [ "$(endings)" -gt "$1" ]; }

round=0
try() { # VICTIM PHASE
  local victim="$1" phase="$2" before old endings hit=''
  round=$((round + 1))
  old="round $((round - 1)) of the large one"
  echo "--- $victim is killed in the phase of $phase"
  echo "$phase" > "$scratch/phase"
  rm -f "$scratch/held" "$HOME/Documents/gone $((round - 1))"
  touch "$scratch/hold"
  { echo "round $round of the large one"; head -c 400000 /dev/urandom | base64; } > "$HOME/Documents/large"
  echo "kept $round" > "$HOME/Documents/gone $round"
  before="$(runs)"
  endings="$(endings)"
  "$corvana9" launch "$reference" > /dev/null
  expect "it comes there" until_true 20 has_file "$scratch/held"
  [ "$phase" != copy ] || until_true 5 sh -c "ls -A '$disk/Backup/Documents' | grep -q '^.large'"
  case "$victim" in
    agent) kill -9 "$agent"; wait "$agent" 2> /dev/null ;;
    rsync) kill -9 "$(cat "$scratch/held")" ;;
    keeper) kill -9 "$(keeper)" && hit=1 ;;
    worker) kill -9 "$(pgrep -P "$(keeper)" | head -1)" && hit=1 ;;
  esac
  [ "$round" -eq 1 ] || expect "nothing that was there is lost" until_true 5 kept "$old"
  echo none > "$scratch/phase"
  rm -f "$scratch/hold"
  case "$victim $phase" in
    agent*) start_agent ;;
    # After a crash the agent waits for half a minute, which is waited for once; one that has just started does not.
    keeper\ copy | rsync*) ;;
    *)
      [ -z "$hit" ] || expect "its end is said" until_true 20 ended_since "$endings"
      kill "$agent" && wait "$agent"
      start_agent ;;
  esac
  expect "it comes to an end" until_true 40 rests
  [ "$victim" = rsync ] && [ "$phase" != sync ] &&
    expect "that it failed is said" grep -q 'unexpected error.*signal 9' <<< "$("$corvana9" log | tail -3)"
  [ "$(runs)" = "$before" ] || expect "what is called completed is there" all_there
  before="$(runs)"
  "$corvana9" launch "$reference" > /dev/null
  expect "the next run completes" until_true 60 ran_since "$before"
  until_true 20 rests
  expect "with everything" all_there
  expect "and each run has an end" test "$("$corvana9" history --json | grep -c '"code": *1,')" -eq 0
  [ "$round" -lt 3 ] || expect "and what it deleted is kept" kept "kept $((round - 1))"
}
try agent copy
try agent sync
try rsync look
try rsync copy
try keeper copy
try keeper sync
try worker look
try worker delete
for record in "Programmed History Data.cva9data" "Corvana 9 Log.cva9data"; do
  for victim in agent keeper worker; do try "$victim" "$record"; done
done

[ "$failures" -eq 0 ] || { echo "--- the agent said:"; cat "$scratch/agent.log"; "$corvana9" log; exit 1; }
