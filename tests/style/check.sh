#!/usr/bin/env bash
# Whether the code is formatted, and whether clang-tidy finds a fault in what has changed. Silent when all is well.
#
#   check.sh format        every C++ file that git knows
#   check.sh tidy BUILD    those not looked at since they changed, with the commands of that build tree
#
# What clang-tidy found clean is remembered in build/tidied by its contents. A fresh clone begins with the last
# commits, and nobody waits much longer than $CORVANA_TIDY_SECONDS (60): what is not reached comes next time.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
git rev-parse --git-dir > /dev/null 2>&1 || exit 0

names() {
  git ls-files '*.h' '*.cpp' | while IFS= read -r name; do [ ! -f "$name" ] || echo "$name"; done
}

# Each C++ file as "contents path", where "contents" is what git calls them by.
files() { paste -d ' ' <(names | git hash-object --stdin-paths) <(names) | sort; }

format() {
  names | xargs -d '\n' -P "$(nproc)" -n 50 clang-format --dry-run -Werror ||
    { echo "clang-format -i puts these files right" >&2; return 1; }
}

# Prints what clang-tidy finds; the path goes to the list of clean ones when that is nothing.
look() {
  local deadline="$1" build="$2" clean="$3" name="$4" found
  [ "$EPOCHSECONDS" -lt "$deadline" ] || return 0
  if found=$(timeout 120 clang-tidy --quiet -p "$build" "$name" 2> /dev/null); then
    echo "$name" >> "$clean"
  else
    printf '%s\n' "${found:-$name: clang-tidy does not come to an end}"
    return 1
  fi
}

tidy() {
  local build="$1" known="build/tidied" code=0
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  mkdir -p build
  if [ ! -f "$known" ]; then
    git ls-tree -r HEAD~3 2> /dev/null | sed -nE 's/^[0-9]+ blob ([0-9a-f]+)\t(.*\.(h|cpp))$/\1 \2/p' | sort > "$known"
    [ -s "$known" ] || files > "$known"
  fi
  files > "$scratch/now"
  comm -13 <(sort "$known") "$scratch/now" > "$scratch/due"
  [ -s "$scratch/due" ] || return 0
  # A header is looked at by way of the source beside it; what was edited last comes first. What this build does not
  # compile is left out.
  sed -nE "s|.*\"file\": \"$PWD/(.*)\".*|\\1|p" "$build/compile_commands.json" > "$scratch/compiled"
  cut -d ' ' -f 2- "$scratch/due" | sed 's/\.h$/.cpp/' | sort -u | { grep -Fxf "$scratch/compiled" || true; } |
    { xargs -r -d '\n' ls -t 2> /dev/null || true; } > "$scratch/sources"
  # What gcc has precompiled clang cannot read: it gets the headers of Qt themselves, and none that all share, so that
  # a missing include is found.
  sed -E -e 's|-include [^ "]*/corvana(_test)?_headers\.dir/cmake_pch\.hxx||; s| -fpch-preprocess||g' \
    -e "s|-include [^ \"]*/([^/]*)\.dir/cmake_pch\.hxx|-include $scratch/\1.hxx|g" "$build/compile_commands.json" \
    > "$scratch/compile_commands.json"
  for header in "$build"/*/CMakeFiles/*.dir/cmake_pch.hxx; do
    [ ! -f "$header" ] || cp "$header" "$scratch/$(basename "$(dirname "$header")" .dir).hxx"
  done
  touch "$scratch/clean"
  export -f look
  xargs -r -d '\n' -P "$(nproc)" -n 1 bash -c 'look "$@"' look \
    $((EPOCHSECONDS + ${CORVANA_TIDY_SECONDS:-60})) "$scratch" "$scratch/clean" < "$scratch/sources" || code=1
  # A header without a source of its own is seen with those that include it.
  awk 'NR == FNR { clean[$0]; next }
       { source = $0; sub(/^[^ ]* /, "", source); sub(/\.h$/, ".cpp", source) }
       source in clean || system("test -f \"" source "\"") != 0' "$scratch/clean" "$scratch/due" > "$scratch/done"
  # What is kept are the contents of now, so that the list does not grow.
  sort -m <(comm -12 <(sort "$known") "$scratch/now") <(sort "$scratch/done") > "$scratch/known"
  mv "$scratch/known" "$known"
  return $code
}

case "${1:-}" in
  format) format ;;
  tidy) tidy "${2:?}" ;;
  *) echo "check.sh format | tidy BUILD" >&2; exit 2 ;;
esac
