# shellcheck shell=bash
# Shared by the scripts: where the project stands, how a preset is built, and the installation of
# what the machine lacks. To be sourced.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '\n==> %s\n' "$*"; }

# What is needed, as NEED:PACKAGE. A need that begins with a slash is a pattern of files, any other
# one a command.
needs_build=(c++:g++ make:make cmake:cmake '/usr/include/eigen3/Eigen/Core:libeigen3-dev')
needs_test=(
    '/usr/include/gtest/gtest.h:libgtest-dev'
    '/usr/lib/*/liblapack.so:liblapack-dev'
    gnuplot:gnuplot-nox
)
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

# Installs the packages of all needs that are not there, and asks no question: as root, or with
# sudo where it wants no password. Where that cannot be, says what is missing and stops.
require() {
    local need packages=() as_root=()
    for need in "$@"; do
        is_there "${need%%:*}" || [[ " ${packages[*]} " == *" ${need#*:} "* ]] ||
            packages+=("${need#*:}")
    done
    [ ${#packages[@]} -gt 0 ] || return 0

    say "Missing: ${packages[*]}"
    if ! command -v apt-get >/dev/null; then
        echo "This system has no apt-get. Please install what is missing and run this again." >&2
        exit 1
    fi
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "Please install it (apt-get install --no-install-recommends ${packages[*]}," >&2
            echo "as root) and run this again." >&2
            exit 1
        fi
        as_root=(sudo -n)
    fi
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
        apt-get -y -q -o DPkg::Lock::Timeout=300)
    "${apt[@]}" update </dev/null ||
        echo "apt-get update failed; going on with the package lists that are there." >&2
    "${apt[@]}" install --no-install-recommends "${packages[@]}" </dev/null
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
