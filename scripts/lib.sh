#!/bin/bash
# scripts/lib.sh: what the other scripts share; they source it after `set -eu`
# Everything it says goes to standard error, so that scripts/run can be used as a filter.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Packages of Debian 12. What the build needs: the compiler and build programs; fmt for the tool; GoogleTest for its
# tests, and Python, a second opinion on character codes, for which there is a module.
build_packages=(g++ cmake ninja-build libfmt-dev libgtest-dev python3 python3-dev)
# What running the tests needs: pkg-config; zsh and fish for their completion, groff for the manual
# pages, those in four languages to tell the charsets of; a user of the tool, and one of iconv(3).
# shellcheck disable=SC2034 # for scripts/test
test_packages=(pkgconf zsh fish groff-base manpages-ja manpages-de manpages-fr manpages-es parallel
    libxml2-utils)
# What a few tests are skipped without: large, and a server that starts when it is installed.
# shellcheck disable=SC2034 # for scripts/test
large_packages=(clang-14 postgresql-15)
# What the preset arm64 needs besides: a compiler, GoogleTest's sources, and what runs the tests.
arm64_packages=(g++-aarch64-linux-gnu googletest qemu-user)
# And the preset asan: clang with its sanitizers and its fuzzing engine.
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
    # Images made small may be told to leave manual pages out; tests read some.
    "${as_root[@]}" apt-get update -qq </dev/null >&2 &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
            --no-install-recommends -o Dpkg::Use-Pty=0 \
            -o Dpkg::Options::='--path-include=/usr/share/man/*' "${missing[@]}" </dev/null >&2
}

# build_preset NAME DIRECTORY [TARGET...]: configure where that was not done yet, then build the
# targets, all without one.
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
    cmake --build "$directory" --parallel "$(nproc)" ${1:+--target} "$@" -- --quiet 2>&1 | sed '/^ninja: no work to do/d' >&2
    return "${PIPESTATUS[0]}"
}
