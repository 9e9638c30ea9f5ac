#!/usr/bin/env bash
# Versions of many small files: kept as folders beside rsync --backup-dir, as snapshots beside restic and borg; and one file back.
set -euo pipefail
build="$1"
here=$(dirname "$(readlink -f "$0")")
python3 "$here/measure.py" "$build/bin/corvana9" "$build/Corvana 9.app/Contents/Resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute" \
  ${QUICK:+--quick}
