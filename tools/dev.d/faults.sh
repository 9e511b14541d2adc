# ./dev faults: faults at every file operation, and damaged files. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# Runs faults.py with the programs of the build $1 and the other arguments. Machines lie in memory, since a run makes
# thousands; without address randomisation, so that the sanitizers work on every kernel.
try_faults() {
    local bin=$PWD/build/$1/bin memory=/dev/shm steady=()
    ! setarch -R true 2>/dev/null || steady=(setarch -R)
    [ -w $memory ] || memory=${TMPDIR:-/tmp}
    memory=$(mktemp -d "$memory/zorv-faults.XXXXXX")
    [[ " $* " == *" --case "* ]] || at_exit "chmod -R u+rwX '$memory'; rm -rf '$memory'"
    PATH=$bin:$PATH start_server "$memory/server" || fail "the reference server does not start"
    "${steady[@]}" python3 -B tools/dev.d/faults.py "$bin" "$memory" "${@:2}"
}

# --asan builds and takes the address sanitizer's build, whose reports are findings too; --built PRESET takes the build
# that is there. Other arguments go to faults.py.
faults() {
    local preset=linux-release status=0
    if [ "${1:-}" = --built ]; then
        try_faults "${@:2}"
        return
    fi
    if [ "${1:-}" = --asan ]; then
        preset=linux-asan
        export ASAN_OPTIONS=log_path=$PWD/$logs/sanitizer UBSAN_OPTIONS=log_path=$PWD/$logs/sanitizer:print_stacktrace=1
        shift
    fi
    step "build-$preset" ./dev build $preset zorvalis zorv_hardware zorvctl zorvserver zorvfault || exit 1
    rm -f "$logs"/sanitizer.*
    try_faults $preset "$@" || status=1
    ! compgen -G "$logs/sanitizer.*" || status=1
    return $status
}
