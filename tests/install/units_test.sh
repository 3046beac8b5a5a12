#!/bin/bash
# units_test.sh PREFIX SCRATCH_FOLDER: systemd's own tools find nothing wrong in
# the units and in the snippets for the service's user and directory, and an exposure of the service
# of at most 0.6; and the service has the settings that nothing else would miss.
set -euo pipefail

prefix=$1
scratch=$2

command -v systemd-analyze >/dev/null || { echo "systemd is not installed" >&2; exit 77; }
rm -rf "$scratch"
mkdir -p "$scratch"
# Manual pages are looked for where they are not. The status tells of other units too: what is said
# of these counts, and has to be read whatever the status is.
report=$(systemd-analyze verify --man=no \
    "$prefix"/lib/systemd/system/zam_connectord.{service,socket} 2>&1) || true
if grep -F zam_connectord <<<"$report" >&2; then
    exit 1
fi
# Where the tool can judge a unit without a running manager.
if systemd-analyze security --help 2>&1 | grep -q -e --offline; then
    systemd-analyze security --offline=true --no-pager --threshold=6 \
        "$prefix/lib/systemd/system/zam_connectord.service" >"$scratch/exposure" || {
        grep -E '✗|exposure' "$scratch/exposure" >&2
        exit 1
    }
fi
while read -r setting; do
    grep -qxF "$setting" "$prefix/lib/systemd/system/zam_connectord.service" ||
        { echo "the service's unit does not say $setting" >&2; exit 1; }
done <<'EOF'
StartLimitIntervalSec=5min
StartLimitBurst=10
Type=notify
WatchdogSec=60
Restart=on-failure
RestartSec=1
UMask=0027
StateDirectoryMode=0750
LimitNOFILE=65536
LimitCORE=0
TasksMax=32
MemoryHigh=5G
MemoryMax=6G
OOMPolicy=stop
LogRateLimitIntervalSec=30s
LogRateLimitBurst=1000
IPAddressDeny=any
EOF
if grep -q '^PrivateUsers=' "$prefix/lib/systemd/system/zam_connectord.service"; then
    echo "users of peers must stay readable" >&2
    exit 1
fi
systemd-sysusers --dry-run "$prefix/lib/sysusers.d/zam_connectord.conf" >"$scratch/sysusers"
mkdir -p "$scratch/image/etc"
echo 'zam_connectord:x:123:123::/:/bin/false' >"$scratch/image/etc/passwd"
echo 'zam_connectord:x:123:' >"$scratch/image/etc/group"
[[ $(id -u) == 0 ]] || { echo "only root can give a directory away" >&2; exit 77; }
systemd-tmpfiles --create --root="$scratch/image" "$prefix/lib/tmpfiles.d/zam_connectord.conf"
found=$(stat -c '%a %u' "$scratch/image/run/zam_connector")
[[ $found == "755 123" ]] || { echo "the runtime directory is '$found'" >&2; exit 1; }
