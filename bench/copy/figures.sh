#!/usr/bin/env bash
# Copies of many small and of few large files by the execute program, beside rsync with the same attributes.
set -euo pipefail
build="$1"
here=$(dirname "$(readlink -f "$0")")
python3 "$here/measure.py" "$build/bin/corvana9" "$build/Corvana 9.app/Contents/Resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute" \
  ${QUICK:+--quick}
