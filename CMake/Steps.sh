# What ./run, ./test and the checks share: messages, logs, ccache. To be sourced in the tree's root.

logs=$PWD/Build/Logs
if ! mkdir -p "$logs" || [[ ! -w $logs ]]; then
    echo "Build/Logs can't be written: this tree is read-only, or another user's" >&2
    exit 1
fi

announce() {
    printf '== %s\n' "$*"
}

# logged NAME COMMAND...: runs a command with its output in Build/Logs/NAME.log, and gives its exit code. When it fails,
# the cause is told.
logged() {
    local name=$1 code=0
    shift
    "$@" >"$logs/$name.log" 2>&1 || code=$?
    ((code == 0)) || tell_failure "$name" "$code" "$@"
    return "$code"
}

# tell_failure NAME CODE COMMAND...: prints the command and the part of its output in Build/Logs/NAME.log that tells why
# it failed: of a build what the first failed command said, of CMake what follows its first error, of CTest what the
# failed tests said, otherwise the end.
tell_failure() {
    local name=$1 code=$2
    shift 2
    {
        printf 'failed with exit code %d: %s\n' "$code" "$*"
        printf 'from Build/Logs/%s.log:\n' "$name"
        if grep --quiet '^FAILED: ' "$logs/$name.log"; then
            sed -n '/^FAILED: /,$p' "$logs/$name.log" | head -n 40
        elif grep --quiet '^CMake Error' "$logs/$name.log"; then
            sed -n '/^CMake Error/,$p' "$logs/$name.log" | head -n 40
        elif grep --quiet '^ *[0-9]*/[0-9]* Test ' "$logs/$name.log"; then
            awk '/^ *[0-9]+\/[0-9]+ Test/ { failed = /\*\*\*/ && !/\*\*\*Skipped/ } /^ *Start / { failed = 0 } failed' \
                "$logs/$name.log" | head -n 200
        else
            tail -n 60 "$logs/$name.log"
        fi | sed 's/^/    /'
    } >&2
}

# Compilers run through ccache where it is installed, and what another clone has compiled is not compiled again.
use_ccache() {
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    fi
}

passed=0
failed=0
failures=()

# count_passed NUMBER; count_failed NUMBER WHAT
count_passed() {
    passed=$((passed + $1))
}

count_failed() {
    failed=$((failed + $1))
    failures+=("$2")
}

# check NAME COMMAND...: a command whose success is one check.
check() {
    if logged "$@"; then
        count_passed 1
    else
        count_failed 1 "$1"
    fi
}

# The shared library as it is released, in Build/release/Source.
build_library() {
    if logged release-configure cmake --preset release &&
        logged release-library cmake --build --preset release --target Vok2; then
        return 0
    fi
    count_failed 1 "build of the library"
    return 1
}

project_version() {
    sed -n 's/^project(Vok2 VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt
}
