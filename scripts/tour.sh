#!/usr/bin/env bash
# tour.sh BIN_FOLDER: what the whole can do, in one transcript: starts the connector service on a
# fresh folder and, from other processes, connects, reads the policy, watches a change, uploads,
# downloads and stops. Ends at the first step that fails, and leaves nothing behind.
set -euo pipefail

bin=$(cd "$1" && pwd)
PATH=$bin:$PATH
work=$(mktemp -d)
cd "$work"

# The processes beside the tour, by their ids.
service=
observer=
end() {
  local process=$1
  if [ -n "$process" ]; then
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  fi
}
cleanup() {
  end "$observer"
  end "$service"
  rm -rf "$work"
}
trap cleanup EXIT

mkdir -m 700 run
export ZAM_RUNTIME_DIR=$work/run

title() {
  printf '\n== %s\n' "$1"
}

# Shows a command and runs it.
step() {
  local word shown=
  for word in "$@"; do
    case $word in
      *[[:space:]\"]*) shown+=" '$word'" ;;
      *) shown+=" $word" ;;
    esac
  done
  printf '\n$%s\n' "$shown"
  "$@"
}

# told FD NAME: waits for the next line of a program beside the tour.
told() {
  if ! read -r -t 30 -u "$1" line; then
    echo "tour: nothing came from $2" >&2
    exit 1
  fi
}

# Shows what the observer was told next.
observed() {
  told 4 observe_changes
  printf '[observer] %s\n' "$line"
}

title "A folder of files, and a service that serves it"
step zam_connectord --init data
printf '\n$ zam_connectord --data data &\n'
mkfifo ready
exec 3<>ready
zam_connectord --data data --ready-fd 3 &
service=$!
told 3 zam_connectord
exec 3>&-
step zamctl state

title "Connect, while an application observes"
printf '\n$ observe_changes 3 &\n'
mkfifo observing
exec 4<>observing
observe_changes 3 >observing 4>&- &
observer=$!
observed
step zamctl start --server management.example --port 13000 --product Example --wait
observed
observed
step zamctl state
step zamctl event "door opened"
step zamctl sync
step zamctl --quiet ping --count 10 --interval 1

title "The policy, and a change of it"
step zamctl policy
step sed -i 's/"allowed": true/"allowed": false/' data/policy.json
observed
wait "$observer"
observer=
exec 4>&-
step zamctl policy --path update/allowed

title "Settings of the connector"
step zamctl settings set sync_period_s=600 heartbeat_period_s=30
step cat data/connector_settings.json

title "What the product tells, found in the folder"
printf '%s\n' '{"network": {"port": {"$uint16": 8443}, "host": "gate.example"}}' >settings.json
step zamctl upload settings settings.json
step cat data/uploads/settings.json
step send_updates
step cat data/uploads/updates.json

title "A download"
head -c 1000000 /dev/urandom >data/files/firmware.bin
step zamctl file info firmware.bin
step zamctl file get firmware.bin
step sha256sum data/files/firmware.bin firmware.bin
step cmp data/files/firmware.bin firmware.bin

title "Locales, and a client certificate"
step zamctl locales
step zamctl certs
step zamctl certs --output device.pem

title "Stop"
step zamctl stop --wait
step zamctl --json state
step zamctl explain 0x8000004B
step cat data/uploads/history.jsonl

printf '\nThe service is asked to end.\n'
kill "$service"
wait "$service"
service=
