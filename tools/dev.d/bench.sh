# ./dev bench: the measurements, one or all, and the page that is made of them, docs/cost.md. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# One part by its name, with the number of runs; idle goes by minutes, and by its own number of them among all parts.
bench_part() {
    local folder=build/linux-release/bench
    case $1 in
        pass)
            install_packages strace && $folder/pass-bench "${@:2:1}" && python3 -B bench/pass_calls.py
            ;;
        idle) idle "${minutes[@]}" ;;
        calls) $folder/rpc-bench ;;
        windows) bench_windows ;;
        programs) python3 -B bench/programs.py ;;
        page) python3 -B bench/page.py build/linux-release docs ;;
        *) "$folder/$1-bench" "${@:2}" ;;
    esac
}

# Calls of the Windows build, under Wine.
bench_windows() {
    local log=$PWD/$logs/bench-windows.log results=bench/results/5-calls-windows.json status=0
    step build-windows build_windows_bench || return
    wine_environment
    at_exit stop_wine
    step start-wine start_wine || return
    # Into a file: a program that Wine leaves behind keeps a pipe open.
    timeout --foreground -k 10 600 wine build/windows/bench/windows-rpc-bench.exe >"$log" 2>&1 </dev/null || status=$?
    cat "$log"
    [ $status -eq 0 ] && mkdir -p build/linux-release/bench/results &&
        cp "build/windows/$results" "build/linux-release/$results"
}

build_windows_bench() {
    setup windows && configure windows -DZORV_BENCH=ON && cmake --build --preset windows --target windows-rpc-bench
}

bench() {
    local all=(pass idle upload calls windows records programs growth page) parts=() minutes=() failed=() part
    case ${1:-} in
        fleet)
            [ $# -eq 1 ] || fail "bench fleet takes nothing else"
            step build-fleet ./dev build linux-release fleet || exit 1
            build/linux-release/bench/fleet 100000 docs/fleet.svg
            return
            ;;
        "" | [0-9]*) parts=("${all[@]}") ;;
        *)
            parts=("${1#--}")
            [[ " ${all[*]} " == *" ${parts[0]} "* ]] || fail "bench what? ${all[*]} or fleet"
            shift
            ;;
    esac
    [ $# -eq 0 ] || require_count "$1" "bench for how many runs"
    [ ${#parts[@]} -gt 1 ] || minutes=("$@")
    step build-linux-release ./dev build linux-release || exit 1
    for part in "${parts[@]}"; do  # each in a shell of its own, and what fails does not keep the others back
        (exit_commands='' && bench_part "$part" "$@") || failed+=("$part")
    done
    [ ${#failed[@]} -eq 0 ] || fail "these parts of the bench have failed: ${failed[*]}"
}
