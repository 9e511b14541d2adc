# The service on a machine of its own under build/, with time shortened, and the soak. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# A fresh machine in the folder, with the service installed and running; gone with the script.
start_service() {
    export ZORV_MACHINE=$1 PATH=$PWD/build/linux-release/bin:$PATH
    step build-linux-release ./dev build linux-release zorvalis zorv_hardware zorvctl zorvserver || exit 1
    ! zorvctl service status >/dev/null 2>&1 || zorvctl service stop >/dev/null || true
    rm -rf "$ZORV_MACHINE"
    zorvctl machine init >"$logs/machine.log" || fail "no machine can be made in $ZORV_MACHINE"
    printf '{"wait": %s}\n' "$2" >"$ZORV_MACHINE/clock.json"
    printf '{"level": 4, "flags": 1}\n' >"$ZORV_MACHINE/trace.json"
    printf '{"lid": 1, "ac": 0, "display": 1}\n' >"$ZORV_MACHINE/power.json"
    zorvalis-agent-service -install
    zorvctl service start || fail "the service does not start"
    at_exit "zorvctl service stop >/dev/null 2>&1 || true"
}

new_rows() {
    zorvctl show --json 2>/dev/null | python3 tools/dev.d/new_rows.py "$ZORV_MACHINE/seen.json" || true
}

# Somebody plays a day; what was recorded comes as it is recorded.
live() {
    local words
    start_service "$PWD/build/live" 0.02
    zorvctl tasks run --speed 60 >"$logs/tasks.log" 2>&1 </dev/null &
    at_exit "kill $! 2>/dev/null || true"
    cat <<'END'

The service runs on the machine in build/live. Its two minutes last two seconds and a half, a minute of the machine's
clock lasts a second: the scheduled task is armed soon, and a pass starts every few seconds. Rows appear as they are stored.

    lid close | lid open | ac out | ac in | suspend | resume | display on | wmi 154      lets something happen
    status | tasks | uploads | settings                                                    shows how things are
    quit

Lid and mains count from the first pass on: until then nobody can tell them from the states that come with the start.

END
    while :; do
        new_rows
        words=
        if ! read -r -t 1 words; then
            [ $? -gt 128 ] || break  # the end of the input, and not of the second
            continue
        fi
        # shellcheck disable=SC2086  # words of a command
        case $words in
            "") ;;
            quit | exit) break ;;
            status) zorvctl service status || true ;;
            tasks) zorvctl tasks list || true ;;
            uploads | settings) zorvctl "$words" || true ;;
            sleep\ [0-9]*) sleep "${words#sleep }" ;;
            *) zorvctl event $words || true ;;
        esac
    done
    new_rows
    zorvctl service stop
}

# Days of passes and events in minutes, counted row by row against what the rules give.
soak() {
    local days=${1:-30}
    case $days in "" | *[!0-9]*) fail "soak for how many days? $days is no number" ;; esac
    start_service "$PWD/build/soak" 0.0001
    rm -f "$ZORV_MACHINE/trace.json"
    python3 tools/dev.d/soak.py "$days" "$(service_process)"
}

# The number of the service's process on this machine.
service_process() {
    local folder
    for folder in /proc/[0-9]*; do
        [ "$(readlink "$folder/exe")" = "$PWD/build/linux-release/bin/zorvalis-agent-service" ] || continue
        ! grep -qz "^ZORV_MACHINE=$ZORV_MACHINE\$" "$folder/environ" || printf '%s\n' "${folder#/proc/}"
    done 2>/dev/null
}

# What a running service takes while nothing happens, over a minute.
idle() {
    local process before after memory
    start_service "$PWD/build/idle" 0.001
    rm -f "$ZORV_MACHINE/trace.json"
    sleep 5  # its two minutes are over
    process=$(service_process)
    before=$(awk '{print $14 + $15}' "/proc/$process/stat")
    sleep 60
    after=$(awk '{print $14 + $15}' "/proc/$process/stat")
    memory=$(awk '/^VmRSS/ {print $2}' "/proc/$process/status")
    say "idle: $(((after - before) * 10)) ms of processor time in a minute, $memory KiB"
    [ "$after" -eq "$before" ] && [ "$memory" -lt 8192 ]
}
