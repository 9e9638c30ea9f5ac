# Read by the scripts beside it, called SCRIPT BUILD-TREE: goes on in a mount namespace and on a bus of its own.
here="$(cd "$(dirname "$0")" && pwd)"

skip() { echo "SKIPPED: $*"; exit 77; }
if [ "${2:-}" != inside ]; then
  [ "$(id -u)" -eq 0 ] || skip "needs root, to mount"
  unshare -m true 2> /dev/null || skip "needs a mount namespace of its own"
  exec unshare -m --propagation private dbus-run-session --config-file="$here/../../session-bus.conf" -- \
    bash "$0" "$build" inside
fi

# What they have in common: a folder in memory that goes at the end, the programs, and words to say what is expected.
scratch="$(mktemp -d "/tmp/corvana-$(basename "$0" .sh).XXXXXX")"
mount -t tmpfs scratch "$scratch" || skip "tmpfs cannot be mounted"
agent=''
let_go() { :; } # of what a script holds besides
finish() {
  [ -n "$agent" ] && kill "$agent" 2> /dev/null && wait "$agent" 2> /dev/null
  let_go
  cd / && umount -l "$scratch"
  rmdir "$scratch"
}
trap finish EXIT
export HOME="$scratch/home" CORVANA9_VOLUMES="$scratch/Volumes" XDG_RUNTIME_DIR="$scratch/run" LC_ALL=C TZ=UTC
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$HOME" "$CORVANA9_VOLUMES" -m 700 "$XDG_RUNTIME_DIR"
resources="$build/Corvana 9.app/Contents/Resources"
corvana9="$build/bin/corvana9"
failures=0
expect() { # WHAT COMMAND...
  local what="$1"
  shift
  if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failures=$((failures + 1)); fi
}
now() { date +%s%3N; }
until_true() { # SECONDS COMMAND...
  local end=$(($(now) + $1 * 1000))
  shift
  until "$@"; do
    [ "$(now)" -lt "$end" ] || return 1
    sleep 0.05
  done
}

# With the agent.
agent_answers() { "$corvana9" status 2> /dev/null | grep -q 'Automatic execution'; }
# Its first word may come too early to end the wait after the start.
speed_up() {
  expect "the agent answers" until_true 20 agent_answers
  sleep 1
  "$corvana9" continue > /dev/null 2>&1
  "$corvana9" post agent MessageOff > /dev/null
}
start_agent() {
  "$resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler" --headless >> "$scratch/agent.log" 2>&1 &
  agent=$!
  speed_up
}
reference() { "$corvana9" tree --json | tr -d '\n' | grep -o "\"reference\": *[0-9]*[^}]*\"$1\"" | grep -o '[0-9][0-9]*' | head -1; }
log_says() { "$corvana9" log | grep -q -- "$1"; }
executes() { "$corvana9" status --json | grep -q '"executing": *true'; }
rests() { ! executes; }
has_file() { [ -e "$1" ]; }
