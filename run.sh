#!/usr/bin/env bash
# Shows the agent at work, or runs it for the user. See --help.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

usage() {
  cat << 'END'
Usage: ./run.sh [--mine [AGENT-OPTION...]]

Installs what is missing (apt), builds the release and shows the main job at work: in a home and on a bus of its
own, three backups are set up with corvana9, and the agent runs those that fall due: one within the next minute,
one at once whose execute program is killed and which is therefore tried again; the third is launched by hand, by
commands as a second terminal can give them, which it names. A file is then deleted and brought back. What was copied
is compared and the records are shown. With a display the agent shows its icon, messages and progress too. It ends by itself about two minutes after the build and leaves nothing behind.

  --mine  run the agent for your own home instead, here in the foreground, until Ctrl-C; what follows is handed
          to the agent (--headless)
  --help  this text
END
}

mine=''
case "${1:-}" in
  --help | -h) usage; exit 0 ;;
  --mine) mine=1; shift ;;
  '') ;;
  *) echo "unknown word: $1" >&2; usage >&2; exit 2 ;;
esac

. cmake/packages.sh
corvana_need build run
corvana_build release bundles corvana9
source_tree="$PWD"
build="$PWD/build/release"
resources="Corvana 9.app/Contents/Resources"
agent_program="$resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler"
execute_program="$resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute"

if [ -n "$mine" ]; then
  exec "$build/$agent_program" "$@"
fi

# A world of its own ---------------------------------------------------------------------------------------------

scratch=$(mktemp -d "${TMPDIR:-/tmp}/corvana-demo.XXXXXX")
bus='' agent=''
clean_up() {
  [ -z "$agent" ] || kill "$agent" 2> /dev/null || true
  [ -z "$agent" ] || wait "$agent" 2> /dev/null || true
  [ -z "$bus" ] || kill "$bus" 2> /dev/null || true
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

mkdir -p "$scratch"/{home,runtime}
chmod 700 "$scratch/runtime"
export HOME="$scratch/home" XDG_RUNTIME_DIR="$scratch/runtime" CORVANA9_VOLUMES="$scratch/volumes"
unset XDG_CONFIG_HOME XDG_DATA_HOME XDG_STATE_HOME XDG_CACHE_HOME
dbus-daemon --config-file="$source_tree/tests/session-bus.conf" --nofork --nopidfile \
  --print-address=3 3> "$scratch/address" 2> /dev/null &
bus=$!
for _ in $(seq 100); do [ -s "$scratch/address" ] && break; sleep 0.05; done
DBUS_SESSION_BUS_ADDRESS=$(cat "$scratch/address")
export DBUS_SESSION_BUS_ADDRESS

cp -r "$build/Corvana 9.app" "$scratch/"
PATH="$build/bin:$PATH"
data="$HOME/Library/Application Support/Corvana 9"
title() { printf '\n\033[1m%s\033[0m\n' "$*"; }

# Three backups --------------------------------------------------------------------------------------------------

mkdir -p "$HOME"/{Photos/Summer,Letters,Music,Backup}
for number in 1 2 3; do
  head -c 200000 /dev/urandom > "$HOME/Photos/Summer/picture $number.jpg"
  head -c 300000 /dev/urandom > "$HOME/Music/song $number.ogg"
done
echo "Dear reader" > "$HOME/Letters/to whom it may concern.txt"

title "Three backups, as a user sets them up"
# Runs corvana9 for all to see and keeps the reference that it names.
reference=''
show() {
  local words='' word answer
  for word in "$@"; do words+=" $(printf %q "$word")"; done
  echo "\$ corvana9${words//$HOME/\~}"
  answer=$(corvana9 "$@")
  echo "$answer"
  reference=$(grep -oE '[0-9]{6,}' <<< "$answer" | head -1 || true)
}
# The next full minute that leaves time to get over the crash below.
minute=$(((($(date +%s) + 45) / 60 + 1) * 60))
show group Home
group=$reference
show add Photos --group "$group" --source "$HOME/Photos" --destination "$HOME/Backup" --daily "$(date -d "@$minute" +%H:%M)"
photos=$reference
show add Letters --group "$group" --source "$HOME/Letters" --destination "$HOME/Backup" --daily 08:00
letters=$reference
show add Music --group "$group" --source "$HOME/Music" --destination "$HOME/Backup" --mode synchronise --every 15m
music=$reference

# What was set up just now is not due before two minutes from now; so these two were set up earlier.
now=$(($(date +%s) - 978307200))
for action in "$photos:86400" "$music:900"; do
  echo "{\"Ref\": ${action%:*}, \"ChangesObject\": {\"\$date\": $((now - ${action#*:})).0}, \"ChangesKey\": \"LastScheduleDate\"}"
done | paste -sd, | sed 's/.*/[&]/' | corvana9 pack - "$data/Programmed Actions Changes.cva9data"

# The execute program of the demonstration: the real one, except for the first try of one backup, which dies.
mv "$scratch/$resources/Corvana 9 Execute.app" "$scratch/Execute.app"
mkdir -p "$(dirname "$scratch/$execute_program")"
cat > "$scratch/$execute_program" << END
#!/bin/sh
# Words: reference, three flags, number of tries before this one, ...
[ "\$1" = "$music" ] && [ "\$5" = 0 ] && kill -SEGV \$\$
exec "$scratch/Execute.app/Contents/MacOS/Corvana 9 Execute" "\$@"
END
chmod +x "$scratch/$execute_program"

# The agent at work ----------------------------------------------------------------------------------------------

title "The agent at work: Music dies and is tried again, Photos follows at $(date -d "@$minute" +%H:%M)"
# An agent that has quit less than 10 s ago goes on after 2 s; otherwise it leaves a starting machine a minute.
echo "{\"SchedulerQuitDate\": {\"\$date\": $(($(date +%s) - 978307200)).0}}" |
  corvana9 pack - "$data/Corvana 9 Scheduler Settings.cva9data"
windows=(--headless)
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  windows=()
  echo "  Its icon is in the panel where the panel takes windows; a small one floats at the upper right."
fi
"$scratch/$agent_program" "${windows[@]}" > >(sed -u 's/^/  /') 2>&1 &
agent=$!

cat << END

  To drive it from a second terminal while it runs, go there first:
    export HOME='$HOME' DBUS_SESSION_BUS_ADDRESS='$DBUS_SESSION_BUS_ADDRESS' PATH='$build/bin':"\$PATH"
  and then, for instance:
    corvana9 status               what it does now, and what comes next
    corvana9 watch                everything that happens, as it happens
    corvana9 launch $letters     Letters now; corvana9 queue, corvana9 why $letters
    corvana9 pause                and corvana9 continue, stop, skip, disable, enable
    corvana9 log                  and corvana9 history, report, next, tree

END
while corvana9 status | grep -E 'is not running|cannot be asked' > /dev/null; do
  kill -0 "$agent" 2> /dev/null || { echo "The agent has ended by itself." >&2; exit 1; }
  sleep 0.2
done
show pause
show launch "$letters"
show queue
show why "$letters"
show continue

done_so_far() { cat "$HOME/Library/Logs/Corvana 9 Actions.log" 2> /dev/null | grep -cE '" completed(;|$)' || true; }
limit=$((SECONDS + 150))
until [ "$(done_so_far)" -ge 3 ]; do
  kill -0 "$agent" 2> /dev/null || { echo "The agent has ended by itself." >&2; exit 1; }
  [ $SECONDS -lt $limit ] || { echo "Not done in time." >&2; exit 1; }
  sleep 0.5
done
sleep 3
title "A letter deleted by mistake comes back"
letter="$HOME/Letters/to whom it may concern.txt"
rm "$letter"
echo "\$ rm ${letter//$HOME/\~}"
show versions "$letters"
show restore "$letters" "$letter"
[ "$(cat "$letter")" = 'Dear reader' ] || { echo "It did not come back." >&2; exit 1; }

title "What comes next, says the agent"
show status
kill "$agent"
wait "$agent" || true
agent=''

# What came of it ------------------------------------------------------------------------------------------------

title "What was copied"
for folder in Photos Music Letters; do
  # A hidden file says whose copy it is.
  diff -r --exclude .corvana9-copy "$HOME/$folder" "$HOME/Backup/$folder"
  echo "$folder: $(find "$HOME/Backup/$folder" -type f ! -name .corvana9-copy | wc -l) files, equal to their sources"
done

title "The log"
cat "$HOME/Library/Logs/Corvana 9.log"
title "The executions, with how long they took and how late they were"
corvana9 history
grep -q 'aborted (crash)' "$HOME/Library/Logs/Corvana 9.log" || { echo "The crash is missing in the log." >&2; exit 1; }
