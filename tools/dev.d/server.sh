# The reference server on loopback, gone when the script ends. Sourced by ./dev.
# shellcheck shell=bash disable=SC2034

exit_commands=
at_exit() {
    exit_commands="$*; $exit_commands"
    # shellcheck disable=SC2064  # the commands as they are now
    trap "$exit_commands" EXIT
}

# With an authority of its own; $server_address is its HTTPS one, and its lines are in server.log.
start_server() {
    local folder=$1 log=$1/server.log
    [ -f "$folder/server.pem" ] || zorvserver --make-ca "$folder" >/dev/null || return
    mkdir -p "$folder/settings/2.0.6.0"
    cp packaging/default.json "$folder/settings/2.0.6.0/default.json"
    : >"$log"  # there before its server is, for who looks first
    zorvserver --data "$folder/data" --cert "$folder/server.pem" --key "$folder/server.key" \
        --settings "$folder/settings" >"$log" 2>&1 </dev/null &
    at_exit "kill $! 2>/dev/null || true"
    for _ in {1..50}; do
        server_address=$(sed -n 's/^listening https //p' "$log")
        [ -z "$server_address" ] || return 0
        sleep 0.1
    done
    cat "$log"
    return 1
}
