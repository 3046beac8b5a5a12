#!/bin/bash
# socket_activation_test.sh BIN SCRATCH_FOLDER: the service serves sockets that it was started with,
# and leaves their names when it ends.
set -euo pipefail

bin=$1
scratch=$2

command -v systemd-socket-activate >/dev/null || { echo "systemd is not installed" >&2; exit 77; }
rm -rf "$scratch"
mkdir -p "$scratch"
ZAM_RUNTIME_DIR=$(mktemp -d)
export ZAM_RUNTIME_DIR
activator=
finish() {
    [[ -z $activator ]] || kill -KILL "$activator" 2>/dev/null || true
    rm -rf "$ZAM_RUNTIME_DIR"
}
trap finish EXIT

socket=$ZAM_RUNTIME_DIR/zam_connector_id.sock
# It listens, and becomes the service at the first connection.
systemd-socket-activate -l "$socket" -l "$ZAM_RUNTIME_DIR/zam_file_downloader_id.sock" \
    -E ZAM_RUNTIME_DIR "$bin/zam_connectord" 2>"$scratch/log" &
activator=$!
for ((tries = 0; tries < 3000; ++tries)); do
    [[ -S $socket ]] && break
    sleep 0.01
done
before=$(stat -c %i "$socket")
answer=$(timeout 30 "$bin/zamctl" state) || { cat "$scratch/log" >&2; exit 1; }
[[ $answer == stopped ]] || { echo "the answer is '$answer'" >&2; exit 1; }
grep -q "serving .* on $socket" "$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
[[ $(stat -c %i "$socket") == "$before" ]] || { echo "the socket was replaced" >&2; exit 1; }

kill "$activator"
wait "$activator" || { echo "the service ended with status $?" >&2; exit 1; }
activator=
[[ -S $socket ]] || { echo "the socket's name is gone" >&2; exit 1; }
