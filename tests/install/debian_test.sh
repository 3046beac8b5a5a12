#!/bin/bash
# debian_test.sh BUILD_FOLDER SCRATCH_FOLDER: makes the Debian packages, installs them into a folder
# with a package database of its own, runs a program there, and removes them without a trace.
set -euo pipefail
export LC_ALL=C

build=$1
scratch=$2

for tool in cpack dpkg dpkg-deb dpkg-shlibdeps file; do
    command -v $tool >/dev/null || { echo "$tool is not installed" >&2; exit 77; }
done
if [[ $(id -u) != 0 ]]; then
    echo "dpkg installs as root only" >&2
    exit 77
fi

rm -rf "$scratch"
mkdir -p "$scratch/packages"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/packages" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; exit 1; }
cd "$scratch/packages"
failed=0
fail() {
    echo "$@" >&2
    failed=1
}

depends_of() {
    dpkg-deb -f "$1"_*.deb Depends
}
for library in libfmt libsimdjson; do
    [[ $(depends_of libzam-connector1) == *$library* ]] ||
        fail "libzam-connector1 does not ask for $library"
done
for library in libdeflate libssl libxxhash; do
    [[ $(depends_of zam-connector-tools) == *$library* ]] ||
        fail "zam-connector-tools does not ask for $library"
done
dpkg-deb -I libzam-connector1_*.deb shlibs | grep '^libzam_connector_proxy 1 libzam-connector1' >/dev/null ||
    fail "libzam-connector1 does not tell packages of clients to depend on it"
[[ $(depends_of libzam-connector-dev) == *"libzam-connector1 (= "* ]] ||
    fail "libzam-connector-dev does not ask for its library"
[[ $(depends_of zam-connector-tools) == *"libzam-connector1 (= "*libc6* ]] ||
    fail "zam-connector-tools asks for '$(depends_of zam-connector-tools)'"

# A root of its own: neither this machine's package database nor its files are touched, and what the
# packages depend on is not there.
root=$scratch/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
# Scripts of the packages run without a change of root, so what they call is kept from this machine.
mkdir -p "$scratch/commands"
for command in ldconfig systemctl systemd-sysusers systemd-tmpfiles; do
    printf '#!/bin/sh\necho "%s $DPKG_ROOT" >>"%s/called"\n' "$command" "$scratch" \
        >"$scratch/commands/$command"
    chmod +x "$scratch/commands/$command"
done
PATH=$scratch/commands:$PATH
dpkg_there() {
    dpkg --root="$root" --log=/dev/null --force-depends --force-script-chrootless "$@" \
        >>"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }
}
(cd "$root" && find . ! -path './var/lib/dpkg/*' | sort) >"$scratch/before"
dpkg_there -i ./*.deb
version=$("$root/usr/bin/zamctl" --version)
[[ $version == "zamctl "* ]] || fail "zamctl --version printed '$version'"
grep -q '^ExecStart=/usr/bin/zam_connectord ' "$root"/usr/lib/systemd/system/*.service ||
    fail "the unit starts a program of another place"
ldd "$root/usr/bin/zamctl" | grep -F libzam_ | grep -vF "$root" && fail "libraries from elsewhere"
grep -qx "ldconfig $root" "$scratch/called" || fail "ldconfig was not told of the libraries"
if grep -v '^ldconfig' "$scratch/called"; then
    fail "the packages set up a machine that they are not installed on"
fi
dpkg_there -P zam-connector-tools libzam-connector-dev libzam-connector1
(cd "$root" && find . ! -path './var/lib/dpkg/*' | sort) | diff "$scratch/before" - >&2 ||
    fail "removing left something behind"
exit $failed
