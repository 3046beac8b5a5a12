#!/bin/bash
# install_test.sh BUILD_FOLDER SCRATCH_FOLDER PREFIX LIBDIR: installs into PREFIX, which other tests
# use, and each component into a folder of its own, and looks at what came where.
set -euo pipefail

build=$1
scratch=$2
prefix=$3
libdir=$4

rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"

failed=0
fail() {
    echo "$@" >&2
    failed=1
}

for component in runtime dev tools; do
    folder=$scratch/component-$component
    cmake --install "$build" --component "$component" --prefix "$folder" >>"$scratch/install.log"
    (cd "$folder" && find . \( -type f -o -type l \) | sed 's|^\./||' | LC_ALL=C sort) \
        >"$scratch/$component.txt"
done

expect_list() {
    diff -u --label expected --label installed - "$scratch/$1.txt" || fail "component $1 differs"
}
version=$(sed -n 's/^Version: //p' "$prefix/$libdir/pkgconfig/zam_connector.pc")
for library in zam_connector_common zam_connector_proxy zam_platform zam_tree_json; do
    printf '%s\n' "$libdir/lib$library.so.1" "$libdir/lib$library.so.$version"
done | LC_ALL=C sort | expect_list runtime
LC_ALL=C sort <<END | expect_list tools
bin/zam_connectord
bin/zamctl
lib/systemd/system/zam_connectord.service
lib/systemd/system/zam_connectord.socket
lib/sysusers.d/zam_connectord.conf
lib/tmpfiles.d/zam_connectord.conf
share/bash-completion/completions/zam_connectord
share/bash-completion/completions/zamctl
share/man/man1/zamctl.1
share/man/man8/zam_connectord.8
END

for header in zam_connector/zam_connector.h zuv/zuv.h qel/exception.h tree_json/tree_json.h \
    vd/arena.h zor/logger.h zam_connector_testing/scripted_transport.h; do
    grep -qxF "include/$header" "$scratch/dev.txt" || fail "$header is missing"
done
# Nothing of the insides, of which qor is all but the one type that public headers show.
if grep -E '^include/(common|qx|zam_platform|data_handler)/|\.cpp$' "$scratch/dev.txt"; then
    fail "internal files are installed"
fi
grep '^include/qor/' "$scratch/dev.txt" | diff -u <(echo include/qor/types/timestamp.h) - ||
    fail "other headers of qor than the public one are installed"

# A client of the libraries loads them and the standard ones; whoever moves the whole takes it along.
if grep -rnE 'fmt|nlohmann|simdjson|asio|_link_depend' "$prefix/$libdir/cmake/zam_connector" |
    grep -v IMPORTED_LINK_DEPENDENT_LIBRARIES; then
    fail "the package file asks for libraries that clients do not need"
fi
if grep -rlF -e "$build" -e "$scratch" "$prefix/$libdir/cmake" "$prefix/$libdir/pkgconfig"; then
    fail "package files name folders of the build"
fi
for file in "$prefix"/bin/* "$prefix/$libdir"/libzam_*.so.*.*; do
    path=$(readelf -d "$file" | sed -n 's/.*R.*PATH).*\[\(.*\)\].*/\1/p')
    case $path in
        '$ORIGIN' | '$ORIGIN/../'*) ;;
        *) fail "$file looks for libraries in '$path'" ;;
    esac
done
exit $failed
