# The steps that build a preset and run its tests with CTest.

step_unit() {
    if build release; then
        run_tests unit "$PWD/Build/release"
    fi
}

step_clang() {
    if build clang; then
        run_tests clang "$PWD/Build/clang"
    fi
}

step_asan() {
    sanitized asan+ubsan address,undefined
}

step_tsan() {
    sanitized tsan thread
}

# Each run begins with the seeds alone. A failing input's file is told with what the target said.
step_fuzz() {
    if build fuzz; then
        rm -rf Build/fuzz/Fuzz/Found
        run_tests fuzz "$PWD/Build/fuzz/Fuzz"
    fi
}

# As nobody, with a directory for temporary files that is nobody's, under a zone that is ahead of no full hour and a
# locale whose dotless i, decimal comma and digit groups show every conversion that forgot to name the classic one.
step_user() {
    build release || return 0
    local directory
    directory=$(mktemp --directory /tmp/vok2-user.XXXXXX)
    mkdir "$directory/tests" "$directory/tmp"
    printf 'subdirs("%s")\n' "$PWD/Build/release/Tests" >"$directory/tests/CTestTestfile.cmake"
    local settings=(env "TMPDIR=$directory/tmp" "HOME=$directory/tmp" "TZ=NST3:30NDT,M3.2.0,M11.1.0")
    if localedef -i tr_TR -f UTF-8 "$directory/tr_TR.UTF-8" 2>/dev/null; then
        settings+=("LOCPATH=$directory" "LC_ALL=tr_TR.UTF-8")
    else
        echo "   without a Turkish locale: localedef can't make one here (package locales)"
    fi
    local become=() show=()
    if ((EUID == 0)); then
        become=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
        chown -R nobody:nogroup "$directory"
        if ! "${become[@]}" test -x Build/release/Tests/PlatformTests; then
            show=(shown_to_others)
        fi
    fi
    label=unit run_tests user "$directory/tests" "${show[@]}" "${become[@]}" "${settings[@]}"
    rm -rf "$directory"
}

# Where the way to this tree is closed to other users, a mount namespace of their own shows them its build and tests
# in the same place.
shown_to_others() {
    local closed=$PWD parent=$PWD
    while [[ $parent != / ]]; do
        "${become[@]}" test -x "$parent" || closed=$parent
        parent=$(dirname -- "$parent")
    done
    # shellcheck disable=SC2016
    unshare --mount bash -euc '
        tree=$1 closed=$2
        shift 2
        keep=$(mktemp --directory /tmp/vok2-tree.XXXXXX)
        mount --bind "$tree" "$keep"
        mount -t tmpfs -o mode=755 tmpfs "$closed"
        for part in Build Tests Docs; do
            mkdir -p "$tree/$part"
            mount --bind "$keep/$part" "$tree/$part"
        done
        umount "$keep"
        rmdir "$keep"
        exec "$@"' shown "$PWD" "$closed" "$@"
}

step_limit() {
    if build release; then
        label=unit run_tests limit "$PWD/Build/release" bash -c 'ulimit -n 64 && exec "$@"' limited
    fi
}

declare -A buildFailed=()

# build PRESET [PREFIX...]: configures and builds; a failure counts as one. The prefix is a command that runs another.
build() {
    local preset=$1
    shift
    if [[ -n ${buildFailed[$preset]:-} ]]; then
        count_failed 1 "preset $preset has no build"
        return 1
    fi
    if logged "$preset-configure" cmake --preset "$preset" &&
        logged "$preset-build" "$@" cmake --build --preset "$preset"; then
        return 0
    fi
    buildFailed[$preset]=yes
    count_failed 1 "build of preset $preset"
    return 1
}

# run_tests NAME DIRECTORY [PREFIX...]: runs and counts what CTest finds in a directory (an absolute path), or of that
# what $label names.
run_tests() {
    local name=$1 directory=$2 report code=0
    shift 2
    # CTest writes the report as whoever it runs as.
    report=$directory/report-$name.xml
    rm -f "$report"
    logged "$name-tests" "$@" ctest --test-dir "$directory" --output-on-failure --no-tests=error \
        --parallel "$(nproc)" ${label:+--label-regex "$label"} --output-junit "$report" || code=$?
    if [[ ! -s $report ]]; then
        count_failed 1 "$name: ctest made no report"
        return
    fi
    local tests bad skipped
    tests=$(attribute tests "$report")
    bad=$(attribute failures "$report")
    skipped=$(($(attribute skipped "$report") + $(attribute disabled "$report")))
    count_passed $((tests - bad - skipped))
    if ((bad > 0)); then
        count_failed "$bad" "$name: $(tests_with 'fail' "$report")"
    elif ((code != 0)); then
        count_failed 1 "$name: ctest ended with exit code $code"
    fi
    if ((skipped > 0)); then
        echo "   $skipped not run: $(tests_with 'notrun\|disabled' "$report")"
    fi
}

tests_with() {
    sed -n "s/.*<testcase name=\"\([^\"]*\)\".* status=\"\($1\)\".*/\1/p" "$2" | paste -sd ' '
}

attribute() {
    sed -n "/<testsuite/,/>/s/.*\\b$1=\"\\([0-9]*\\)\".*/\\1/p" "$2" | head -n 1
}

# sanitized PRESET SANITIZERS: first sees whether a program built so can run here at all. Some kernels place memory
# where ThreadSanitizer can't use it; then everything runs without randomised addresses, if the host allows that.
sanitized() {
    local preset=$1 name=${1%%+*} prefix=() probe=Build/Probe
    mkdir -p "$probe"
    echo 'int main() { int volatile* p = new int(0); int r = *p; delete p; return r; }' >"$probe/Probe.cpp"
    if ! logged "$name-probe-build" g++ -fsanitize="$2" "$probe/Probe.cpp" -o "$probe/$name"; then
        count_failed 1 "$name: the compiler can't build with -fsanitize=$2"
        return
    fi
    if ! "$probe/$name" >"$logs/$name-probe.log" 2>&1; then
        if setarch --addr-no-randomize "$probe/$name" >/dev/null 2>&1; then
            echo "   runs without randomised addresses, because with them: $(head -n 1 "$logs/$name-probe.log")"
            prefix=(setarch --addr-no-randomize)
        else
            echo "a program with -fsanitize=$2 can't run here:" >&2
            sed 's/^/    /' "$logs/$name-probe.log" >&2
            count_failed 1 "$name: sanitized programs can't run here"
            return
        fi
    fi
    export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1
    export UBSAN_OPTIONS=print_stacktrace=1
    export TSAN_OPTIONS=second_deadlock_stack=1
    if build "$preset" "${prefix[@]}"; then
        run_tests "$name" "$PWD/Build/$preset" "${prefix[@]}"
    fi
}
