# One pass on a machine under build/, and what a person wants to see of it. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# When a kind is due again, by its timer in the registry and its period in the setting file: m30, d1.
next_time() {
    local name=$1 timer=$2 setting=$3 settings stamp period
    settings=$ZORV_MACHINE/ProgramData/Zorv/Zorvcore/Zorvalis/setting.json
    [ -f "$settings" ] || settings=$(dirname "$(command -v zorvctl)")/default.json
    stamp=$(zorvctl registry get product "$timer" 2>/dev/null) || return 0
    period=$(sed -n "s/.*\"$setting\" *: *\"\([md][0-9]*\)\".*/\1/p" "$settings")
    case $period in
        m*) stamp=$((stamp + ${period#m} * 60)) ;;
        d*) stamp=$((stamp + ${period#d} * 86400)) ;;
        *) return 0 ;;
    esac
    date -d "@$stamp" "+          %a %H:%M  $name"
}

run() {
    local bin=$PWD/build/linux-release/bin known="as the last run left it" trace due stored timer
    local columns=local_time,cpu_temp,gpu_temp,cpu_usage,rpm_fans,current_capacity,current,cellvoltages
    columns+=,temperature,ac_dc,lid_status,model_name,cpu_info,memory_size
    step build-linux-release ./dev build linux-release zorvalis zorv_hardware zorvctl || exit 1
    export ZORV_MACHINE=$PWD/build/machine PATH=$bin:$PATH
    if [ ! -f "$ZORV_MACHINE/hardware.json" ]; then
        zorvctl machine init >"$logs/machine.log" || fail "no machine can be made in $ZORV_MACHINE"
        known="made just now"
    fi
    if [ "${1:-}" = --again ]; then
        for timer in GetThermal GetBatteryPower GetSystemInfo; do
            zorvctl registry delete product "$timer" >/dev/null 2>&1 || true
        done
    fi

    trace=$ZORV_MACHINE/trace.log
    rm -f "$trace"
    printf '{"level": 4, "flags": 1}\n' >"$ZORV_MACHINE/trace.json"
    zorvalis-agent-service -j0
    rm -f "$ZORV_MACHINE/trace.json"

    due=$(cut -f4 "$trace" | sed -n -e 's/^BigdataCheck - //; T' -e 's/CJ_THERMAL/temperatures/' \
        -e 's/CJ_BATTERYPOWER/battery and power/; s/CJ_SYSTEMINFO/system information/' \
        -e 's/CJ_UPLOAD/upload (not built yet)/; p' | paste -sd, | sed 's/,/, /g')
    stored=$(cut -f4 "$trace" | grep -c '^Insert .* Success!!$' || true)
    say "machine   build/machine, $known"
    say "pass      zorvalis-agent-service -j0: $(wc -l <"$trace") messages in build/machine/trace.log"
    say "due       ${due:-nothing} (mask $(sed -n 's/.*BigdataCheck funcMask : //p' "$trace"))"
    say "stored    $stored new rows"
    say "next      (./dev run --again makes all of it due at once)"
    next_time temperatures GetThermal thermal
    next_time "battery and power" GetBatteryPower battery_power
    next_time "system information" GetSystemInfo systeminfo
    [ ! -s "$ZORV_MACHINE/eventlog.jsonl" ] || zorvctl log --last 3
    zorvctl machine status >"$logs/machine.log" || cat "$logs/machine.log"
    say
    zorvctl show --last 3 --columns "$columns"
    say
    say "These are a few columns of the newest rows. To see all of them, and to look around:"
    say "    export ZORV_MACHINE=$ZORV_MACHINE PATH=$bin:\$PATH"
    say "    zorvctl show; zorvctl --help"
}
