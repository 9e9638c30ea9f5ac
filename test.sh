#!/usr/bin/env bash
# Builds everything and runs every test. See --help.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

usage() {
  cat << 'END'
Usage: ./test.sh [--release | --tsan | --fuzz SECONDS] [--only REGEX]

Installs what is missing (apt), checks the walls between the rooms and the formatting, builds, has clang-tidy
look at what has changed, and runs all tests. The tests get a home and a session bus of their own and leave
nothing behind. Ends with 0 when every test has passed.

  --release       the optimised build instead of the one with address and undefined-behaviour sanitizers
  --tsan          the rooms above the wall, with the thread sanitizer
  --fuzz SECONDS  instead of the tests: every fuzzer for that long, from the seeds in fuzz/corpus
  --only REGEX    only the tests (or fuzzers) whose name matches
  --help          this text
END
}

preset=dev only='' seconds=''
while [ $# -gt 0 ]; do
  case "$1" in
    --release) preset=release ;;
    --tsan) preset=tsan ;;
    --fuzz) preset=fuzz seconds="${2:-}"; shift
      [[ "$seconds" =~ ^[0-9]+$ ]] || { echo "--fuzz wants a number of seconds" >&2; exit 2; } ;;
    --only) only="${2:-}"; shift
      [ -n "$only" ] || { echo "--only wants a regular expression" >&2; exit 2; } ;;
    --help | -h) usage; exit 0 ;;
    *) echo "unknown word: $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done

start=$SECONDS
. cmake/packages.sh
if [ "$preset" = fuzz ]; then corvana_need build fuzz; else corvana_need build test; fi

if [ "$preset" != fuzz ]; then
  echo "==> walls between the rooms, formatting"
  python3 tests/walls/check.py
  tests/style/check.sh format
fi
if [ "$preset" = fuzz ]; then
  # shellcheck disable=SC2046
  corvana_build fuzz $(basename -s .cpp fuzz/fuzz_*.cpp)
elif [ "$preset" = tsan ]; then
  # Qt's own threads are not instrumented, so what runs with the platform's real half or with windows stays out.
  apart='agent_bus|agent_kills|app|command|desktop|execute|faults|install|real|remote_machines|sentences|shutdown|walls'
  corvana_configure tsan
  # A test is called like its program.
  # shellcheck disable=SC2046
  corvana_build tsan $(ctest --test-dir build/tsan -N -E "$apart" 2> /dev/null | sed -n 's/^ *Test *#[0-9]*: //p')
else
  corvana_build "$preset"
  tests/style/check.sh tidy "build/$preset"
fi
build="$PWD/build/$preset"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/corvana-test.XXXXXX")
trap 'chmod -R u+rwX "$scratch" 2> /dev/null || true; rm -rf "$scratch"' EXIT
mkdir -p "$scratch"/{home,runtime,tmp}
chmod 700 "$scratch/runtime"

if [ "$preset" = fuzz ]; then
  failed=()
  for fuzzer in "$build"/fuzz/fuzz_*; do
    name=$(basename "$fuzzer")
    [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
    [ -z "$only" ] || [[ "$name" =~ $only ]] || continue
    echo "==> $name for $seconds s"
    mkdir -p "$build/corpus/$name" "$build/findings"
    seeds=()
    for folder in "fuzz/corpus/$name" "fuzz/corpus/${name#fuzz_}"; do
      [ -d "$folder" ] && seeds+=("$folder")
    done
    "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -verbosity=0 -print_final_stats=1 \
      -artifact_prefix="$build/findings/$name-" "$build/corpus/$name" "${seeds[@]}" 2>&1 | tail -n 40 ||
      failed+=("$name")
  done
  [ ${#failed[@]} -eq 0 ] || { echo "FOUND by ${failed[*]}: see build/fuzz/findings"; exit 1; }
  echo "==> fuzzers found nothing, $((SECONDS - start)) s in all"
  exit 0
fi

echo "==> tests"
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS CORVANA9_VOLUMES LANG LANGUAGE LC_TIME LC_NUMERIC
export HOME="$scratch/home" TMPDIR="$scratch/tmp" XDG_RUNTIME_DIR="$scratch/runtime"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share" XDG_CACHE_HOME="$HOME/.cache"
export XDG_STATE_HOME="$HOME/.local/state" LC_ALL=C.UTF-8 TZ=UTC
export UBSAN_OPTIONS="print_stacktrace=1" QT_LOGGING_RULES="qt.*.debug=false"

arguments=(--test-dir "$build" --output-on-failure --no-tests=error -j "$(nproc)")
[ -z "$only" ] || arguments+=(-R "$only")
runner=()
if [ "$preset" = tsan ]; then
  # The sanitizer wants a memory layout without randomisation.
  arguments+=(-E "$apart")
  # A month of days takes it ten minutes and runs nothing that the other days do not.
  export GTEST_FILTER='-Year.*'
  runner=(setarch "$(uname -m)" -R)
fi
"${runner[@]}" dbus-run-session --config-file="$PWD/tests/session-bus.conf" -- ctest "${arguments[@]}"
echo "==> all done in $((SECONDS - start)) s"
