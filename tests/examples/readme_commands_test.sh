#!/bin/bash
# readme_commands_test.sh README BIN_FOLDER SCRATCH_FOLDER: runs the two blocks of commands of the
# section "Try it", as they stand there but for their folders.
set -euo pipefail

readme=$1
bin=$2
scratch=$3
blocks=${BASH_SOURCE%/*}/code_block.sh

rm -rf "$scratch"
mkdir -p "$scratch"
short=$(mktemp -d) # for sockets, whose paths must be short
service=
cleanup() {
    if [[ -n $service ]]; then
        kill "$service" 2>/dev/null || true
        wait "$service" 2>/dev/null || true
    fi
    rm -rf "$short"
}
trap cleanup EXIT

# commands NUMBER: of a block, one in a line, without comments.
commands() {
    "$blocks" "$readme" "Try it" sh "$1" |
        sed -e 's/ *#.*//' -e "s#\$PWD/build/release/bin#$bin#; s#/tmp/zam_#$short/zam_#g"
}

commands 1 >"$scratch/service.sh"
commands 2 >"$scratch/client.sh"
for file in service.sh client.sh; do
    if grep -n 'build/release' "$scratch/$file"; then
        echo "there is another folder of programs than expected" >&2
        exit 1
    fi
done

# The last command of the first block stays; it tells a pipe when clients may come.
sed -i '$s/^\(.*\)$/exec \1 --ready-fd 3/' "$scratch/service.sh"
mkfifo "$short/ready"
bash -e "$scratch/service.sh" 3>"$short/ready" >"$scratch/service.log" 2>&1 &
service=$!
if ! read -r -t 30 <"$short/ready"; then
    cat "$scratch/service.log" >&2
    exit 1
fi
bash -ex "$scratch/client.sh" >"$scratch/client.log" 2>&1 || { cat "$scratch/client.log" >&2; exit 1; }

expect() {
    grep -q -e "$1" "$2" || { echo "$2 has no '$1':" >&2; cat "$2" >&2; exit 1; }
}
expect '^stopped$' "$scratch/client.log"
expect '^connected$' "$scratch/client.log"
expect '^    from_hour: uint8 2$' "$scratch/client.log"
expect '"text":"door opened"' "$short/zam_data/uploads/history.jsonl"
cmp "$short/zam_data/files/readme.txt" "$short/zam_readme.txt"
