# shellcheck shell=bash
# What ./run, ./check and .ci/run share; they source it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly root
cd "$root"

# Compiled once for every clone and every build folder. The sloppiness is what precompiled headers need.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime

fail() {
    echo "$(basename "$0"): $1" >&2
    exit 1
}

# quietly COMMAND...: shows what the command prints only if it fails.
quietly() {
    local output status=0
    output=$("$@" 2>&1) || status=$?
    if ((status != 0)); then
        echo "$output" >&2
    fi
    return "$status"
}

# packages_of SECTION...: the packages that debian-packages.txt names in these sections.
packages_of() {
    awk -v wanted=" $* " '
        /^\[/ { section = substr($0, 2, length($0) - 2); next }
        /^[^#]/ && index(wanted, " " section " ") { print $1 }' cmake/debian-packages.txt
}

missing_of() {
    local names
    mapfile -t names < <(packages_of "$@")
    dpkg-query -W -f='${db:Status-Status} ${Package}\n' "${names[@]}" 2>/dev/null |
        awk '$1 == "installed" { print $2 }' | grep -vxFf - <(printf '%s\n' "${names[@]}") || true
}

# install_packages SECTION...: asks for nothing, and touches nothing if all is there.
install_packages() {
    local missing command
    command -v dpkg-query >/dev/null || fail "this is no Debian: install what cmake/debian-packages.txt names, then build with CMake"
    mapfile -t missing < <(missing_of "$@")
    ((${#missing[@]} > 0)) || return 0

    command=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0)
    if ((EUID != 0)); then
        sudo -n true 2>/dev/null || fail "not installed, and only root may: ${missing[*]}"
        command=(sudo -n "${command[@]}")
    fi
    echo "installing ${missing[*]}"
    quietly "${command[@]}" update || fail "apt-get update failed; not installed: ${missing[*]}"
    quietly "${command[@]}" install --yes --no-install-recommends "${missing[@]}" ||
        fail "apt-get could not install: $(missing_of "$@" | paste -sd ' ')"
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    quietly cmake --preset "$preset" -DMULTIMEDIA_WARNINGS_AS_ERRORS=ON || fail "cmake cannot configure the preset $preset"
    cmake --build "build/$preset" ${1:+--target "$@"} || fail "the build of the preset $preset failed"
}

# run_tests PRESET: as many at a time as there are processors; a test that needs them all says so itself.
run_tests() {
    ctest --preset "$1" --parallel "$(nproc)"
}
