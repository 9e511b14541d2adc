# ./dev setup: installs the Debian packages that are missing, and fetches the sources that Debian does not have.
# Sourced by ./dev.
# shellcheck shell=bash disable=SC2154

linux_packages=(g++ cmake ninja-build ccache nlohmann-json3-dev libasio-dev libcli11-dev googletest
                libgtest-dev libcurl4-openssl-dev libssl-dev libcpp-httplib-dev clang-format python3
                chromium chromium-driver make pkgconf mono-mcs mono-runtime)
windows_packages=(g++-mingw-w64-x86-64-posix mingw-w64-tools wine wine64 wixl msitools)
package_packages=(dpkg-dev file)

# What Debian has not: a current SQLite, and uPlot, which draws the charts of zorvctl's report. These packages of a
# registry carry the sources; the sums say which. SQLite is 3.50.4.
sqlite_package=better-sqlite3@12.4.1
sqlite_sums="90b7189566ea710ee18361b25d893f5cda3fcf43033223a16384762f53e99a85  sqlite3.c
abd1514e0351f79393d1be882830afdb40a8099e8257f311f0bfdf8486f11bea  sqlite3.h"
uplot_package=uplot@1.6.32
uplot_sums="19c8d4c6ad88929a79f4ae49d6f7161566dfd0ba3d15cc495e974f787eb78f1f  dist/uPlot.iife.min.js
8f989229699b4fe2f1a0432d0e9edc338a8a911e250e2d1b01ecd770a5f5b1bd  LICENSE
df630c6a8d6f8eeaff264b50f73ce5b114f646ffd9a0bb74f049b0a00135fa04  dist/uPlot.min.css"

is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

# Whether the package lists were updated within a day. An update touches the folder `partial`; the lists themselves
# carry the server's dates.
has_fresh_package_lists() {
    [ -n "$(find /var/lib/apt/lists -maxdepth 1 -name '*_Packages*' -print -quit)" ] &&
        [ -n "$(find /var/lib/apt/lists/partial -maxdepth 0 -mtime -1)" ]
}

install_packages() {
    local missing=() as_root=(env DEBIAN_FRONTEND=noninteractive) package
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "there is neither root nor sudo to install: ${missing[*]}"
        as_root=(sudo "${as_root[@]}")
    fi
    say "installing: ${missing[*]}"
    local install=("${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}")
    if ! { has_fresh_package_lists && "${install[@]}" >/dev/null; }; then
        "${as_root[@]}" apt-get update -qq || fail "the package lists cannot be fetched; to be installed: ${missing[*]}"
        "${install[@]}" >/dev/null || fail "these packages cannot be installed: ${missing[*]}"
    fi
}

# Whether the folder $1 has the files of these sums $2.
is_right() { (cd "$1" 2>/dev/null && sha256sum --status -c <<<"$2" 2>/dev/null); }

# Puts the source called $1 into build/deps, from the user's cache or fetched anew: of the package $2, from its folder
# $3, the files with the sums $4.
setup_source() {
    local package=$2 sums=$4 here=$PWD/build/deps/$1 kept=$cache/$1 fetched=build/deps/fetched
    local source=$fetched/package/$3 files
    ! is_right "$here" "$sums" || return 0
    mapfile -t files < <(cut -d' ' -f3 <<<"$sums")
    if ! is_right "$kept" "$sums"; then
        command -v npm >/dev/null || install_packages npm
        say "fetching $package"
        rm -rf "$fetched" && mkdir -p "$fetched"
        (cd "$fetched" && npm pack --silent "$package" >/dev/null && tar xf ./*.tgz) || fail "$package cannot be fetched"
        is_right "$source" "$sums" || fail "$package is not the one that is expected"
        mkdir -p "$kept"
        (cd "$source" && cp --parents -t "$kept" "${files[@]}")
        rm -rf "$fetched"
    fi
    mkdir -p "$here"
    (cd "$kept" && cp --parents -t "$here" "${files[@]}")
}

setup() {
    case ${1:-all} in
        linux)
            install_packages "${linux_packages[@]}"
            setup_source sqlite3 "$sqlite_package" deps/sqlite3 "$sqlite_sums"
            setup_source uplot "$uplot_package" . "$uplot_sums"
            ;;
        windows)
            setup linux
            install_packages "${windows_packages[@]}"
            ;;
        all) setup windows ;;
        *) fail "set up what? linux or windows" ;;
    esac
}
