#!/usr/bin/env bash
# Measures the optimised build. See --help.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"

usage() {
  cat << 'END'
Usage: ./bench.sh [--only REGEX] [--quick]

Installs what is missing (apt), builds release and prints the figures that docs/performance.md keeps: every
program in bench/, each next to a peer where there is one, then what only a running agent shows.

  --only REGEX  only the benchmarks whose program's name matches
  --quick       shorter samples; for a look, not for the record
  --help        this text
END
}

only='' quick=''
while [ $# -gt 0 ]; do
  case "$1" in
    --only) only="${2:-}"; shift
      [ -n "$only" ] || { echo "--only wants a regular expression" >&2; exit 2; } ;;
    --quick) quick=1 ;;
    --help | -h) usage; exit 0 ;;
    *) echo "unknown word: $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done

. cmake/packages.sh
corvana_need build bench
corvana_build release benches bundles corvana9
build="$PWD/build/release"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/corvana-bench.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch"/{home,runtime}
chmod 700 "$scratch/runtime"
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS CORVANA9_VOLUMES
export HOME="$scratch/home" XDG_RUNTIME_DIR="$scratch/runtime" XDG_CONFIG_HOME="$scratch/home/.config" LC_ALL=C.UTF-8

echo "==> $(date '+%Y-%m-%d'), $(nproc) x $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(uname -sr)"
for program in $(find "$build/bench" -type f -name 'bench_*' -perm -u+x | sort); do
  name=$(basename "$program")
  [ -z "$only" ] || [[ "$name" =~ $only ]] || continue
  echo "==> $name"
  "$program" --benchmark_color=false ${quick:+--benchmark_min_time=0.05} 2> "$scratch/err" || { cat "$scratch/err"; exit 1; }
done
for script in bench/*/figures.sh; do
  [ -f "$script" ] || continue
  name=$(basename "$(dirname "$script")")
  [ -z "$only" ] || [[ "$name" =~ $only ]] || continue
  echo "==> $name"
  QUICK="$quick" dbus-run-session --config-file="$PWD/tests/session-bus.conf" -- "$script" "$build" 2> "$scratch/err" ||
    { cat "$scratch/err"; exit 1; }
done
