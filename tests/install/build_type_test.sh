#!/bin/bash
# build_type_test.sh SOURCE_FOLDER SCRATCH_FOLDER TYPE: what a user configures without a preset is
# optimised and hardened, ends at no warning, and compiles: a file of each library and program.
set -euo pipefail

source=$1
scratch=$2
type=$3

fail() {
    echo "$@" >&2
    exit 1
}

rm -rf "$scratch"
mkdir -p "$scratch"
options=()
[[ $type == NoType ]] || options+=("-DCMAKE_BUILD_TYPE=$type")
! command -v ccache >/dev/null || options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$source" -B "$scratch" -G Ninja "${options[@]}" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; exit 1; }

case $type in
    NoType | Release) optimised=-O3 ;;
    RelWithDebInfo) optimised=-O2 ;;
    MinSizeRel) optimised=-Os ;;
esac
commands=$(grep '"command"' "$scratch/compile_commands.json")
[[ $(wc -l <<<"$commands") -gt 150 ]] || fail "compile commands are missing"
for flag in " $optimised " ' -fstack-protector-strong ' ' -U_FORTIFY_SOURCE ' \
    ' -D_FORTIFY_SOURCE=3 ' ' -Wall '; do
    without=$(grep -vF -e "$flag" <<<"$commands") || continue
    fail "without$flag: ${without:0:2000}"
done
! grep -qF -e '-Werror' <<<"$commands" || fail "warnings end the build"
! grep -qF -e 'tests/' <<<"$commands" || fail "tests are built"

objects=()
while read -r target file; do
    objects+=("${target%/*}/CMakeFiles/${target##*/}.dir/$file.o")
done <<'FILES'
foundation/qel/zam_qel source/exception.cpp
foundation/qor/zam_qor source/result_code_text.cpp
foundation/zuv/zam_zuv source/path.cpp
platform/linux/zam_platform_client source/client/service_locator.cpp
platform/linux/zam_platform_common source/common/transport_status.cpp
platform/linux/zam_server_runtime source/server/session_registry.cpp
library/zor_ipc/zam_connector_common source/common/source/id_specification.cpp
library/zor_ipc/zam_connector_proxy_objects source/proxy/source/session_status.cpp
library/common_utils/zam_common_utils source/zam_converter_guard.cpp
library/tree_json/zam_json_text source/json_text/base64.cpp
library/tree_json/zam_tree_json_objects source/place.cpp
programs/shared/zam_checksums source/checksums/sha256.cpp
programs/service/zam_service source/channels/channel_ids.cpp
programs/zamctl/zamctl_lib source/nearest.cpp
programs/shared/zam_storage source/storage/new_file.cpp
programs/shared/zam_record_json source/record_json/tree_place.cpp
programs/shared/zam_vocabulary source/vocabulary/state_names.cpp
kit/zam_connector_testing source/service_folders.cpp
kit/zam_scripted_platform source/scripted_platform.cpp
kit/zam_in_process_service source/in_process_service.cpp
programs/service/zam_connectord source/main.cpp
programs/zamctl/zamctl source/main.cpp
FILES
ninja -C "$scratch" "${objects[@]}" >>"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }
