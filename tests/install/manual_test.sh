#!/bin/bash
# manual_test.sh BIN MAN_FOLDER VERSION: every option and command that a program's help lists is in
# its manual page, every option of the page is in the help, and the page is well formed.
set -euo pipefail
export LC_ALL=C

bin=$1
man=$2
version=$3
failed=0

# Options and commands of a help text.
options() {
    grep -oE '^  (-[^ ]+)' | tr ',' '\n' | tr -d ' '
}
commands() {
    sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}

# all_help PROGRAM COMMAND...: the help of a command and of all below it.
all_help() {
    local help word
    help=$("$@" --help)
    echo "$help"
    for word in $(commands <<<"$help"); do
        all_help "$@" "$word"
    done
}

compare() {
    local program=$1 page=$man/$2 help text
    help=$(all_help "$bin/$program")
    text=$(sed -e '/^\.\\"/d' -e 's/\\f[A-Z]//g' -e 's/\\-/-/g' "$page")
    # What only one of both has; words of prose have no two dashes.
    if ! diff -u --label "$program --help" --label "$2" \
        <(options <<<"$help" | grep -e '^--' | sort -u) \
        <(grep -oE -e '--[a-z][a-z-]+' <<<"$text" | sort -u) >&2; then
        failed=1
    fi
    local word
    for word in $(commands <<<"$help" | sort -u) $(options <<<"$help" | grep -E '^-[a-z]$' | sort -u); do
        if ! grep -qE -e "(^|[^a-z-])$word([^a-z-]|\$)" <<<"$text"; then
            echo "$2 says nothing of $program's '$word'" >&2
            failed=1
        fi
    done
    if [[ $(head -1 "$page") != *"\"zam_connector $version\""* ]]; then
        echo "$2 is of another version than $version" >&2
        failed=1
    fi
    local warnings
    warnings=$(groff -man -ww -z "$page" 2>&1)
    if [[ -n $warnings ]]; then
        echo "$warnings" >&2
        failed=1
    fi
}

compare zamctl zamctl.1
compare zam_connectord zam_connectord.8
exit $failed
