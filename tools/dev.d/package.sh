# ./dev package: makes what is handed out, under build/package/. Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

# Builds what goes into packages, for Linux by the preset $1, and makes them; those of a debug build, for tests, lie
# elsewhere. All files get the date of the last commit, or SOURCE_DATE_EPOCH where that is set: a tree without history
# has a date of its own.
package() {
    local linux=${1:-linux-release} out=build/package sizes=(windows)
    case $linux in
        linux-release) sizes+=(linux-release) ;;
        linux-debug) out=build/test-package ;;
        *) fail "package the Linux programs of which build? linux-release or linux-debug, not $linux" ;;
    esac
    if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
        SOURCE_DATE_EPOCH=$(git -c safe.directory="$PWD" log -1 --format=%ct 2>/dev/null) || SOURCE_DATE_EPOCH=1767225600
    fi
    [[ $SOURCE_DATE_EPOCH =~ ^[0-9]{1,12}$ ]] || fail "SOURCE_DATE_EPOCH is no number of seconds: $SOURCE_DATE_EPOCH"
    export SOURCE_DATE_EPOCH
    setup windows
    install_packages "${package_packages[@]}"
    step package-windows ./dev build windows zorvalis zorvctl zorvalis_client zorv_hardware zorvsetup zorv_acceptance &&
        step package-linux ./dev build "$linux" zorvalis zorvctl zorvserver zorvalis_client zorv_hardware &&
        step package-sizes python3 tools/sizes.py "${sizes[@]}" &&
        step package-files python3 -B packaging/packages.py build/windows "build/$linux" $out || exit 1
    say "made in $out:"
    (cd $out && cat SHA256SUMS)
}
