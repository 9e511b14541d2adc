# The reference server on loopback, and commands for the end of the script. Sourced by ./dev.
# shellcheck shell=bash disable=SC2034

# Adds a command to those that run when the script ends; the last one added runs first.
exit_commands=
at_exit() {
    exit_commands="$*; $exit_commands"
    # shellcheck disable=SC2064  # the commands are put in now
    trap "$exit_commands" EXIT
}

# Starts a server in the folder $1, with a certificate authority of its own, until the script ends. Sets $server_address
# to its HTTPS address; its output is in server.log. Fails when it does not listen within five seconds.
start_server() {
    local folder=$1 log=$1/server.log
    [ -f "$folder/server.pem" ] || zorvserver --make-ca "$folder" >/dev/null || return
    mkdir -p "$folder/settings/2.0.6.0"
    cp packaging/default.json "$folder/settings/2.0.6.0/default.json"
    : >"$log"  # so that the loop below finds it at once
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
