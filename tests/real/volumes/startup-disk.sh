#!/usr/bin/env bash
# The agent started from a disk that is nearly full: startup-disk.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"

root="$scratch/root"
device=''
let_go() {
  umount -R -l "$root" 2> /dev/null
  [ -n "$device" ] && losetup -d "$device"
}

# A small disk becomes "/"; what a program needs to run is seen there, but lies elsewhere.
truncate -s 16M "$scratch/disk.img"
mkfs.ext4 -q -m 0 -L System "$scratch/disk.img"
device="$(losetup -f --show "$scratch/disk.img")" || skip "no loop devices"
mkdir "$root" && mount "$device" "$root" || skip "the disk cannot be mounted"
mkdir -p "$root/tmp" && mount -t tmpfs memory "$root/tmp"
for folder in /usr /etc /dev /proc /sys "$build"; do
  mkdir -p "$root$folder" && mount --rbind "$folder" "$root$folder"
done
for link in bin sbin lib lib64; do
  [ -L "/$link" ] && cp -P "/$link" "$root/$link"
done
# The bus is reached by its socket.
socket="$(sed 's/.*path=\([^,]*\).*/\1/' <<< "$DBUS_SESSION_BUS_ADDRESS")"
if [ -S "$socket" ]; then mkdir -p "$root$(dirname "$socket")" && touch "$root$socket" && mount --bind "$socket" "$root$socket"; fi
mkdir -p "$root/tmp/home" "$root/tmp/Volumes" -m 700 "$root/tmp/run"
export HOME=/tmp/home CORVANA9_VOLUMES=/tmp/Volumes XDG_RUNTIME_DIR=/tmp/run

blocks="$(stat -f -c %b "$root")"
size="$(stat -f -c %S "$root")"
fill_until() { # PER-CENT-FREE
  local free
  free="$(stat -f -c %a "$root")"
  dd if=/dev/zero of="$root/filler" bs="$size" count=$((free - blocks * $1 / 100)) oflag=append conv=notrunc status=none
}
start() {
  rm -rf "$root/tmp/home/Library"
  chroot "$root" "$resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler" \
    --headless > "$scratch/agent.log" 2>&1 &
  agent=$!
  expect "the agent answers" until_true 30 sh -c "chroot '$root' '$corvana9' status 2> /dev/null | grep -q 'Automatic execution'"
}
stop() { kill "$agent" 2> /dev/null && wait "$agent"; agent=''; }
warned() { grep -q 'start-up disk is nearly full' "$scratch/agent.log"; }

echo "--- with 15 % free"
fill_until 15
start
sleep 2
expect "nothing is said" sh -c "! grep -q 'nearly full' '$scratch/agent.log'"
stop

echo "--- with 8 % free"
fill_until 8
start
expect "the user is warned" until_true 20 warned
said="$(sed -n 's/.*nearly full: //p' "$scratch/agent.log")"
expect "with what is free: $said" grep -q '^[78] % free' <<< "$said"
chroot "$root" "$corvana9" volumes
stop

[ "$failures" -eq 0 ] || { echo "--- the agent said:"; cat "$scratch/agent.log"; exit 1; }
