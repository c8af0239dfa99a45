#!/usr/bin/env bash
# Sees that a Debian 12 machine has the packages that a task needs, and installs what is missing with apt-get:
#
#     CMake/Prerequisites.sh build [tests] [benchmarks]
#
# With nothing missing it says nothing, changes nothing and needs no network.
set -euo pipefail

build_packages=(g++ cmake ninja-build libfmt-dev ccache pkg-config)
tests_packages=(libgtest-dev libgmock-dev clang libclang-rt-14-dev clang-tidy clang-format binutils locales gdb
    dpkg-dev file doxygen libspdlog-dev gcovr abigail-tools xz-utils)
benchmarks_packages=(libbenchmark-dev libspdlog-dev qtbase5-dev libicu-dev libboost-locale-dev
    libboost-filesystem-dev libpoco-dev libabsl-dev libasio-dev python3 python3-matplotlib)

fail() {
    echo "Prerequisites: $*" >&2
    exit 1
}

wanted=()
for group in "$@"; do
    case $group in
    build) wanted+=("${build_packages[@]}") ;;
    tests) wanted+=("${tests_packages[@]}") ;;
    benchmarks) wanted+=("${benchmarks_packages[@]}") ;;
    *) fail "unknown group '$group'; the groups are build, tests and benchmarks" ;;
    esac
done
((${#wanted[@]} > 0)) || fail "name at least one group: build, tests, benchmarks"

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    echo "This is no Debian system, so nothing is installed. Needed are the counterparts of: ${wanted[*]}" >&2
    exit 0
fi

missing=()
for package in "${wanted[@]}"; do
    status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null) || status=
    [[ $status == installed ]] || missing+=("$package")
done
((${#missing[@]} > 0)) || exit 0

as_root=()
if ((EUID != 0)); then
    command -v sudo >/dev/null || fail "missing packages: ${missing[*]}. Install them as root:
    apt-get install --no-install-recommends ${missing[*]}"
    as_root=(sudo)
fi

echo "   missing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for command in "update" "install --yes --no-install-recommends ${missing[*]}"; do
    echo "   apt-get ${command%% *}"
    # The command is a list of words without blanks in them.
    # shellcheck disable=SC2086
    if ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get $command >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        fail "failed: apt-get $command"
    fi
done
