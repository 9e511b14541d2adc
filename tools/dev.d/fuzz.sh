# The fuzzers, for a while. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

fuzz_packages=(clang libclang-rt-14-dev)

# New inputs stay under build/fuzz/; a finding's input does too, and is told with the command that runs it again.
fuzz() {
    local seconds=${1:-60} targets=(setting_document server_answer) target found=0 running=()
    local bin=$PWD/build/linux-fuzz/fuzz work=$PWD/build/fuzz scratch=/dev/shm
    case $seconds in "" | *[!0-9]*) fail "fuzz for how many seconds? $seconds is no number" ;; esac
    step build-linux-fuzz ./dev build linux-fuzz "${targets[@]/#/fuzz_}" || exit 1
    [ -w $scratch ] || scratch=/tmp
    for target in "${targets[@]}"; do
        mkdir -p "$work/$target"
        (
            TMPDIR=$(mktemp -d "$scratch/zorv-fuzz.XXXXXX")
            export TMPDIR
            trap 'rm -rf "$TMPDIR"' EXIT
            # Documents are small; what is larger is slow and shows nothing more.
            "$bin/fuzz_$target" -max_total_time="$seconds" -max_len=4096 -timeout=20 -print_final_stats=1 \
                -artifact_prefix="$work/$target-" "$work/$target" "fuzz/corpus/$target" >"$logs/fuzz-$target.log" 2>&1
        ) &
        running+=($!)
    done
    for target in "${targets[@]}"; do
        if wait "${running[0]}"; then
            sed -n 's/^stat::number_of_executed_units: *\([0-9]*\)/'"$target"': \1 inputs,/p
                    s/^stat::average_exec_per_sec: *\([0-9]*\)/    \1 a second,/p' "$logs/fuzz-$target.log" | paste -sd' '
            grep -o 'cov: [0-9]* ft: [0-9]*' "$logs/fuzz-$target.log" | tail -1 | sed 's/^/    /'
        else
            found=1
            say "$target: a finding, $logs/fuzz-$target.log; again with:"
            say "    TMPDIR=$scratch $bin/fuzz_$target $(ls -t "$work/$target-"* 2>/dev/null | head -1)"
        fi
        running=("${running[@]:1}")
    done
    return $found
}
