#!/bin/bash
# zamctl_document_test.sh DOCUMENT BIN_FOLDER SCRATCH_FOLDER: runs every command that stands in
# docs/zamctl.md, in its order, over the sample folder, and compares what it prints with what stands
# below it. Times and speeds count by their form; a line "..." stands for any lines. Then looks up
# what stands in the summaries of commands in their help. Exit status 77 where openssl is missing.
set -euo pipefail

document=$(realpath "$1")
bin=$2
scratch=$3
here=$(cd "${BASH_SOURCE%/*}" && pwd)

command -v openssl >/dev/null || { echo "openssl is not installed" >&2; exit 77; }
rm -rf "$scratch"
mkdir -p "$scratch/commands" "$scratch/work" "$scratch/srv"
awk -v folder="$scratch/commands" -f "$here/commands_of.awk" "$document"
data=$scratch/data
unset ZAM_RUNTIME_DIR ZAM_LOG_LEVEL
# Paths of sockets are short; that of the scratch folder need not be.
XDG_RUNTIME_DIR=$(mktemp -d)
export XDG_RUNTIME_DIR PATH=$bin:$PATH TZ=UTC
cd "$scratch/work"

# The processes beside the test, by their ids.
service=
watch=
end() {
    if [[ -n $1 ]]; then
        kill "$1" 2>/dev/null || true
        wait "$1" 2>/dev/null || true
    fi
}
cleanup() {
    end "$watch"
    end "$service"
    rm -rf "$XDG_RUNTIME_DIR"
}
trap cleanup EXIT

stop_service() {
    end "$service"
    service=
    rm -rf "$XDG_RUNTIME_DIR/zam_connector"
}

# On the data folder as it is now.
start_service() {
    stop_service
    mkdir -m 700 "$XDG_RUNTIME_DIR/zam_connector"
    mkfifo "$XDG_RUNTIME_DIR/ready"
    zam_connectord --data "$data" --ready-fd 3 3>"$XDG_RUNTIME_DIR/ready" 2>"$scratch/log" &
    service=$!
    read -r -t 30 <"$XDG_RUNTIME_DIR/ready" || { cat "$scratch/log" >&2; exit 1; }
    rm "$XDG_RUNTIME_DIR/ready"
}

connect() {
    zamctl --quiet start --server server.example --port 13000 --wait
}

disconnect() {
    zamctl --quiet stop --wait
}

# What the messages about wrong uploads are about.
write_wrong_files() {
    printf '{"log_level": {"$int32": 3000000000}}' >s.json
    { printf '{"text": "' && head -c 676000 /dev/zero | tr '\0' x && printf '"}'; } >large.json
}

write_guide() {
    mkdir -p "$data/files/guides"
    head -c 1048576 /dev/zero >"$data/files/guides/setup.pdf"
    touch -d 2026-01-31T12:34:56Z "$data/files/guides/setup.pdf"
}

# The sample's certificate, with its key.
write_certificate() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -set_serial 2 \
        -subj "/O=Sample/CN=device.example" -keyout "$data/client_certs/sample.key" \
        -out "$data/client_certs/sample.pem" 2>"$scratch/openssl.log"
    echo '{"certificate_file": "sample.pem", "private_key_file": "sample.key"}' \
        >"$data/client_certs/sample.json"
}

# prepare SECTION COMMAND: brings about what the command is about.
prepare() {
    case "$1: $2" in
        'Rules that hold for every command: zamctl state')
            mkdir -m 700 "$XDG_RUNTIME_DIR/zam_connector"
            ;;
        'Rules that hold for every command: zamctl stop')
            rm -f "$data/faults.json"
            if grep -q 'Access denied' "$expected"; then
                echo '{"rules": [{"endpoint": "connController", "operation": "Stop",
                                  "result_code": "0x80000045"}]}' >"$data/faults.json"
            fi
            start_service
            ;;
        'state: zamctl state' | stop:* | ping:*) connect ;;
        start:* | watch:*) disconnect ;;
        sync:*)
            connect
            disconnect # which drops a synchronisation that is still pending
            ;;
        *synced-hash) zamctl policy --tree | zamctl --quiet upload settings - >synced.txt ;;
        'upload: zamctl upload settings s.json') write_wrong_files ;;
        'file: zamctl file info '*) write_guide ;;
        'certs: zamctl certs')
            write_certificate
            start_service
            ;;
        'doctor: zamctl doctor') stop_service ;;
    esac
}

# watched COUNT: shows the next lines of the watch.
watched() {
    local line i
    for ((i = 0; i < $1; ++i)); do
        read -r -t 30 -u 5 line
        printf '%s\n' "$line"
    done
}

# run_watch COMMAND: with the changes that the document shows.
run_watch() {
    mkfifo "$XDG_RUNTIME_DIR/watch"
    $1 >"$XDG_RUNTIME_DIR/watch" 2>&1 &
    watch=$!
    exec 5<"$XDG_RUNTIME_DIR/watch"
    watched 1
    echo '{"a": 1}' >"$data/policy.json"
    watched 1
    connect
    watched 2
    if [[ $1 == *--json* ]]; then
        kill "$watch"
    else
        echo '{"a": 1, "b": [1, 2]}' >"$data/policy.json"
        watched 1
        rm -f "$data/server_data.json"
        echo '{"version_major": 14, "version_minor": 2, "device_status": "managed",
               "offers_files": true, "wants_diagnostics": true}' >"$data/server_data.json"
        watched 1
        kill "$watch"
        watched 1
    fi
    exec 5<&-
    wait "$watch"
    watch=
    rm "$XDG_RUNTIME_DIR/watch"
}

# What differs from run to run, by its form.
normalised() {
    local times='[0-9]{4}-[0-9]{2}-[0-9]{2}[ T][0-9:.]{12}Z?'
    sed -E -e "s#$XDG_RUNTIME_DIR#/run/user/1000#g; s#$scratch/srv#/srv#g" \
        -e 's/[0-9]+\.[0-9]+ (us|s|MiB\/s)/N \1/g; s/("[a-z0-9_]+_us"):[0-9.]+/\1:N/g' \
        -e 's/^(ok +library ).*/\1/' |
        case $section in
            watch) sed -E "s/$times/TIME/; s/0x[0-9a-f]{16}/HASH/; s/^\^C//" ;;
            doctor) uniq ;;
            # Where zamctl may use one CPU alone, it says that instead.
            ping) sed -E 's/^(fast channel:|(.*"fast_channel":)).*/\1/' ;;
            # The document has no more behind the default one, and one document for all.
            locales) sed -E -e 's/(\{"locales":\[\{[^}]*\}).*\]\}$/\1]}/' -e '/default$/q' ;;
            *) cat ;;
        esac
}

# matches: whether the file "actual" is as the file "wanted" has it.
matches() {
    local pattern
    pattern=$(sed -e 's/[][*?\\()|!@+]/\\&/g' -e 's/^\.\.\.$/*/' "$scratch/wanted")
    # shellcheck disable=SC2053  # it is a pattern
    [[ $(cat "$scratch/actual") == $pattern ]]
}

failures=0
zam_connectord --init "$data" >"$scratch/init.log"
echo '{"start": [{"state": "connecting"}, {"state": "connected", "after_ms": 1}],
       "stop": [{"state": "stopping"}, {"state": "stopped", "after_ms": 1}]}' >"$data/connection.json"
for file in "$scratch"/commands/*.command; do
    expected=${file%.command}.expected
    section=$(cat "${file%.command}.section")
    command=$(cat "$file")
    prepare "$section" "$command"
    command=${command//\/srv/$scratch/srv}
    if [[ $section == watch ]]; then
        run_watch "$command" >"$scratch/output"
        if [[ $command == *--json* ]]; then
            sed -i -e '/^{/!d' -e '/"connected"/d' "$scratch/output"
        fi
    else
        messages=$scratch/output
        case "$section: $command" in
            doctor:* | *--json*) messages=$scratch/messages ;; # the document shows the result alone
        esac
        : >"$scratch/output"
        bash -c "$command" >>"$scratch/output" 2>>"$messages" || true # the texts tell of failures
    fi
    normalised <"$scratch/output" >"$scratch/actual"
    normalised <"$expected" >"$scratch/wanted"
    if ! matches; then
        number=${file##*/}
        echo "$document:${number%.command}: $command" >&2
        diff -u --label document --label printed "$scratch/wanted" "$scratch/actual" >&2 || true
        failures=$((failures + 1))
    fi
done

# The summaries: each word in front of the first option is a command, each option is one of it.
while read -r line; do
    read -ra words <<<"$line"
    command=()
    for word in "${words[@]:1}"; do
        [[ $word =~ ^[a-z][a-z-]*$ ]] || break
        command+=("$word")
    done
    help=$(zamctl "${command[@]}" --help)
    while read -r option; do
        if ! grep -q -e "$option\b" <<<"$help"; then
            echo "$document: zamctl ${command[*]} has no option $option" >&2
            failures=$((failures + 1))
        fi
    done < <(grep -oE -e '--[a-z-]+' <<<"$line" || true)
done < <(awk '/^```/ { isCode = !isCode; next }
              isCode && /^zamctl [a-z]/ && !/: / { if (text) print text; text = $0; next }
              isCode && /^             / && text { text = text " " $0; next }
              { if (text) print text; text = "" }' "$document")

if [ "$failures" -ne 0 ]; then
    echo "$failures commands do not do what $document says" >&2
    exit 1
fi
