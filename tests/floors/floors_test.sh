#!/bin/bash
# floors_test.sh SOURCE_FOLDER SCRATCH_FOLDER: every include of the project points down, and one that
# does not is noticed.
set -euo pipefail

awk_program=$(realpath "${BASH_SOURCE%/*}")/floors.awk
scratch=$2
cd "$1"

# sources: all of the project's, from the floors that it has.
sources() {
    local floor
    for floor in benchmarks examples foundation include kit library platform programs tests; do
        [[ ! -d $floor ]] ||
            find "$floor" \( -name '*.h' -o -name '*.cpp' \) -not -path 'tests/install/*' -print
    done
}
read_floors() {
    sources | awk -f "$awk_program"
}

[[ $(sources | wc -l) -gt 400 ]] || { echo "sources are missing" >&2; exit 1; }
read_floors >&2 || exit 1

# refused FILE INCLUDE TEXT: that an include is refused, by a project of a few files.
failed=0
refused() {
    rm -rf "$scratch"
    mkdir -p "$scratch/${1%/*}"
    (
        cd "$scratch"
        for header in foundation/qel/include/qel/exception.h platform/linux/include/zam_platform/frame.h \
            include/zam_connector/zam_id.h library/zor_ipc/source/common/include/common/log.h \
            programs/service/source/lanes.h programs/zamctl/source/clock.h tests/support/stack.h; do
            mkdir -p "${header%/*}"
            echo '#pragma once' >"$header"
        done
        printf '#include "%s"\n' "$2" >>"$1"
        said=$(read_floors) && said="accepted: $said"
        grep -qF -e "$3" <<<"$said" || { echo "$1 with $2: $said" >&2; exit 1; }
    ) || failed=1
}
refused foundation/zuv/source/a.cpp zam_connector/zam_id.h \
    'foundation/zuv/source/a.cpp:1: includes "zam_connector/zam_id.h", which runs up'
refused include/zam_connector/a.h common/log.h 'include stands below or beside library/zor_ipc'
refused kit/source/a.cpp support/stack.h 'kit stands below or beside tests'
refused programs/service/source/a.cpp clock.h 'programs/service stands below or beside programs/zamctl'
refused library/zor_ipc/source/proxy/source/a.cpp zam_platform/frame.h "is platform/linux's own affair"
refused programs/zamctl/source/a.cpp common/log.h 'which clients do not have'
refused programs/shared/source/a.cpp missing.h 'which is nowhere'
refused library/elsewhere/a.h qel/exception.h 'library/elsewhere/a.h: stands on no floor'
refused programs/service/source/a.cpp qel/exception.h 'accepted: 1 includes'
exit $failed
