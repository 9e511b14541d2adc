# ./dev test: all test programs of both sides, each step with its log, and one count at the end. Sourced by ./dev, whose
# other commands use `step` too.
# shellcheck shell=bash disable=SC2154

passed=0 failed=0 skipped=0

# Runs a command as the step $1, with its output in a log, and prints how it ended. The log of a failed step is shown.
step() {
    local name=$1 log=$logs/$1.log start=${EPOCHREALTIME/[.,]/} status=0 result=ok time
    shift
    mkdir -p "$logs"
    printf '%-30s ' "$name"
    "$@" >"$log" 2>&1 </dev/null || status=$?
    [ $status -eq 0 ] || result=FAILED
    time=$(((${EPOCHREALTIME/[.,]/} - start) / 100000))
    printf '%-7s %4d.%d s\n' $result $((time / 10)) $((time % 10))
    [ $status -eq 0 ] || cat "$log"
    return $status
}

# Runs a test program with a time limit. A report of a sanitizer is a failure, whichever process has written it.
watched() {
    local status=0 reports
    timeout --foreground -k 10 900 "$@" || status=$?
    [ $status -ne 124 ] || say "stopped: it took longer than 900 seconds"
    reports=("$logs"/sanitizer.*)
    [ -e "${reports[0]}" ] || return $status
    cat "${reports[@]}"
    rm -f "${reports[@]}"
    return 1
}

# Adds the results in the log of step $1, which ended with status $2, to the counts. A program that ended early, ran no
# test or failed outside of a test counts as one failure.
count() {
    local log=$logs/$1.log status=$2 ok bad
    ok=$(grep -c '^\[       OK \]' "$log" || true)
    bad=$(grep -cE '^\[  FAILED  \] .* \([0-9]+ ms\)' "$log" || true)
    skipped=$((skipped + $(grep -cE '^\[  SKIPPED \] .* \([0-9]+ ms\)' "$log" || true)))
    if [ "$bad" -eq 0 ] &&
        { [ "$status" -ne 0 ] || [ "$ok" -eq 0 ] || ! grep -q '^\[==========\] .* ran\.' "$log"; }; then
        say "$1: it ended early, ran nothing, or a sanitizer complained ($log)"
        bad=1
    fi
    passed=$((passed + ok)) failed=$((failed + bad))
}

# Runs all test programs of the build $1; the other arguments are a command that starts them.
run_programs() {
    local side=$1 program name status
    shift
    local programs=(build/"$side"/tests/*-tests build/"$side"/tests/*-tests.exe) found=no
    for program in "${programs[@]}"; do
        [ -f "$program" ] || continue
        found=yes
        name=$side-$(basename "$program" .exe)
        status=0
        step "$name" watched "$@" "$program" --gtest_color=no || status=$?
        count "$name" $status
    done
    if [ $found = no ]; then
        say "$side: there is no test program"
        failed=$((failed + 1))
    fi
}

# Builds the preset $1 and runs its test programs.
test_side() {
    local side=$1
    shift
    if step "build-$side" ./dev build "$side"; then
        run_programs "$side" "$@"
    else
        say "$side: not tested, because it cannot be built"
        failed=$((failed + 1))
    fi
}

# A sample of ./dev faults as one test: of the build $1, each $2nd operation. The other arguments are a command that
# starts it.
test_faults() {
    if step "$1-faults" watched "${@:3}" ./dev faults --built "$1" --every "$2" --damaged 79 --seed 1; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
}

# Runs the test script tests/$2.py as the step $1, with the other arguments.
run_script() {
    local status=0
    step "$1" watched python3 -B "tests/$2.py" "${@:3}" || status=$?
    count "$1" $status
}

# Fetches the engine that export_test.py reads data sets with. The lock file has the sums.
setup_duckdb() {
    local folder=build/deps/duckdb
    ! cmp -s tests/duckdb/package-lock.json $folder/fetched || return 0
    { command -v node && command -v npm; } >/dev/null || (install_packages nodejs npm) || return
    rm -rf $folder && mkdir -p $folder && cp tests/duckdb/package*.json $folder/ &&
        timeout -k 10 300 npm ci --prefix $folder --ignore-scripts --no-audit --no-fund && node --version &&
        cp $folder/package-lock.json $folder/fetched ||
        { say "DuckDB cannot be fetched by npm, so the export cannot be tried" && return 1; }
}

# Exported data sets, read back. Without DuckDB that is a failure.
test_export() {
    if step setup-export setup_duckdb; then
        run_script linux-export export_test build/linux-debug/bin build/test-export build/deps/duckdb
    else
        failed=$((failed + 1))
    fi
}

test_linux() {
    local report=log_path=$PWD/$logs/sanitizer steady=()
    # The sanitizers expect a fixed memory map, which some kernels' address randomisation gets in the way of.
    ! setarch -R true 2>/dev/null || steady=(setarch -R)
    step check ./dev check || failed=$((failed + 1))
    test_side linux-debug
    run_script report-page report_test build/linux-debug/bin
    run_script linux-ndr64 ndr64_facts_test
    test_export
    run_script linux-sdk sdk_package_test build/linux-debug
    test_faults linux-debug 80
    test_side linux-asan "${steady[@]}" env ASAN_OPTIONS="$report" UBSAN_OPTIONS="$report:print_stacktrace=1"
    test_faults linux-asan 300 env ASAN_OPTIONS="$report" UBSAN_OPTIONS="$report:print_stacktrace=1"
    test_side linux-tsan "${steady[@]}" env TSAN_OPTIONS="$report:suppressions=$PWD/tools/dev.d/tsan.supp"
}

# What is handed out, made of the Windows build and of the Linux build that the tests have anyway.
setup_package() { (install_packages osslsigncode openssl unzip); }

test_package() {
    if step setup-package setup_package && step package ./dev package linux-debug; then
        run_script package-contents package_test build/windows build/linux-debug build/test-package
    else
        failed=$((failed + 1))
    fi
}

# Wine's prefix, the machine that it shows to programs, is made once and copied for each run, so that every run starts
# on the same machine. It asks for no display and no proxy.
wine_environment() {
    export WINEPREFIX=$PWD/build/wine-prefix WINEARCH=win64 WINEDEBUG=-all
    export WINEDLLOVERRIDES='mscoree,mshtml=;winedbg.exe,winemenubuilder.exe=d'
    unset DISPLAY http_proxy https_proxy HTTP_PROXY HTTPS_PROXY
}

make_wine_template() {
    rm -rf "$1.new"
    mkdir -p "$1.new" &&
        WINEPREFIX=$1.new timeout --foreground 300 wine wineboot -u &&
        WINEPREFIX=$1.new timeout --foreground 60 wineserver -w &&
        mv "$1.new" "$1"
}

start_wine() {
    local template
    template=$cache/wine-prefix-$(dpkg-query -W -f '${Version}' wine64) || return
    stop_wine
    [ -d "$template" ] || make_wine_template "$template" || return
    rm -rf "$WINEPREFIX"
    # wineserver -p keeps Wine's server, and with it the state of the prefix, alive between programs.
    mkdir -p build && cp -a "$template" "$WINEPREFIX" && wineserver -p &&
        timeout --foreground 120 wine cmd /c exit
}

stop_wine() {
    [ -d "$WINEPREFIX" ] || return 0
    wineserver -k || true
    wineserver -w || true
}

# The reference server is a Linux program and runs beside Wine. The tests under Wine find its folder by
# $ZORV_TEST_SERVER.
start_test_server() {
    export ZORV_TEST_SERVER=build/test-server
    rm -rf "$ZORV_TEST_SERVER"
    ./dev build linux-debug zorvserver &&
        PATH=$PWD/build/linux-debug/bin:$PATH start_server "$ZORV_TEST_SERVER"
}

# The acceptance kit as test_package has made it, on a machine that never had the product.
test_acceptance() {
    if step fresh-wine start_wine; then
        run_script windows-acceptance acceptance_test build/test-package
    else
        failed=$((failed + 1))
    fi
}

test_windows() {
    wine_environment
    at_exit stop_wine
    if step setup-windows ./dev setup windows && step start-wine start_wine && step start-server start_test_server; then
        test_side windows wine
        run_script windows-headers windows_headers_test build/windows
        run_script windows-ndr64 ndr64_facts_test build/windows/generated/rpc
        run_script windows-sdk sdk_package_test build/windows
        run_script windows-setup windows_setup_test build/windows
        run_script windows-packages windows_package_test build/windows
        test_package
        test_acceptance
    else
        say "windows: cannot be run here, for the reason above"
        failed=$((failed + 1))
    fi
    stop_wine
}

run_tests() {
    rm -f "$logs"/*
    unset ZORV_MACHINE "${!GTEST_@}"
    export LC_ALL=C.UTF-8
    trap "exit 130" INT TERM  # some test programs end with 0 after such a signal
    case ${1:-all} in
        linux) test_linux ;;
        windows) test_windows ;;
        all)
            test_linux
            test_windows
            ;;
        *) fail "test what? linux or windows" ;;
    esac
    [ $((passed + failed)) -gt 0 ] || failed=1
    if [ $skipped -gt 0 ]; then
        say "$passed passed, $failed failed, $skipped skipped"
    else
        say "$passed passed, $failed failed"
    fi
    [ $failed -eq 0 ]
}
