# Which lines of the library and the stand-in the tests run, as a table in Build/coverage/Coverage.txt. Only when it is
# named, as it builds everything once more.
step_coverage() {
    logged coverage-configure cmake --preset coverage && logged coverage-build cmake --build --preset coverage || {
        count_failed 1 "coverage: building"
        return
    }
    find Build/coverage -name '*.gcda' -delete
    check coverage-VokTests Build/coverage/Tests/VokTests
    check coverage-PlatformTests Build/coverage/Tests/PlatformTests
    check coverage-table gcovr --root . --object-directory Build/coverage --filter Source/ --filter Platform/ \
        --filter Include/ --exclude-throw-branches --txt Build/coverage/Coverage.txt
    tail -n 2 Build/coverage/Coverage.txt | head -n 1
}
