#!/usr/bin/env bash
# A server that dies, hangs and comes back under a source and a destination: network.sh BUILD-TREE
set -u
build="$1"
. "$(dirname "$0")/namespace.sh"
server_program=/usr/lib/openssh/sftp-server
command -v sshfs > /dev/null && [ -x "$server_program" ] || skip "needs sshfs and openssh-sftp-server"
[ -e /dev/fuse ] || skip "no file systems in user space here"

# What would be the connection is the server itself, which is not to be had while "down" is there.
cat > "$scratch/server" << END
#!/bin/sh
[ ! -e "$scratch/down" ] || exit 1
echo \$\$ > "$scratch/server.pid"
exec $server_program
END
chmod 755 "$scratch/server"
let_go() {
  rm -f "$scratch/down"
  kill -9 "$(cat "$scratch/server.pid")" 2> /dev/null
  umount -l "$scratch/net/Share" 2> /dev/null
}
export CORVANA9_PATIENCE=5
share="$scratch/net/Share"
mkdir -p "$scratch/served/Films" "$scratch/served/Backup" "$scratch/other/Backup" "$HOME/Films" "$HOME/Photos" "$HOME/Copy"
mount_share() { mkdir -p "$share"; sshfs "${1:-nas:$scratch/served}" "$share" -o "ssh_command=$scratch/server,max_conns=1,dir_cache=no"; }
mount_share || skip "sshfs cannot mount here"
for number in 1 2 3 4 5 6 7 8; do
  head -c 2000000 /dev/urandom > "$HOME/Films/$number"
  head -c 2000000 /dev/urandom > "$scratch/served/Films/$number"
done
echo flower > "$HOME/Photos/flower"
add() { "$corvana9" add "$@" > /dev/null || exit 1; sleep 1.1; }
add There --source "$HOME/Films" --destination "$share/Backup" --mode synchronise --bandwidth 3000000
add Back --source "$share/Films" --destination "$HOME/Copy" --mode synchronise --bandwidth 3000000
add Photos --source "$HOME/Photos" --destination "$HOME/Copy"
photos="$(reference Photos)"
start_agent

same() { diff -r --exclude=.corvana9-copy --exclude=.corvana9-partial "$1" "$2" > /dev/null; }
holds() { [ "$(find "$1" -maxdepth 1 -name '[0-9]' | wc -l)" -ge "$2" ]; }
runs() { cat "$HOME/Library/Logs/Corvana 9 Actions.log" 2> /dev/null | grep -c "\"$1\" completed;"; }
completes() { # WHAT TITLE
  local before
  before="$(runs "$2")"
  "$corvana9" launch "$(reference "$2")" > /dev/null
  expect "$1" until_true 60 ran_since "$2" "$before"
  until_true 20 rests
}
ran_since() { [ "$(runs "$1")" -gt "$2" ]; }
# In the middle of a run the server does not go on; others do, and afterwards it is there again.
try() { # HOW TITLE FROM TO
  local how="$1" title="$2" from="$3" to="$4" copies start
  echo "--- $title: the server is made to $how"
  rm -f "$to"/[2-9] "$HOME/Copy/Photos/flower"
  touch "$from"/[0-9]
  copies="$(find "$to" -maxdepth 1 -type f -name '[0-9]' | wc -l)"
  "$corvana9" launch "$(reference "$title")" > /dev/null
  expect "it copies" until_true 30 holds "$to" 2
  "$corvana9" launch "$photos" > /dev/null
  start="$(now)"
  case "$how" in
    die) touch "$scratch/down"; kill -9 "$(cat "$scratch/server.pid")" ;;
    hang) kill -STOP "$(cat "$scratch/server.pid")" ;;
  esac
  expect "the next one is carried out" until_true 90 has_file "$HOME/Copy/Photos/flower"
  echo "the next one was done after $(($(now) - start)) ms"
  expect "within a minute" test $(($(now) - start)) -lt 60000
  expect "it is not called completed" sh -c "'$corvana9' log | grep '\"$title\"' | tail -1 | grep -qv completed\;"
  "$corvana9" log | grep "\"$title\"" | tail -1
  start="$(now)"
  timeout 20 "$corvana9" volumes > /dev/null
  expect "the volumes are listed within 5 s ($(($(now) - start)) ms)" test $(($(now) - start)) -lt 5000
  until_true 20 rests
  case "$how" in
    die)
      umount -l "$share" && rmdir "$share"
      # What comes in its place under its name is another one.
      rm "$scratch/down"
      if [ "$title" = There ]; then
        mount_share "elsewhere:$scratch/other"
        "$corvana9" launch "$(reference There)" > /dev/null 2>&1
        until_true 20 rests
        expect "another server gets nothing" test -z "$(ls -A "$scratch/other/Backup")"
        umount "$share" && rmdir "$share"
      fi
      mount_share ;;
    hang) kill -CONT "$(cat "$scratch/server.pid")" ;;
  esac
  expect "nothing that was there is lost" test "$(find "$to" -maxdepth 1 -type f -name '[0-9]' | wc -l)" -ge "$copies"
  completes "back again, it is finished" "$title"
  expect "with everything" same "$from" "$to"
}
completes "a first copy onto it" There
expect "is whole" same "$HOME/Films" "$scratch/served/Backup/Films"
completes "a first copy from it" Back
expect "is whole" same "$scratch/served/Films" "$HOME/Copy/Films"
try die There "$HOME/Films" "$scratch/served/Backup/Films"
try die Back "$scratch/served/Films" "$HOME/Copy/Films"
try hang There "$HOME/Films" "$scratch/served/Backup/Films"
try hang Back "$scratch/served/Films" "$HOME/Copy/Films"

[ "$failures" -eq 0 ] || { echo "--- the agent said:"; cat "$scratch/agent.log"; "$corvana9" log; exit 1; }
