# To be sourced: start_service BIN FOLDER [OPTION...] starts the installed service on a fresh runtime directory,
# which it exports, and ends it with the script. The array service_launcher goes before it.

service=
service_launcher=()

stop_service() {
    if [[ -n $service ]]; then
        kill "$service" 2>/dev/null || true
        wait "$service" 2>/dev/null || true
    fi
    rm -rf "${ZAM_RUNTIME_DIR:?}"
}

start_service() {
    ZAM_RUNTIME_DIR=$(mktemp -d)
    export ZAM_RUNTIME_DIR
    trap stop_service EXIT
    mkfifo "$ZAM_RUNTIME_DIR/ready"
    "${service_launcher[@]}" "$1/zam_connectord" --ready-fd 3 "${@:3}" 3>"$ZAM_RUNTIME_DIR/ready" 2>"$2/service.log" &
    service=$!
    if ! read -r -t 30 <"$ZAM_RUNTIME_DIR/ready"; then
        echo "the service did not start:" >&2
        cat "$2/service.log" >&2
        exit 1
    fi
}
