# What runs a service on a machine of its own under build/, with time shortened: ./dev run --live, ./dev soak and
# ./dev bench idle. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# Makes a fresh machine in the folder $1, installs the service and starts it; it is stopped when the script ends. The
# product's waits take $2 times as long, and the machine's clock is $3 seconds ahead.
start_service() {
    export ZORV_MACHINE=$1 PATH=$PWD/build/linux-release/bin:$PATH
    step build-linux-release ./dev build linux-release zorvalis zorv_hardware zorvctl zorvserver || exit 1
    ! zorvctl service status >/dev/null 2>&1 || zorvctl service stop >/dev/null || true
    rm -rf "$ZORV_MACHINE"
    zorvctl machine init >"$logs/machine.log" || fail "no machine can be made in $ZORV_MACHINE"
    printf '{"offset": %s, "wait": %s}\n' "${3:-0}" "$2" >"$ZORV_MACHINE/clock.json"
    printf '{"level": 4, "flags": 1}\n' >"$ZORV_MACHINE/trace.json"
    printf '{"lid": 1, "ac": 0, "display": 1}\n' >"$ZORV_MACHINE/power.json"
    zorvalis-agent-service -install
    zorvctl service start || fail "the service does not start"
    at_exit "zorvctl service stop >/dev/null 2>&1 || true"
}

# Prints the rows that were stored since the last call.
new_rows() {
    zorvctl show --json 2>/dev/null | python3 tools/dev.d/new_rows.py "$ZORV_MACHINE/seen.json" || true
}

# ./dev run --live: a person plays a machine's day and sees rows as they are stored. The day begins at noon: a fresh
# machine collects on its first day and, by the default settings, pauses for a day from midnight on.
live() {
    local line='' words status=0 part
    start_service "$PWD/build/live" 0.02 $(($(date -d 'today 12:00' +%s) - $(date +%s)))
    zorvctl tasks run --speed 60 >"$logs/tasks.log" 2>&1 </dev/null &
    at_exit "kill $! 2>/dev/null || true"
    cat <<END

The service runs on the machine in build/live. Its two minutes last two seconds and a half, a minute of the machine's
clock lasts a second: the scheduled task is armed soon, and a pass starts every few seconds. Rows appear as they are stored.

It is noon there, and the machine's midnight comes at $(date -d '12 minutes' +%T) by your clock: until then it collects, and
then pauses for a day, which lasts 24 to 25 minutes.

    lid close | lid open | ac out | ac in | suspend | resume | display on | wmi 154      lets something happen
    status | tasks | uploads | settings                                                    shows how things are
    quit

Lid and mains count from the first pass on: until then nobody can tell them from the states that come with the start.

END
    while [ $status -eq 0 ] || [ $status -gt 128 ]; do  # of `read`: 1 at the end of the input, above 128 after a second
        new_rows
        status=0
        IFS= read -r -t 1 part || status=$?
        line+=$part
        [ $status -le 128 ] || continue  # half a line is kept until the rest of it comes
        read -r words <<<"$line"
        line=
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

# ./dev soak [DAYS]: lives through days in minutes and compares the number of rows with what the rules give.
soak() {
    local days=${1:-30}
    require_count "$days" "soak for how many days"
    start_service "$PWD/build/soak" 0.0001
    rm -f "$ZORV_MACHINE/trace.json"
    python3 tools/dev.d/soak.py "$days" "$(service_process)"
}

# Prints the process id of the service on this machine.
service_process() {
    local folder
    for folder in /proc/[0-9]*; do
        [ "$(readlink "$folder/exe")" = "$PWD/build/linux-release/bin/zorvalis-agent-service" ] || continue
        ! grep -qz "^ZORV_MACHINE=$ZORV_MACHINE\$" "$folder/environ" || printf '%s\n' "${folder#/proc/}"
    done 2>/dev/null
}

# ./dev bench idle [MINUTES]: what the service takes while nothing happens (bench/idle.py).
idle() {
    local minutes=${1:-10}
    require_count "$minutes" "idle for how many minutes"
    start_service "$PWD/build/idle" 0.001
    rm -f "$ZORV_MACHINE/trace.json"
    sleep 5  # the work that the service puts off for two minutes is done
    python3 -B bench/idle.py "$(service_process)" "$minutes"
}
