# ./dev fuzz [SECONDS]: all fuzzers at once, each for the whole time. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

fuzz_packages=(clang libclang-rt-14-dev)
fuzz_options=(ASAN_OPTIONS=allow_addr2line=1 UBSAN_OPTIONS=print_stacktrace=1)
fuzzers=(client_call rpc_frames setting_document server_answers)

# Prints in a line how the fuzzer $1 ended: runs, speed, coverage, inputs. When it failed (status $2), also the end of
# its report and how to run the input again.
fuzz_outcome() {
    local name=$1 status=$2 log=$logs/fuzz-$1.log folder=build/fuzz/$1 input edges all
    edges=$(grep -o ' cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || true)
    all=$(sed -n 's/^INFO: Loaded .* modules *(\([0-9]*\) inline.*/\1/p' "$log")
    printf '%-18s %s runs, %s a second, %s of %s edges, %s inputs in %s/corpus\n' "$name" \
        "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")" "${edges:-0}" "${all:-?}" \
        "$(find "$folder/corpus" -type f | wc -l)" "$folder"
    [ "$status" -ne 0 ] || return 0
    grep -v -e '^#[0-9]*[[:space:]]' -e '^[[:space:]]*NEW_FUNC' "$log" | tail -60
    input=$(grep -o 'Test unit written to .*' "$log" | tail -1 | cut -d' ' -f5)
    say "$name: a finding ($log), its input is ${input:-not known}; run it again:"
    say "    ${fuzz_options[*]} build/linux-fuzz/fuzz/fuzz_$name ${input:-INPUT}"
    return 1
}

fuzz() {
    local seconds=${1:-60} name failed=no memory=/dev/shm steady=() running=() i status
    require_count "$seconds" "fuzz for how many seconds"
    step build-linux-fuzz ./dev build linux-fuzz "${fuzzers[@]/#/fuzz_}" || exit 1
    ! setarch -R true 2>/dev/null || steady=(setarch -R)
    [ -w $memory ] || memory=${TMPDIR:-/tmp}
    memory=$(mktemp -d "$memory/zorv-fuzz.XXXXXX")
    # shellcheck disable=SC2064  # the folder's name is put in now
    trap "kill \$(jobs -p) 2>/dev/null || true; wait; rm -rf '$memory'" EXIT
    trap "exit 130" INT TERM
    for name in "${fuzzers[@]}"; do
        mkdir -p "build/fuzz/$name/corpus"
        env TMPDIR="$memory" "${fuzz_options[@]}" "${steady[@]}" "build/linux-fuzz/fuzz/fuzz_$name" \
            -max_total_time="$seconds" -timeout=10 -max_len=8192 -dict=fuzz/json.dict -print_final_stats=1 \
            -artifact_prefix="build/fuzz/$name/" "build/fuzz/$name/corpus" "fuzz/corpus/$name" \
            >"$logs/fuzz-$name.log" 2>&1 </dev/null &
        running+=($!)
    done
    say "fuzzing for $seconds seconds"
    for i in "${!fuzzers[@]}"; do
        status=0
        wait "${running[i]}" || status=$?
        fuzz_outcome "${fuzzers[i]}" $status || failed=yes
    done
    [ $failed = no ]
}
