# shellcheck shell=bash
# Shared by the scripts: where the project stands, how a preset is built, and the installation of
# what the machine lacks. To be sourced.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '\n==> %s\n' "$*"; }

# What is needed, as NEED:PACKAGE. A need that begins with a slash is a pattern of files, any other
# one a command.
needs_build=(c++:g++ make:make cmake:cmake)
needs_fit=('/usr/include/eigen3/Eigen/Core:libeigen3-dev') # orvel_fit, which is left out without it
needs_test=('/usr/include/gtest/gtest.h:libgtest-dev')
needs_all_tests=("${needs_fit[@]}" '/usr/lib/*/liblapack.so:liblapack-dev' gnuplot:gnuplot-nox)
needs_bench=(
    '/usr/include/benchmark/benchmark.h:libbenchmark-dev'
    '/usr/lib/*/libopenblas.so:libopenblas-dev'
    /usr/include/lapacke.h:liblapacke-dev
    /usr/include/fftw3.h:libfftw3-dev
    jq:jq
)

is_there() {
    case $1 in
        /*) compgen -G "$1" >/dev/null ;;
        *) command -v "$1" >/dev/null ;;
    esac
}

# Packages of all needs that are not there, one a line.
missing() {
    local need
    for need in "$@"; do
        is_there "${need%%:*}" || echo "${need#*:}"
    done | sort -u
}

# Installs packages and asks no question: as root, or with sudo where it wants no password. Where
# that cannot be, says why and fails.
install() {
    local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=300)
    if ! command -v apt-get >/dev/null; then
        echo "This system has no apt-get." >&2
        return 1
    fi
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "As root: apt-get install --no-install-recommends $*" >&2
            return 1
        fi
        apt=(sudo -n "${apt[@]}")
    fi
    "${apt[@]}" update </dev/null ||
        echo "apt-get update failed; going on with the package lists that are there." >&2
    "${apt[@]}" install --no-install-recommends "$@" </dev/null
}

# What cannot be done without: stops where it is not there and cannot be installed.
require() {
    local packages
    mapfile -t packages < <(missing "$@")
    [ ${#packages[@]} -gt 0 ] || return 0
    say "Missing: ${packages[*]}"
    if ! install "${packages[@]}"; then
        echo "Please install what is missing and run this again." >&2
        exit 1
    fi
}

# What can be done without: installed where that can be.
want() {
    local packages
    mapfile -t packages < <(missing "$@")
    [ ${#packages[@]} -gt 0 ] || return 0
    say "Missing: ${packages[*]}"
    install "${packages[@]}" || say "Going on; what needs ${packages[*]} is left out"
}

# build PRESET TARGET [cmake option...]: the preset's build folder is build/PRESET.
build() {
    local preset=$1 target=$2
    shift 2
    say "Building $target (preset $preset)"
    cd "$root"
    cmake --preset "$preset" "$@"
    cmake --build "build/$preset" --target "$target" --parallel "$jobs"
}
