#!/bin/bash
# scripts/lib.sh: what the other scripts share; they source it after `set -eu`
# Messages go to standard error, so that scripts/run can be used as a filter.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Packages of Debian 12. The build needs the compiler and build programs, fmt for the tool, GoogleTest for the tests,
# and Python for the module and as a second opinion on character codes.
build_packages=(g++ cmake ninja-build libfmt-dev libgtest-dev python3 python3-dev)
# The tests also need pkg-config, zsh and fish to check the completions, groff to check the manual pages, manual pages
# in four languages as texts to guess, GNU parallel, and a program that uses iconv(3).
# shellcheck disable=SC2034 # for scripts/test
test_packages=(pkgconf zsh fish groff-base manpages-ja manpages-de manpages-fr manpages-es parallel
    libxml2-utils)
# A few tests are skipped without these. They are large, and the server starts when it is installed.
# shellcheck disable=SC2034 # for scripts/test
large_packages=(clang-14 postgresql-15)
# The preset arm64 also needs a compiler, GoogleTest's sources, and an emulator to run the tests.
arm64_packages=(g++-aarch64-linux-gnu googletest qemu-user)
# The preset asan also needs clang with its sanitizers and fuzzing engine.
asan_packages=(clang-14 libclang-rt-14-dev llvm-14)

say() { echo "$*" >&2; }

# install_packages PACKAGE...: install those that are missing. Says nothing when none is.
install_packages() {
    local package missing=() as_root=()
    if ! command -v dpkg-query >/dev/null; then
        return 0 # not Debian: the build will tell what it lacks
    fi
    for package in "$@"; do
        case $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) in
        "install ok installed") ;;
        *) missing+=("$package") ;;
        esac
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            say "please install as root: apt-get install ${missing[*]}"
            return 1
        fi
        as_root=(sudo)
    fi
    say "installing: ${missing[*]}"
    # Small container images may leave out manual pages, but some tests read them.
    "${as_root[@]}" apt-get update -qq </dev/null >&2 &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
            --no-install-recommends -o Dpkg::Use-Pty=0 \
            -o Dpkg::Options::='--path-include=/usr/share/man/*' "${missing[@]}" </dev/null >&2
}

# use_memory: temporary files go to memory, where it can hold files: tests write thousands of small ones. What a test
# that was killed leaves behind goes with the script.
use_memory() {
    if [ -d /dev/shm ] && [ -w /dev/shm ]; then
        TMPDIR=$(mktemp -d /dev/shm/pvzan-tests-XXXXXX)
        chmod 711 "$TMPDIR" # a server that runs as another user finds its own files in there
        export TMPDIR
        trap 'rm -rf "$TMPDIR"' EXIT
    fi
}

# build_preset NAME DIRECTORY [TARGET...]: configure if necessary, then build the targets, or everything.
build_preset() {
    local packages=("${build_packages[@]}")
    case $1 in
    arm64) packages+=("${arm64_packages[@]}") ;;
    asan) packages+=("${asan_packages[@]}") ;;
    esac
    install_packages "${packages[@]}" || return
    cd "$root" || return
    if [ ! -e "$2/build.ninja" ]; then
        say "configuring $2/"
        cmake --preset "$1" >&2 || return
    fi
    local directory=$2
    shift 2
    cmake --build "$directory" --parallel "$(nproc)" ${1:+--target} "$@" -- --quiet 2>&1 |
        sed '/^ninja: no work to do/d' >&2
    return "${PIPESTATUS[0]}"
}
