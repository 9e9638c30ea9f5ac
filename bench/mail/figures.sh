#!/usr/bin/env bash
# A message of 20 KB to one server on the loopback interface, by the command and by curl.
set -euo pipefail
exec python3 "$(dirname "$0")/measure.py" "$1/bin/corvana9" "${QUICK:+20}"
