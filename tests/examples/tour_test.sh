#!/bin/bash
# tour_test.sh TOUR BIN_FOLDER SCRATCH_FOLDER: the tour shows what it promises, in that order; it
# fails when one of its steps does, and leaves no process and no folder behind.
set -euo pipefail

tour=$1
bin=$2
scratch=$3

rm -rf "$scratch"
mkdir -p "$scratch/temporary" "$scratch/bin"
export TMPDIR=$scratch/temporary

fail() {
    echo "$@" >&2
    cat "$scratch/transcript" >&2
    exit 1
}

"$tour" "$bin" >"$scratch/transcript" 2>&1 || fail "the tour failed"
cat >"$scratch/promised" <<'LINES'
^stopped$
^\[observer\] observing$
^connected$
^\[observer\] state connecting$
^\[observer\] state connected$
^hash 0x52ac1f12f163b01a$
^  window:$
^    from_hour: uint8 2$
^\[observer\] policy .*"allowed": false
^sync_period_s: 900 -> 600$
^    "sync_period_s": 600,$
^    "port": \{"\$uint16": 8443\}$
^updates: No error, hash 0x3f6828af73c450b0$
^      "updname": "Example 3.5",$
^100 %  
^1000000 bytes written to "firmware.bin"$
^[0-9a-f]+  data/files/firmware.bin$
^[0-9a-f]+  firmware.bin$
^de-DE         0x0407
^1 certificate written to "device.pem"$
^{"state":"stopped","result":0}$
"kind":"event","text":"door opened"
The service is asked to end\.$
LINES
awk '
    FNR == NR { promised[FNR] = $0; count = FNR; next }
    next_ < count && $0 ~ promised[next_ + 1] { ++next_ }
    END { if (next_ < count) { print "not shown: " promised[next_ + 1]; exit 1 } }
' "$scratch/promised" "$scratch/transcript" >&2 || fail "the transcript is:"

# A tour whose next to last section fails, with a service whose process can be looked for.
ln -s "$bin"/* "$scratch/bin"
rm "$scratch/bin/zamctl" "$scratch/bin/zam_connectord"
cat >"$scratch/bin/zamctl" <<END
#!/bin/bash
[[ \$1 == locales ]] && exit 2
exec "$bin/zamctl" "\$@"
END
cat >"$scratch/bin/zam_connectord" <<END
#!/bin/bash
[[ \$1 == --data ]] && echo \$\$ >"$scratch/service"
exec "$bin/zam_connectord" "\$@"
END
chmod +x "$scratch/bin/zamctl" "$scratch/bin/zam_connectord"
status=0
"$tour" "$scratch/bin" >"$scratch/transcript" 2>&1 || status=$?
[[ $status == 2 ]] || fail "the failed step was answered with $status"
[[ $(tail -n 1 "$scratch/transcript") == '$ zamctl locales' ]] || fail "the tour went on"
if kill -0 "$(cat "$scratch/service")" 2>/dev/null; then
    fail "the service still runs"
fi
left=$(ls "$TMPDIR")
[[ -z $left ]] || fail "left behind: $left"
