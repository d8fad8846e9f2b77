# shellcheck shell=bash
# What ./run, ./check and .ci/run share; they source it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly root
cd "$root"

# Compiled once for all clones that build with the same compiler and the same options. The sloppiness is what
# precompiled headers need.
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

# apt COMMAND...: apt-get without a question. Another one may be at work, as on any machine that has just started: it is
# waited for.
apt() {
    local command output told='' deadline=$((SECONDS + 900))
    command=(env LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0)
    ((EUID == 0)) || command=(sudo -n "${command[@]}")
    until output=$("${command[@]}" "$@" 2>&1 </dev/null); do
        if [[ $output != *'Could not get lock'* ]] || ((SECONDS >= deadline)); then
            echo "$output" >&2
            return 1
        fi
        [[ $told ]] || echo "another apt is at work: waiting until it has ended"
        told=yes
        sleep 2
    done
}

# missing_of SECTION...: what is not installed of the packages that debian-packages.txt names in these sections. Of a line
# with alternatives it is the first one, unless any of them is there.
missing_of() {
    local installed alternatives name
    # shellcheck disable=SC2016 # dpkg-query's own variables
    installed=" $(dpkg-query -W -f='${db:Status-Status}:${Package} ')"
    awk -v wanted=" $* " '
        /^\[/ { section = substr($0, 2, length($0) - 2); next }
        /^[^#]/ && index(wanted, " " section " ")' cmake/debian-packages.txt |
        while IFS=" |" read -ra alternatives; do
            for name in "${alternatives[@]}"; do
                [[ $installed != *" installed:$name "* ]] || continue 2
            done
            echo "${alternatives[0]}"
        done
}

# install_packages SECTION...: asks for nothing, and touches nothing if all is there.
install_packages() {
    local missing
    command -v dpkg-query >/dev/null || fail "this is no Debian: install what cmake/debian-packages.txt names, then build with CMake"
    mapfile -t missing < <(missing_of "$@")
    ((${#missing[@]} > 0)) || return 0
    ((EUID == 0)) || sudo -n true 2>/dev/null || fail "not installed, and only root may: ${missing[*]}"
    echo "installing ${missing[*]}"
    apt update || fail "apt-get update failed; not installed: ${missing[*]}"
    apt install --yes --no-install-recommends "${missing[@]}" ||
        fail "apt-get could not install: $(missing_of "$@" | paste -sd ' ')"
}

# build PRESET [TARGET...]: a compiler of tomorrow may warn where today's does not, which is no reason to fail whoever
# wants to see the library. Where WARNINGS_AS_ERRORS is ON, as .ci/run has it, it is one.
build() {
    local preset=$1
    shift
    quietly cmake --preset "$preset" -DMULTIMEDIA_WARNINGS_AS_ERRORS="${WARNINGS_AS_ERRORS:-OFF}" || fail "cmake cannot configure the preset $preset"
    cmake --build "build/$preset" ${1:+--target "$@"} || fail "the build of the preset $preset failed"
}

# run_tests PRESET [OPTION of ctest...]: as many at a time as there are processors; a test that needs them all says so
# itself.
run_tests() {
    ctest --preset "$1" --parallel "$(nproc)" "${@:2}"
}
