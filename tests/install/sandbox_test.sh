#!/bin/bash
# sandbox_test.sh PREFIX SCRATCH_FOLDER: whatever the service does, it needs no system call that its
# unit does not allow.
set -euo pipefail

prefix=$1
scratch=$2
here=$(dirname "$0")

# shellcheck source=service.sh
. "$here/service.sh"
command -v systemd-analyze >/dev/null || { echo "systemd is not installed" >&2; exit 77; }
unit=$prefix/lib/systemd/system/zam_connectord.service
rm -rf "$scratch"
mkdir -p "$scratch"

# A call that the unit does not know ends the process, or this test would show nothing.
if python3 "$here/sandbox.py" "$unit" /usr/bin/env python3 -c \
    'import ctypes; ctypes.CDLL(None).mincore(None, 0, None)' 2>/dev/null; then
    echo "the filter lets everything pass" >&2
    exit 1
fi

"$prefix/bin/zam_connectord" --init "$scratch/data"
mkdir -p "$scratch/data/files"
head -c 3000000 /dev/zero >"$scratch/data/files/large"
service_launcher=(python3 "$here/sandbox.py" "$unit")
start_service "$prefix/bin" "$scratch" --data "$scratch/data"
run() {
    timeout 60 "$prefix/bin/zamctl" "$@" >"$scratch/out" 2>&1 || {
        echo "zamctl $*:" >&2
        cat "$scratch/out" "$scratch/service.log" >&2
        exit 1
    }
}
run start --server example.com --port 443 --wait
run doctor
run ping --interval 0 --count 20000
run policy
run settings get
run settings set reconnect_delay_max_s=500
run event sandbox
echo "[]" >"$scratch/eulas"
run upload eulas "$scratch/eulas"
run file get large --output "$scratch/large"
cmp "$scratch/large" "$scratch/data/files/large"
run certs
run stop
kill "$service"
wait "$service" || { echo "the service ended with status $?" >&2; exit 1; }
service=
