# Which lines of the library and the stand-in the tests run, as a table in Build/coverage/Coverage.txt. Only when it is
# named, as it builds everything once more.
step_coverage() {
    logged coverage-configure cmake --preset coverage && logged coverage-build cmake --build --preset coverage || {
        count_failed 1 "coverage: building"
        return
    }
    find Build/coverage -name '*.gcda' -delete
    local program
    for program in VokTests PlatformTests FaultTests; do
        check "coverage-$program" "Build/coverage/Tests/$program"
    done
    check coverage-table gcovr --root . --object-directory Build/coverage --filter Source/ --filter Platform/ \
        --filter Include/ --exclude-throw-branches --txt Build/coverage/Coverage.txt
    tail -n 2 Build/coverage/Coverage.txt | head -n 1
}
