# Read by the scripts beside it, called SCRIPT BUILD-TREE: goes on in a mount namespace and on a bus of its own.
here="$(cd "$(dirname "$0")" && pwd)"

skip() { echo "SKIPPED: $*"; exit 77; }
if [ "${2:-}" != inside ]; then
  [ "$(id -u)" -eq 0 ] || skip "needs root, to mount"
  unshare -m true 2> /dev/null || skip "needs a mount namespace of its own"
  exec unshare -m --propagation private dbus-run-session --config-file="$here/../../session-bus.conf" -- \
    bash "$0" "$build" inside
fi
