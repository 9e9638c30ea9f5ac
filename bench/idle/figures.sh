#!/usr/bin/env bash
# Called by bench.sh on a bus and in a home of its own with the build tree: what the agent costs at rest, next to
# the barest program of its kind, and how quickly agent and command answer with 1,000 actions.
set -euo pipefail
build="$1"
here=$(dirname "$(readlink -f "$0")")
agent="$build/Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler"
command="$build/bin/corvana9"
[ -x "$agent" ] || { echo "no agent in this build"; exit 0; }
seconds=30
[ -z "${QUICK:-}" ] || seconds=5
exec python3 "$here/measure.py" "$agent" "$build/bench/idle/idle_peer" "$command" "$seconds"
