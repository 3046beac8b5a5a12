#!/bin/bash
# completion_test.sh BIN COMPLETIONS: what the completions offer at places of a command line. No
# service runs here, as mostly when somebody presses the key.
set -euo pipefail

PATH=$1:$PATH
. "$2/zamctl"
. "$2/zam_connectord"
ZAM_RUNTIME_DIR=$(mktemp -d)
export ZAM_RUNTIME_DIR
trap 'rm -rf "$ZAM_RUNTIME_DIR"' EXIT
failed=0

# offers FUNCTION WANTED WORDS...: whether completing the last of the words offers the wanted one.
offers() {
    local function=$1 wanted=$2
    shift 2
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    "$function" || true
    printf '%s\n' "${COMPREPLY[@]}" | grep -xF -e "$wanted" >/dev/null
}
expect() {
    offers "$@" || { echo "not offered: $2 for '${*:3}', but: ${COMPREPLY[*]}" >&2; failed=1; }
}
refuse() {
    if offers "$@"; then
        echo "offered: $2 for '${*:3}'" >&2
        failed=1
    fi
}

expect _zamctl state zamctl ""
expect _zamctl settings zamctl --json se
refuse _zamctl state zamctl se
expect _zamctl --json zamctl --
expect _zamctl set zamctl settings ""
expect _zamctl --wait zamctl state --w
expect _zamctl --json zamctl state --
expect _zamctl connected zamctl state --wait co
refuse _zamctl stopped zamctl state --wait co
refuse _zamctl state zamctl start --server ""
expect _zamctl app-info zamctl upload app
refuse _zamctl sync_period_s= zamctl settings set sync
expect _zamctl updates-status zamctl watch policy up
refuse _zamctl get zamctl settings get ""
refuse _zamctl complete zamctl ""
# As bash breaks words at an equals sign.
expect _zamctl connected zamctl state --wait = co
expect _zamctl connected zamctl state --wait =
refuse _zamctl update/ zamctl policy --path ""
expect _zam_connectord --data zam_connectord --d
refuse _zam_connectord --data zam_connectord --i
expect _zam_connectord --spin zam_connectord --s
refuse _zam_connectord --data zam_connectord --spin --d

cd "$ZAM_RUNTIME_DIR"
mkdir folder
touch file.json
expect _zamctl file.json zamctl upload settings fi
expect _zamctl file.json zamctl policy --output fi
expect _zam_connectord folder zam_connectord --data fo
refuse _zam_connectord file.json zam_connectord --data fi
expect _zam_connectord root zam_connectord --group roo

mkfifo ready
mkdir -p served/files/images
touch served/files/readme.txt served/files/images/one.bin 'served/files/$(true) a'
echo '{"update": {"allowed": true, "window": {"from": 1}}, "list": ["a"]}' >served/policy.json
# Pressing a key says nothing, and takes no longer than the answer of a service may.
said=$(timeout 10 zamctl complete -- settings set sync 2>&1) && [[ -z $said ]] ||
    { echo "without a service: $said" >&2; failed=1; }
refuse _zamctl 'readme.txt ' zamctl file get re

zam_connectord --data served --ready-fd 3 3>ready 2>log &
service=$!
read -r -t 30 <ready || failed=1
expect _zamctl sync_period_s= zamctl settings set sync
expect _zamctl sync_period_s= zamctl settings set compress_traffic=true sync
expect _zamctl true zamctl settings set compress_traffic = t
expect _zamctl false zamctl settings set compress_traffic =
refuse _zamctl false zamctl settings set compress_traffic = t
expect _zamctl compress_traffic=true zamctl settings set compress_traffic=t
refuse _zamctl true zamctl settings set sync_period_s =
expect _zamctl update/ zamctl policy --path ""
expect _zamctl 'update/allowed ' zamctl policy get --path update/
expect _zamctl update/window/ zamctl policy --path update/w
expect _zamctl 'list/0 ' zamctl policy --path list/
expect _zamctl update/ zamctl policy --path = up
refuse _zamctl update/ zamctl policy --path missing/
refuse _zamctl update/ zamctl product-settings --path ""
expect _zamctl '\$\(true\)\ a ' zamctl file get ""
expect _zamctl 'readme.txt ' zamctl file get re
expect _zamctl 'readme.txt ' zamctl --json file info ""
expect _zamctl images/ zamctl file get im
expect _zamctl 'images/one.bin ' zamctl file get images/
refuse _zamctl 'readme.txt ' zamctl file get im
ZAM_RUNTIME_DIR=/another refuse _zamctl 'readme.txt ' zamctl file get re
kill "$service"
wait "$service"
exit $failed
