# ./dev setup: installs the Debian packages that are missing, and fetches SQLite's source for the Windows side. Sourced
# by ./dev.
# shellcheck shell=bash disable=SC2154

linux_packages=(g++ cmake ninja-build ccache libsqlite3-dev nlohmann-json3-dev libasio-dev libcli11-dev googletest
                libgtest-dev libcurl4-openssl-dev libssl-dev libcpp-httplib-dev clang-format python3)
windows_packages=(g++-mingw-w64-x86-64-posix mingw-w64-tools wine wine64)

# Debian has no SQLite for mingw-w64. This package of a registry carries its source; the sums say which.
sqlite_package=better-sqlite3@8.7.0
sqlite_c_sha256=f5be70b2a4b79337743701d6e5674dfb33d12ec9b2b28772eb09d33ba9ef757b
sqlite_h_sha256=5f864e05f3268d6976c16c34d1a7803d69f604c89ac0e867893f9bb5bf1ab6b5

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

# Whether the folder $1 has the expected source.
sqlite_is_right() {
    [ -f "$1/sqlite3.c" ] && [ -f "$1/sqlite3.h" ] &&
        sha256sum --status -c <<<"$sqlite_c_sha256  $1/sqlite3.c
$sqlite_h_sha256  $1/sqlite3.h"
}

# Puts the source into build/deps, from the user's cache or fetched anew.
setup_sqlite_source() {
    local here=build/deps/sqlite3 kept=$cache/sqlite3 fetched=build/deps/fetched
    local source=$fetched/package/deps/sqlite3
    ! sqlite_is_right "$here" || return 0
    if ! sqlite_is_right "$kept"; then
        command -v npm >/dev/null || install_packages npm
        say "fetching the source of SQLite ($sqlite_package)"
        rm -rf "$fetched" && mkdir -p "$fetched"
        (cd "$fetched" && npm pack --silent "$sqlite_package" >/dev/null && tar xf ./*.tgz) ||
            fail "the source of SQLite ($sqlite_package) cannot be fetched"
        sqlite_is_right "$source" || fail "the source of SQLite ($sqlite_package) is not the one that is expected"
        mkdir -p "$kept"
        cp "$source"/sqlite3.[ch] "$kept/"
        rm -rf "$fetched"
    fi
    mkdir -p "$here"
    cp "$kept"/sqlite3.[ch] "$here/"
}

setup() {
    case ${1:-all} in
        linux) install_packages "${linux_packages[@]}" ;;
        windows)
            install_packages "${linux_packages[@]}" "${windows_packages[@]}"
            setup_sqlite_source
            ;;
        all)
            setup linux
            setup windows
            ;;
        *) fail "set up what? linux or windows" ;;
    esac
}
