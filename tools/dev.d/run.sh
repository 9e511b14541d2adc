# ./dev run [--again]: the whole road on one machine under build/. Settings come down, a pass collects, its file goes
# up. --again makes everything due at once. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# Runs one pass with its trace on, and prints in a few lines what it did.
pass() {
    local trace=$ZORV_MACHINE/trace.log due
    rm -f "$trace"
    printf '{"level": 4, "flags": 1}\n' >"$ZORV_MACHINE/trace.json"
    zorvalis-agent-service -j0
    rm -f "$ZORV_MACHINE/trace.json"
    due=$(cut -f4 "$trace" | sed -n -e 's/^BigdataCheck - //; T' -e 's/CJ_THERMAL/temperatures/' \
        -e 's/CJ_BATTERYPOWER/battery and power/; s/CJ_SYSTEMINFO/system information/' \
        -e 's/CJ_UPLOAD/upload/; p' | paste -sd, | sed 's/,/, /g')
    say "pass      zorvalis-agent-service -j0, $(wc -l <"$trace") messages in build/machine/trace.log"
    say "          due: ${due:-nothing}; new rows: $(cut -f4 "$trace" | grep -c '^Insert .* Success!!$' || true)"
    cut -f4 "$trace" | sed -n 's/^\[DownloadSettingFile\] /          settings: /p'
}

run() {
    local bin=$PWD/build/linux-release/bin folder=$PWD/build/server known="as the last run left it" timer file
    local data=$PWD/build/machine/ProgramData/Zorv/Zorvcore/Zorvalis/data
    local columns=local_time,cpu_temp,gpu_temp,cpu_usage,rpm_fans,current_capacity,current,model_name,cpu_info
    case ${1:-} in "" | --again) ;; *) fail "run takes --again or --live, not $1" ;; esac
    step build-linux-release ./dev build linux-release zorvalis zorv_hardware zorvctl zorvserver || exit 1
    export ZORV_MACHINE=$PWD/build/machine PATH=$bin:$PATH
    if [ ! -f "$ZORV_MACHINE/hardware.json" ]; then
        zorvctl machine init >"$logs/machine.log" || fail "no machine can be made in $ZORV_MACHINE"
        known="made just now"
    fi
    start_server "$folder" || fail "the reference server does not start: $folder/server.log"
    printf '{"online": true, "hosts": {"fs.zorvcore.example:443": "%s"}, "ca": "%s"}\n' \
        "$server_address" "$folder/ca.pem" >"$ZORV_MACHINE/network.json"
    if [ "${1:-}" = --again ]; then
        for timer in GetThermal GetBatteryPower GetSystemInfo getSettingFile upload; do
            zorvctl registry delete product "$timer" >/dev/null 2>&1 || true
        done
    fi
    say "machine   build/machine, $known"
    say "server    zorvserver on $server_address, its data in build/server"
    pass
    file=$(zorvctl registry get product ODb_Filename 2>/dev/null || true)
    if [ -n "$file" ]; then
        say "ageing    a file goes up when it is two days old: its recorded date is set back by three, and the"
        say "          upload made due at once"
        zorvctl registry set product ODb_Filename "${file%;*};$(date -d '-3 days' +%F)" >/dev/null
        zorvctl registry delete product upload >/dev/null 2>&1 || true
        pass
        file=${file%%;*}
        cmp "$data/$file" "$folder/data/files/$file" || fail "the server holds another file"
        say "compared  the server's file is the machine's, byte for byte"
        sed -n 's/^[0-9:.]* *https */          server: /p' "$folder/server.log"
    fi
    zorvctl status >"$logs/machine.log" || true  # this machine has no service: its passes were run by hand
    say
    for file in "$folder"/data/files/*.db; do
        [ ! -f "$file" ] || zorvctl show "$file" --last 2 --columns "$columns"
    done
    say
    zorvctl uploads
    say
    say "More to see (./dev run --again makes all of it due at once):"
    say "    export ZORV_MACHINE=$ZORV_MACHINE PATH=$bin:\$PATH"
    say "    zorvctl show; zorvctl settings; zorvctl --help"
}
